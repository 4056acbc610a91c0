# libxxhash, whose package comes without a CMake package of its own. Defines Xxhash::Xxhash.
find_path(Xxhash_INCLUDE_DIR xxhash.h)
find_library(Xxhash_LIBRARY xxhash)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Xxhash REQUIRED_VARS Xxhash_LIBRARY Xxhash_INCLUDE_DIR)
if(Xxhash_FOUND AND NOT TARGET Xxhash::Xxhash)
  add_library(Xxhash::Xxhash UNKNOWN IMPORTED)
  set_target_properties(Xxhash::Xxhash PROPERTIES
    IMPORTED_LOCATION ${Xxhash_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${Xxhash_INCLUDE_DIR})
endif()
mark_as_advanced(Xxhash_INCLUDE_DIR Xxhash_LIBRARY)
