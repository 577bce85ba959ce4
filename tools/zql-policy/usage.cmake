# Builds, from usage.txt, the two forms of zql-policy's usage: the text --help prints (a C++
# header) and the manual page zql-policy(8). One source, so that they list the same commands
# and options.
# cmake -DUSAGE=usage.txt -DHEADER=usage.h -DMANPAGE=zql-policy.8 -DVERSION=x.y.z -P usage.cmake

file(READ "${USAGE}" text)
file(WRITE "${HEADER}"
    "// Generated from usage.txt by usage.cmake; edit usage.txt.\n"
    "#ifndef ZQLPOLICY_USAGE_H\n#define ZQLPOLICY_USAGE_H\n"
    "static const char Usage[] = R\"zqlusage(${text})zqlusage\";\n"
    "#endif // ZQLPOLICY_USAGE_H\n")

# Text to roff: backslashes and minus signs escaped, a leading dot or quote kept literal.
function(roff out line)
    string(REPLACE "\\" "\\e" line "${line}")
    string(REPLACE "-" "\\-" line "${line}")
    if(line MATCHES "^[.']")
        set(line "\\&${line}")
    endif()
    set(${out} "${line}" PARENT_SCOPE)
endfunction()

# CMake lists split at ";" and keep "[...]" together: hide both while splitting into lines.
string(REPLACE ";" "<semicolon>" text "${text}")
string(REPLACE "[" "<open>" text "${text}")
string(REPLACE "]" "<close>" text "${text}")
string(REGEX REPLACE "\n$" "" text "${text}")
string(REPLACE "\n" ";" lines "${text}")

string(CONCAT page ".TH ZQL\\-POLICY 8 \"\" \"zql\\-policy ${VERSION}\" \"System Administration\"\n"
         ".SH NAME\nzql\\-policy \\- export, check, preview, apply and compare the security "
         "policy of this machine\n")
set(section "")
set(item_open FALSE)
foreach(line IN LISTS lines)
    string(REPLACE "<semicolon>" ";" line "${line}")
    string(REPLACE "<open>" "[" line "${line}")
    string(REPLACE "<close>" "]" line "${line}")
    if(line MATCHES "^Usage: (.*)$")
        roff(synopsis "${CMAKE_MATCH_1}")
        string(APPEND page ".SH SYNOPSIS\n${synopsis}\n.SH DESCRIPTION\n")
        set(section "description")
    elseif(line STREQUAL "")
        set(item_open FALSE)
    elseif(line MATCHES "^(Commands|Options|Exit status):$")
        string(TOUPPER "${CMAKE_MATCH_1}" heading)
        string(APPEND page ".SH \"${heading}\"\n")
        set(section "${CMAKE_MATCH_1}")
        set(item_open FALSE)
    elseif(line MATCHES "^  (([^ ]| [^ ])+)  +(.*)$")
        # An item with its description on the same line.
        roff(term "${CMAKE_MATCH_1}")
        roff(description "${CMAKE_MATCH_3}")
        string(APPEND page ".TP\n.B ${term}\n${description}\n")
        set(item_open TRUE)
    elseif(line MATCHES "^  ([^ ].*)$")
        # An item whose description starts on the next line.
        roff(term "${CMAKE_MATCH_1}")
        string(APPEND page ".TP\n.B ${term}\n")
        set(item_open TRUE)
    elseif(line MATCHES "^   +(.*)$" AND item_open)
        roff(description "${CMAKE_MATCH_1}")
        string(APPEND page "${description}\n")
    else()
        roff(paragraph "${line}")
        if(item_open)
            string(APPEND page ".PP\n")
            set(item_open FALSE)
        endif()
        string(APPEND page "${paragraph}\n")
    endif()
endforeach()
string(APPEND page ".SH \"SEE ALSO\"\n"
    "docs/zql\\-policy.md and docs/policy\\-format.md in the source of libzql\\-modules.\n")
file(WRITE "${MANPAGE}" "${page}")
