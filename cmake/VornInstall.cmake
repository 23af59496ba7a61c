# What `cmake --install` lays out: headers, host library, plugins, tool, CMake package and pkg-config
# file, in the components headers, host, plugins and tool.

include(CMakePackageConfigHelpers)

set(VORN_PACKAGE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vorn)

install(DIRECTORY include/vorn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT headers)
install(TARGETS vorn_headers EXPORT vornHeaders COMPONENT headers)
install(TARGETS vorn_host EXPORT vornHost
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT host)
install(EXPORT vornHeaders NAMESPACE vorn:: FILE vornHeadersTargets.cmake
    DESTINATION ${VORN_PACKAGE_INSTALL_DIR} COMPONENT headers)
install(EXPORT vornHost NAMESPACE vorn:: FILE vornHostTargets.cmake
    DESTINATION ${VORN_PACKAGE_INSTALL_DIR} COMPONENT host)

configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/vornConfig.cmake.in ${PROJECT_BINARY_DIR}/vornConfig.cmake
    INSTALL_DESTINATION ${VORN_PACKAGE_INSTALL_DIR}
    PATH_VARS VORN_PLUGIN_INSTALL_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vornConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vornConfig.cmake ${PROJECT_BINARY_DIR}/vornConfigVersion.cmake
    DESTINATION ${VORN_PACKAGE_INSTALL_DIR} COMPONENT headers)

# Paths relative to the file itself, so that an installation can be moved.
file(RELATIVE_PATH VORN_PC_PREFIX
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/vorn.pc.in ${PROJECT_BINARY_DIR}/vorn.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vorn.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT host)
