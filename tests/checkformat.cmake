# Fails when a C++ file of the repository does not follow .clang-format.
file(GLOB_RECURSE files
    ${SOURCE_DIR}/common/*.cpp ${SOURCE_DIR}/common/*.h
    ${SOURCE_DIR}/modules/*.cpp ${SOURCE_DIR}/modules/*.h
    ${SOURCE_DIR}/platform/*.cpp ${SOURCE_DIR}/platform/*.h
    ${SOURCE_DIR}/sandbox/*.cpp ${SOURCE_DIR}/sandbox/*.h
    ${SOURCE_DIR}/tools/*.cpp ${SOURCE_DIR}/tools/*.h
    ${SOURCE_DIR}/tests/*.cpp ${SOURCE_DIR}/tests/*.h
    ${SOURCE_DIR}/benchmarks/*.cpp)
execute_process(COMMAND ${CLANG_FORMAT} --dry-run --Werror ${files}
                RESULT_VARIABLE result ERROR_VARIABLE output)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "not formatted with .clang-format (run clang-format -i):\n${output}")
endif()
list(LENGTH files count)
message(STATUS "${count} files follow .clang-format")
