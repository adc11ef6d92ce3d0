# libnlra: everything under engine/ but its tests. The objects are a target of their own, so that
# the engine's tests reach internal functions that the library does not export.
file(GLOB_RECURSE _engine_sources CONFIGURE_DEPENDS engine/*.cpp)
list(FILTER _engine_sources EXCLUDE REGEX "/engine/tests/")
if(NOT _engine_sources)
  message(WARNING "engine/ holds no sources yet: nothing to build")
  return()
endif()

find_package(Threads REQUIRED)

# What compiling and linking engine code takes.
add_library(nlra_requirements INTERFACE)
target_include_directories(nlra_requirements INTERFACE engine/include engine src)
target_link_libraries(nlra_requirements INTERFACE nalora_options nlra_highs nlra_ipopt
                                                  Threads::Threads ${CMAKE_DL_LIBS})
# libnlra_ipopt.so needs the stub when anything is linked against it.
add_dependencies(nlra_requirements nlra_metis)

add_library(nlra_objects OBJECT ${_engine_sources})
target_compile_definitions(nlra_objects PRIVATE NLRA_BUILDING=1
                                                NALORA_VERSION="${NALORA_VERSION}")
target_link_libraries(nlra_objects PRIVATE nlra_requirements)

add_library(nlra SHARED $<TARGET_OBJECTS:nlra_objects>)
target_link_libraries(nlra PRIVATE nlra_requirements)
target_link_options(nlra PRIVATE LINKER:--no-undefined)
target_include_directories(nlra INTERFACE engine/include)
set_target_properties(
  nlra
  PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${NALORA_LIB_DIR}
             LINKER_LANGUAGE CXX
             BUILD_WITH_INSTALL_RPATH ON
             INSTALL_RPATH "$ORIGIN")
