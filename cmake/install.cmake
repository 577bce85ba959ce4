# Install rules: the library, its public headers under include/zql-modules/, the CMake package
# ZqlModules (target ZqlModules::ZqlModules) and the pkg-config file zql-modules.pc.
set(ZQL_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZqlModules)

install(TARGETS zql-modules EXPORT ZqlModulesTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

get_property(ZQL_PUBLIC_HEADERS GLOBAL PROPERTY ZQL_PUBLIC_HEADERS)
install(FILES ${ZQL_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zql-modules)

install(EXPORT ZqlModulesTargets
    NAMESPACE ZqlModules::
    FILE ZqlModulesTargets.cmake
    DESTINATION ${ZQL_CMAKE_PACKAGE_DIR})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ZqlModulesConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/ZqlModulesConfig.cmake
    INSTALL_DESTINATION ${ZQL_CMAKE_PACKAGE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ZqlModulesConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/ZqlModulesConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/ZqlModulesConfigVersion.cmake
    DESTINATION ${ZQL_CMAKE_PACKAGE_DIR})

configure_file(${CMAKE_CURRENT_LIST_DIR}/zql-modules.pc.in
    ${CMAKE_CURRENT_BINARY_DIR}/zql-modules.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zql-modules.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
