# The package as it is imported: links to its Python files in the build tree, for developers, and
# the install rules for wheels.
set(_python_files __init__.py __init__.pyi __main__.py sparse.py sparse.pyi py.typed)
foreach(_file IN LISTS _python_files)
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/src/nalora/${_file} ${NALORA_PACKAGE_DIR}/${_file} SYMBOLIC)
endforeach()

list(TRANSFORM _python_files PREPEND src/nalora/)
install(FILES ${_python_files} DESTINATION nalora)
install(TARGETS nlra_metis LIBRARY DESTINATION nalora/lib)
if(TARGET naloralib)
  install(TARGETS nlra LIBRARY DESTINATION nalora/lib)
  install(TARGETS naloralib LIBRARY DESTINATION nalora)
endif()
install(DIRECTORY ${NALORA_LIB_DIR}/ DESTINATION nalora/lib FILES_MATCHING
        PATTERN "libnlra_*.so"
        PATTERN "libnlra_metis.so" EXCLUDE)
