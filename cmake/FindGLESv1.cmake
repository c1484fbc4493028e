# Finds an OpenGL ES 1.1 common-profile library and defines GLESv1::GLESv1.
find_path(GLESv1_INCLUDE_DIR GLES/gl.h)
find_library(GLESv1_LIBRARY NAMES GLESv1_CM)
mark_as_advanced(GLESv1_INCLUDE_DIR GLESv1_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(GLESv1 REQUIRED_VARS GLESv1_LIBRARY GLESv1_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "on Debian: apt-get install libgles-dev")

if(GLESv1_FOUND AND NOT TARGET GLESv1::GLESv1)
  add_library(GLESv1::GLESv1 UNKNOWN IMPORTED)
  set_target_properties(GLESv1::GLESv1 PROPERTIES
    IMPORTED_LOCATION "${GLESv1_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${GLESv1_INCLUDE_DIR}")
endif()
