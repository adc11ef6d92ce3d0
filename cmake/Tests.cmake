# Two executables: engine_tests reaches into the engine, unit_tests into the parts of the extension
# that know no Python. Both use engine/tests/check.hpp; a test's name on the command line runs it
# alone.
set(_suppressions "LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/cmake/lsan.supp")

file(GLOB _engine_tests CONFIGURE_DEPENDS engine/tests/*.cpp)
if(_engine_tests AND TARGET nlra_objects)
  add_executable(engine_tests ${_engine_tests} $<TARGET_OBJECTS:nlra_objects>)
  target_link_libraries(engine_tests PRIVATE nlra_requirements)
  target_compile_definitions(engine_tests
                             PRIVATE NALORA_TEST_DATA="${CMAKE_SOURCE_DIR}/examples/data")
  set_target_properties(engine_tests PROPERTIES BUILD_RPATH ${NALORA_LIB_DIR})
  add_test(NAME engine COMMAND engine_tests)
  set_tests_properties(engine PROPERTIES ENVIRONMENT "${_suppressions}")
endif()

# Sources of the extension that know no Python; those with everything in a header need no entry.
set(_plain_sources src/naloralib/problem/index_map.cpp)

file(GLOB _unit_tests CONFIGURE_DEPENDS tests/cpp/*.cpp)
if(_unit_tests)
  add_executable(unit_tests ${_unit_tests} ${_plain_sources})
  target_include_directories(unit_tests PRIVATE src/naloralib src engine/include engine/tests)
  target_link_libraries(unit_tests PRIVATE nalora_options Threads::Threads)
  add_test(NAME unit COMMAND unit_tests)
  set_tests_properties(unit PROPERTIES ENVIRONMENT "${_suppressions}")
endif()
