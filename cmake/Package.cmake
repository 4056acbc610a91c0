# The CMake package that other projects find with find_package(vxunpack).
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vxunpack)

configure_package_config_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/vxunpack-config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/vxunpack-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vxunpack-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vxunpack-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/vxunpack-config-version.cmake
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/FindDeflate.cmake
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/FindLASzip.cmake DESTINATION ${package_dir})
install(EXPORT vxunpack-targets NAMESPACE vxunpack:: DESTINATION ${package_dir})
install(FILES README.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
