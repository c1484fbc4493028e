# How everything in the project is compiled, and what the library's own code is held to beyond that.

find_program(CCACHE ccache)
mark_as_advanced(CCACHE)
if(CCACHE AND PROJECT_IS_TOP_LEVEL)
  set(CMAKE_C_COMPILER_LAUNCHER "${CCACHE}")
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE}")
endif()

# The library is linked by the C driver; without this CMake would add libstdc++ because its objects are C++.
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")

add_library(k8_warnings INTERFACE)
# Clang counts changes of sign among -Wconversion, GCC does not: they are left out for both.
target_compile_options(k8_warnings INTERFACE -Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND "undefined" IN_LIST K8_SANITIZE)
  target_compile_options(k8_warnings INTERFACE -Wno-maybe-uninitialized)
endif()

function(k8_apply_sanitizers)
  if(K8_SANITIZE)
    string(REPLACE ";" "," list "${K8_SANITIZE}")
    add_compile_options(-fsanitize=${list} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND "undefined" IN_LIST K8_SANITIZE)
      add_compile_options(-fno-sanitize=function)  # its checks need the C++ run-time library, which C hosts lack
    endif()
    add_link_options(-fsanitize=${list})
  endif()
endfunction()

# Standard, include directories and the floating-point rule shared by the library, its tests and its tools: no fused
# multiply-add and no x87, so that the same bytes in give the same bytes out on every build and machine.
function(k8_common_options target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  target_link_libraries(${target} PRIVATE k8_warnings)
  target_compile_options(${target} PRIVATE -ffp-contract=off)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "86")
    target_compile_options(${target} PRIVATE -msse2 -mfpmath=sse)
  endif()
endfunction()

# Options of the library's own objects: nothing that needs the C++ run-time library, nothing exported by accident.
function(k8_library_options target)
  k8_common_options(${target})
  target_compile_options(${target} PRIVATE
    -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-math-errno -fno-semantic-interposition)
  target_compile_definitions(${target} PRIVATE K8_BUILD)
  target_include_directories(${target} PUBLIC "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/include"
    PRIVATE "${GLESv1_INCLUDE_DIR}")
  set_target_properties(${target} PROPERTIES
    POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()

# Makes a shared or static library of the objects, with the public header as its only face.
function(k8_link_library target)
  target_sources(${target} PRIVATE $<TARGET_OBJECTS:k8_objects>
    PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}/include" FILES "${PROJECT_SOURCE_DIR}/include/k8.h")
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
endfunction()
