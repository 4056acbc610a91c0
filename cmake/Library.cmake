# vx_library(NAME SOURCES ... HOT ... LINK ...): a library of this project whose folder holds src/.
#   HOT   sources with inner loops, compiled with -O3 in optimised builds: at -O2 the compilers that we support do
#         not vectorise loops of run-time length
#   LINK  public link dependencies; PRIVATE_LINK those that no header shows
function(vx_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;HOT;LINK;PRIVATE_LINK" ${ARGN})
  list(TRANSFORM ARG_SOURCES PREPEND src/)
  list(TRANSFORM ARG_HOT PREPEND src/)
  add_library(${name} ${ARG_SOURCES} ${ARG_HOT})
  add_library(vxunpack::${name} ALIAS ${name})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/src> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/vxunpack>)
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_link_libraries(${name} PUBLIC ${ARG_LINK} PRIVATE $<BUILD_INTERFACE:vx_options> ${ARG_PRIVATE_LINK})
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 1)
  set_source_files_properties(${ARG_HOT} PROPERTIES COMPILE_OPTIONS $<$<NOT:$<CONFIG:Debug>>:-O3>)

  install(TARGETS ${name} EXPORT vxunpack-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY src/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vxunpack FILES_MATCHING PATTERN *.h)
  set_property(GLOBAL APPEND PROPERTY VX_HEADER_ROOTS ${CMAKE_CURRENT_SOURCE_DIR}/src)
endfunction()
