# libvxunpack, its headers, and the packages by which CMake and pkg-config find them.
if(BUILD_SHARED_LIBS)
  get_property(libraries GLOBAL PROPERTY VX_LIBRARIES)
  get_property(dependencies GLOBAL PROPERTY VX_PRIVATE_LINK)
  list(REMOVE_DUPLICATES dependencies)
  list(TRANSFORM libraries REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
  add_library(libvxunpack SHARED ${objects})
  add_library(vxunpack::vxunpack ALIAS libvxunpack)
  set_target_properties(libvxunpack PROPERTIES OUTPUT_NAME vxunpack EXPORT_NAME vxunpack LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  target_compile_features(libvxunpack PUBLIC cxx_std_20)
  target_include_directories(libvxunpack INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  # The version script keeps instances of the standard library's templates out of the exported symbols.
  target_link_libraries(libvxunpack PRIVATE $<BUILD_INTERFACE:vx_options> ${dependencies})
  target_link_options(libvxunpack PRIVATE -Wl,--version-script=${CMAKE_CURRENT_LIST_DIR}/libvxunpack.map)
  set_target_properties(libvxunpack PROPERTIES LINK_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/libvxunpack.map)

  include(CMakePackageConfigHelpers)
  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vxunpack)
  write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vxunpack-config-version.cmake
    COMPATIBILITY SameMajorVersion)
  file(RELATIVE_PATH prefix_of_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/vxunpack.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vxunpack.pc @ONLY)
  install(TARGETS libvxunpack EXPORT vxunpack-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT library NAMELINK_COMPONENT development)
  install(EXPORT vxunpack-targets NAMESPACE vxunpack:: FILE vxunpack-config.cmake DESTINATION ${package_dir})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vxunpack-config-version.cmake DESTINATION ${package_dir})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vxunpack.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/vxunpack DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endif()
install(FILES README.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
