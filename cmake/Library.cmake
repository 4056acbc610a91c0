# vx_library(NAME SOURCES ... HOT ... LINK ... PRIVATE_LINK ...): a static library whose folder holds src/. The programs,
# the tests and the modules link it; libvxunpack is made of its objects.
#   HOT   sources with inner loops, compiled with -O3 in optimised builds: at -O2 the supported compilers do not
#         vectorise loops of run-time length
#   LINK  public link dependencies; PRIVATE_LINK those that no header shows
function(vx_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;HOT;LINK;PRIVATE_LINK" ${ARGN})
  list(TRANSFORM ARG_SOURCES PREPEND src/)
  list(TRANSFORM ARG_HOT PREPEND src/)
  add_library(${name} STATIC ${ARG_SOURCES} ${ARG_HOT})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/include ${CMAKE_CURRENT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${ARG_LINK} PRIVATE vx_options ${ARG_PRIVATE_LINK})
  set_source_files_properties(${ARG_HOT} PROPERTIES COMPILE_OPTIONS $<$<NOT:$<CONFIG:Debug>>:-O3>)
  set_property(GLOBAL APPEND PROPERTY VX_LIBRARIES ${name})
  set_property(GLOBAL APPEND PROPERTY VX_PRIVATE_LINK ${ARG_PRIVATE_LINK})
  set_property(GLOBAL APPEND PROPERTY VX_HEADER_ROOTS ${CMAKE_CURRENT_SOURCE_DIR}/src)
endfunction()
