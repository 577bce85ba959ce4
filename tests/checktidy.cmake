# Runs clang-tidy (the checks of .clang-tidy) over every translation unit of one folder of the
# checkout, as the build compiles it, with every remark an error. Headers of the checkout's own
# folders are checked with the files that include them; generated files are not.
# Usage: cmake -DCLANG_TIDY=<program> -DSOURCE_DIR=<checkout> -DBUILD_DIR=<build> -DFOLDER=<name>
#              -P checktidy.cmake
file(READ ${BUILD_DIR}/compile_commands.json commands)
string(JSON count LENGTH "${commands}")
math(EXPR last "${count} - 1")
set(files "")
foreach(index RANGE ${last})
    string(JSON file GET "${commands}" ${index} file)
    if(file MATCHES "^${SOURCE_DIR}/${FOLDER}/" AND NOT file MATCHES "^${BUILD_DIR}/")
        list(APPEND files ${file})
    endif()
endforeach()
list(REMOVE_DUPLICATES files)
if(NOT files)
    message(FATAL_ERROR "no translation unit under ${FOLDER}/ in ${BUILD_DIR}/compile_commands.json")
endif()

set(folders "common|modules|platform|sandbox|tools|tests|benchmarks")
execute_process(
    COMMAND ${CLANG_TIDY} -p ${BUILD_DIR} --quiet --warnings-as-errors=*
            "--header-filter=^${SOURCE_DIR}/(${folders})/" ${files}
    RESULT_VARIABLE result
    OUTPUT_VARIABLE output
    ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
    message(NOTICE "${output}${errors}")
    message(FATAL_ERROR "clang-tidy found problems in ${FOLDER}/")
endif()
list(LENGTH files checked)
message(STATUS "clang-tidy: ${checked} files of ${FOLDER}/ are clean")
