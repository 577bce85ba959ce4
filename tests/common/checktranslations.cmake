# Runs lupdate over the library's sources (the list the build writes for update-translations)
# into copies of the catalogues and fails when any message lacks a finished translation (new,
# changed or unfinished texts).
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
file(GLOB catalogues ${SOURCE_DIR}/translations/*.ts)
if(NOT catalogues)
    message(FATAL_ERROR "no catalogue in ${SOURCE_DIR}/translations")
endif()
if(NOT EXISTS ${SOURCES_FILE})
    message(FATAL_ERROR "no list of the library's sources: ${SOURCES_FILE}")
endif()
foreach(catalogue IN LISTS catalogues)
    get_filename_component(name ${catalogue} NAME)
    file(COPY ${catalogue} DESTINATION ${WORK_DIR})
    execute_process(COMMAND ${LUPDATE} -no-obsolete -locations none @${SOURCES_FILE}
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
