# libgeotiff, in whose packages a CMake one is missing on some systems. Defines GeoTIFF::GeoTIFF.
find_path(GeoTIFF_INCLUDE_DIR geo_simpletags.h PATH_SUFFIXES geotiff libgeotiff)
find_library(GeoTIFF_LIBRARY geotiff)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(GeoTIFF REQUIRED_VARS GeoTIFF_LIBRARY GeoTIFF_INCLUDE_DIR)
if(GeoTIFF_FOUND AND NOT TARGET GeoTIFF::GeoTIFF)
  add_library(GeoTIFF::GeoTIFF UNKNOWN IMPORTED)
  set_target_properties(GeoTIFF::GeoTIFF PROPERTIES
    IMPORTED_LOCATION ${GeoTIFF_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${GeoTIFF_INCLUDE_DIR})
endif()
mark_as_advanced(GeoTIFF_INCLUDE_DIR GeoTIFF_LIBRARY)
