# zql_library_sources(SOURCES <files> PUBLIC_HEADERS <files> [PRIVATE_HEADERS <files>])
# Adds a subsystem folder's files to the library. Public headers are copied into the
# build tree's include/zql-modules/ and installed there.
function(zql_library_sources)
    cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_HEADERS;PRIVATE_HEADERS" ${ARGN})
    target_sources(zql-modules PRIVATE ${ARG_SOURCES} ${ARG_PUBLIC_HEADERS} ${ARG_PRIVATE_HEADERS})
    target_include_directories(zql-modules PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    foreach(header IN LISTS ARG_PUBLIC_HEADERS)
        get_filename_component(name ${header} NAME)
        configure_file(${header} ${ZQL_BUILD_INCLUDE_DIR}/${name} COPYONLY)
        set_property(GLOBAL APPEND PROPERTY ZQL_PUBLIC_HEADERS ${ZQL_BUILD_INCLUDE_DIR}/${name})
    endforeach()
    foreach(file IN LISTS ARG_SOURCES ARG_PUBLIC_HEADERS ARG_PRIVATE_HEADERS)
        set_property(GLOBAL APPEND PROPERTY ZQL_TRANSLATABLE_SOURCES
            ${CMAKE_CURRENT_SOURCE_DIR}/${file})
    endforeach()
endfunction()
