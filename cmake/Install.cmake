# install: the library, its headers, a CMake package and a pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VXLAN_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/vxlan-controller-client)
set(VXLAN_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VxlanControllerClient)

# The warnings are for building, not for whoever links the result: only the library is exported.
install(TARGETS vxlan-controller-client
        EXPORT VxlanControllerClientTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        FILE_SET HEADERS DESTINATION ${VXLAN_INCLUDE_DIR})
install(TARGETS vxlan-warnings EXPORT VxlanControllerClientTargets)
install(EXPORT VxlanControllerClientTargets
        NAMESPACE VxlanControllerClient::
        DESTINATION ${VXLAN_PACKAGE_DIR})

configure_package_config_file(cmake/VxlanControllerClientConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VxlanControllerClientConfig.cmake
  INSTALL_DESTINATION ${VXLAN_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VxlanControllerClientConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/VxlanControllerClientConfig.cmake
  ${PROJECT_BINARY_DIR}/VxlanControllerClientConfigVersion.cmake
  DESTINATION ${VXLAN_PACKAGE_DIR})

configure_file(cmake/vxlan-controller-client.pc.in
  ${PROJECT_BINARY_DIR}/vxlan-controller-client.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vxlan-controller-client.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
