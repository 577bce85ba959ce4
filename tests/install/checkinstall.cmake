function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out
                    ERROR_VARIABLE out)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed: ${ARGN}\n${out}")
    endif()
    set(output "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(file include/zql-modules/modules.h include/zql-modules/moduleinterface.h
             include/zql-modules/zqlmodules_export.h lib/cmake/ZqlModules/ZqlModulesConfig.cmake
             lib/pkgconfig/zql-modules.pc share/vela/translations/libzql-modules_ru.qm)
    if(NOT EXISTS ${prefix}/${file})
        message(FATAL_ERROR "not installed: ${file}")
    endif()
endforeach()
file(GLOB private_headers ${prefix}/include/zql-modules/*_p.h)
if(private_headers)
    message(FATAL_ERROR "private headers installed: ${private_headers}")
endif()

# The versioned SONAME.
file(GLOB libraries ${prefix}/lib/libzql-modules.so.*.*.*)
run(objdump -p ${libraries})
if(NOT output MATCHES "SONAME +libzql-modules\\.so\\.[0-9]+\n")
    message(FATAL_ERROR "no versioned SONAME:\n${output}")
endif()

run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER} "-DCMAKE_CXX_FLAGS=${CONSUMER_CXX_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer)
if(NOT output STREQUAL "consumer : hello from outside\n")
    message(FATAL_ERROR "unexpected consumer output: [${output}]")
endif()

# The same program built with what pkg-config says, from the relocated prefix.
set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig)
run(pkg-config --variable=includedir zql-modules)
string(STRIP "${output}" includedir)
get_filename_component(includedir ${includedir} REALPATH)
if(NOT includedir STREQUAL "${prefix}/include")
    message(FATAL_ERROR "pkg-config's includedir is ${includedir}, not ${prefix}/include")
endif()
run(pkg-config --cflags --libs zql-modules)
string(STRIP "${output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
separate_arguments(extra UNIX_COMMAND "${CONSUMER_CXX_FLAGS}")
run(${CXX_COMPILER} -std=c++17 -fPIC ${extra} ${CONSUMER_DIR}/main.cpp ${flags}
    -Wl,-rpath,${prefix}/lib -o ${WORK_DIR}/consumer-pkgconfig)
run(${WORK_DIR}/consumer-pkgconfig)
if(NOT output STREQUAL "consumer : hello from outside\n")
    message(FATAL_ERROR "unexpected output of the pkg-config build: [${output}]")
endif()
message(STATUS "installed package found and linked")
