# Install rules: both libraries, the header, a find_package(k8) configuration and a pkg-config file.
include(CMakePackageConfigHelpers)

set(packageDir "${CMAKE_INSTALL_LIBDIR}/cmake/k8")
set_target_properties(k8_static PROPERTIES EXPORT_NAME static)
install(TARGETS k8 k8_static EXPORT k8Targets FILE_SET HEADERS)
install(EXPORT k8Targets NAMESPACE k8:: DESTINATION "${packageDir}")

configure_package_config_file(cmake/k8Config.cmake.in "${PROJECT_BINARY_DIR}/k8Config.cmake"
  INSTALL_DESTINATION "${packageDir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/k8ConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/k8Config.cmake" "${PROJECT_BINARY_DIR}/k8ConfigVersion.cmake"
  cmake/FindGLESv1.cmake DESTINATION "${packageDir}")

configure_file(cmake/k8.pc.in "${PROJECT_BINARY_DIR}/k8.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/k8.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
