# naloralib: the extension module. It sees the C headers in engine/include and nothing else of the
# engine, shares src/common with it, and keeps the compiler's normal string ABI.
file(GLOB_RECURSE _module_sources CONFIGURE_DEPENDS src/naloralib/*.cpp)

if(_module_sources)
  Python_add_library(naloralib MODULE WITH_SOABI ${_module_sources})
  target_include_directories(naloralib PRIVATE src/naloralib src)
  # -Wno-missing-field-initializers: type objects and method tables name only what they set.
  target_compile_options(naloralib PRIVATE -Wno-missing-field-initializers)
  target_compile_definitions(naloralib PRIVATE NPY_NO_DEPRECATED_API=NPY_1_7_API_VERSION)
  target_link_libraries(naloralib PRIVATE nalora_options nlra Python::NumPy)
  set_target_properties(
    naloralib
    PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${NALORA_PACKAGE_DIR}
               BUILD_WITH_INSTALL_RPATH ON
               INSTALL_RPATH "$ORIGIN/lib")
endif()
