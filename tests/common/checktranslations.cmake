# Runs lupdate over the library's sources into copies of the catalogues and fails when any
# message lacks a finished translation (new, changed or unfinished texts).
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
file(GLOB catalogues ${SOURCE_DIR}/translations/*.ts)
if(NOT catalogues)
    message(FATAL_ERROR "no catalogue in ${SOURCE_DIR}/translations")
endif()
file(GLOB_RECURSE sources ${SOURCE_DIR}/common/*.cpp ${SOURCE_DIR}/common/*.h
     ${SOURCE_DIR}/modules/*.cpp ${SOURCE_DIR}/modules/*.h)
foreach(catalogue IN LISTS catalogues)
    get_filename_component(name ${catalogue} NAME)
    file(COPY ${catalogue} DESTINATION ${WORK_DIR})
    execute_process(COMMAND ${LUPDATE} -no-obsolete -locations none ${sources}
                            -ts ${WORK_DIR}/${name}
                    RESULT_VARIABLE result OUTPUT_QUIET)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "lupdate failed on ${name}")
    endif()
    file(READ ${WORK_DIR}/${name} content)
    string(REGEX MATCHALL "type=\"unfinished\"" unfinished "${content}")
    list(LENGTH unfinished count)
    if(count GREATER 0)
        message(FATAL_ERROR "${name}: ${count} message(s) without a finished translation. "
                            "Run the update-translations target and translate them:\n"
                            "${WORK_DIR}/${name}")
    endif()
    message(STATUS "${name}: every message is translated")
endforeach()
