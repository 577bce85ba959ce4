# Fails when a file of the library other than the process runner's own mentions QProcess: every
# child process of the library starts through the runner (common/processrunner.cpp), so that
# limits, killing an overrunning child and the shared messages live in one place.
cmake_minimum_required(VERSION 3.16)
set(runner_files common/processrunner.cpp common/processrunner.h common/processrunner_p.h)
file(GLOB_RECURSE files RELATIVE ${SOURCE_DIR}
    ${SOURCE_DIR}/common/* ${SOURCE_DIR}/modules/* ${SOURCE_DIR}/platform/*)
if(NOT files)
    message(FATAL_ERROR "no library sources under ${SOURCE_DIR}")
endif()
set(offenders "")
foreach(file IN LISTS files)
    if(file IN_LIST runner_files)
        continue()
    endif()
    file(STRINGS ${SOURCE_DIR}/${file} lines REGEX "QProcess")
    foreach(line IN LISTS lines)
        string(STRIP "${line}" line)
        string(APPEND offenders "\n  ${file}: ${line}")
    endforeach()
endforeach()
if(offenders)
    message(FATAL_ERROR "QProcess outside the process runner; start the tool through runTool() "
                        "or runProcess() instead:${offenders}")
endif()
list(LENGTH files count)
message(STATUS "${count} library files start no process of their own")
