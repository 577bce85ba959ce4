# Fails when a layer of the library includes a header of a layer above it or beside it:
# platform/ sees only itself; common/ sees itself and nothing of the modules; a module folder
# sees itself, common/ and platform/. Nothing below the library includes the published copies
# (<zql-modules/...>), which would see every layer at once.
# Usage: cmake -DSOURCE_DIR=<checkout> -P checklayers.cmake

# Which folder owns each header name.
file(GLOB_RECURSE headers RELATIVE ${SOURCE_DIR}
    ${SOURCE_DIR}/common/*.h ${SOURCE_DIR}/modules/*.h ${SOURCE_DIR}/platform/*.h)
foreach(header IN LISTS headers)
    get_filename_component(name ${header} NAME)
    get_filename_component(folder ${header} DIRECTORY)
    string(REGEX REPLACE "^(platform)/.*" "\\1" folder ${folder})
    set(owner_${name} ${folder})
endforeach()
set(owner_zqlmodules_export.h common)

function(allowed_folders folder result)
    if(folder MATCHES "^platform")
        set(${result} platform PARENT_SCOPE)
    elseif(folder STREQUAL "common")
        set(${result} common PARENT_SCOPE)
    else()
        set(${result} ${folder} common platform PARENT_SCOPE)
    endif()
endfunction()

set(problems "")
file(GLOB_RECURSE files RELATIVE ${SOURCE_DIR}
    ${SOURCE_DIR}/common/*.h ${SOURCE_DIR}/common/*.cpp
    ${SOURCE_DIR}/modules/*.h ${SOURCE_DIR}/modules/*.cpp
    ${SOURCE_DIR}/platform/*.h ${SOURCE_DIR}/platform/*.cpp)
foreach(file IN LISTS files)
    get_filename_component(folder ${file} DIRECTORY)
    string(REGEX REPLACE "^(platform)/.*" "\\1" folder ${folder})
    allowed_folders(${folder} allowed)
    file(STRINGS ${SOURCE_DIR}/${file} includes REGEX "^[ \t]*#[ \t]*include[ \t]*[\"<]")
    foreach(line IN LISTS includes)
        if(line MATCHES "<zql-modules/")
            string(APPEND problems "${file}: ${line} (the published headers see every layer)\n")
            continue()
        endif()
        if(NOT line MATCHES "\"([^\"]+)\"")
            continue()
        endif()
        get_filename_component(name ${CMAKE_MATCH_1} NAME)
        if(NOT DEFINED owner_${name})
            continue() # a generated file (.moc) or a system header
        endif()
        list(FIND allowed ${owner_${name}} index)
        if(index EQUAL -1)
            string(APPEND problems "${file}: ${line} (${owner_${name}}/ is not below ${folder}/)\n")
        endif()
    endforeach()
endforeach()

if(problems)
    message(FATAL_ERROR "Includes across the library's layers:\n${problems}")
endif()
list(LENGTH files count)
message(STATUS "${count} files of the library's layers checked")
