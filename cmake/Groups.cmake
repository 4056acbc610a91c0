# With CMAKE_UNITY_BUILD, the sources of a target are compiled in groups of CMAKE_UNITY_BUILD_BATCH_SIZE. Most of the
# compiler's time is for headers and templates, and a group reads them once. The presets asan, fuzz and tsan and the build
# on Debian 11 do this, and all builds do it for tests and fuzz targets. Otherwise each source is compiled alone, so that
# missing includes are found.
#
# The sources of a group share their unnamed namespaces. If two of them define the same name, only these builds fail,
# with a redefinition or an ambiguous call. Then rename one of the two, or add its source to this list: its sources are
# compiled alone, as are those with options of their own (HOT).
set(VX_UNGROUPED
  qm_lib_lidar_core/src/files/PartialFile.cpp
  qm_lib_lidar_core/src/framework/Metadata.cpp
  qm_lib_lidar_core/src/index/DiskRTree.cpp
  qm_lib_lidar_core/src/index/MemoryRTree.cpp
  qm_lib_lidar_core/src/text/TXTPointWriter.cpp
  qm_lib_lidar_filters/src/filters/LayoutAdapter.cpp
  qm_lib_lidar_formats/src/las/laszip/LASzipCoding.cpp
  qm_lib_lidar_kernel/src/encode/container/ChunkWriter.cpp
  qm_lib_lidar_kernel/src/encode/planning/EncodeOptions.cpp
  tests/core/text/TXTPointWriterTest.cpp)
foreach(source IN LISTS VX_UNGROUPED)
  string(REGEX MATCH "^[^/]+" folder ${source})
  if(folder STREQUAL tests AND NOT VX_BUILD_TESTS)
    continue()
  endif()
  set_source_files_properties(${PROJECT_SOURCE_DIR}/${source} DIRECTORY ${folder}
    PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endforeach()

# In a group, a local name can be that of another source's constant, and types in unnamed namespaces are not in the main
# file. The other builds have these warnings.
target_compile_options(vx_options INTERFACE
  $<$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>:-Wno-shadow>
  $<$<AND:$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>,$<CXX_COMPILER_ID:GNU>>:-Wno-subobject-linkage>)
