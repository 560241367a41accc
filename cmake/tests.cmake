# One test program per layer, linked with the library's objects, two more of the engine's and one of
# the manager's, and small programs that see only the DLL. Every program lies beside the DLL. Files
# named *_win32 need Windows, files named *_native are for the development build on Linux.
set(TARNLO_GOOGLETEST /usr/src/googletest CACHE PATH "Sources of GoogleTest")
set(INSTALL_GTEST OFF)
add_subdirectory("${TARNLO_GOOGLETEST}" "${PROJECT_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)

if(WIN32)
  set(other_system "_native(_[a-z]+)*[.]cpp$")
else()
  set(other_system "_win32(_[a-z]+)*[.]cpp$|/tests/abi/")
endif()

file(GLOB support_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/tests/support/*.cpp")
list(FILTER support_sources EXCLUDE REGEX "${other_system}")
add_library(test_support STATIC EXCLUDE_FROM_ALL ${support_sources})
target_compile_definitions(test_support PRIVATE $<TARGET_PROPERTY:tarnlo_static,INTERFACE_COMPILE_DEFINITIONS>)
target_link_libraries(test_support PUBLIC gtest gmock PRIVATE tarnlo_static tarnlo_options)

set(test_programs)
set(built_tests)
function(add_test_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} test_support tarnlo_options)
  if(WIN32)
    # Quick to compile; what has to run fast is in the library and in tests/support.
    target_compile_options(${name} PRIVATE -O0)
  endif()
  add_test(NAME ${name} COMMAND ${name} WORKING_DIRECTORY "${PROJECT_BINARY_DIR}")
  set(test_programs ${test_programs} ${name} PARENT_SCOPE)
  set(built_tests ${built_tests} ${arg_SOURCES} PARENT_SCOPE)
endfunction()

# layer_sources(VARIABLE LAYER): of this system.
function(layer_sources variable layer)
  file(GLOB sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/tests/${layer}/*.cpp")
  list(FILTER sources EXCLUDE REGEX "${other_system}")
  set(${variable} ${sources} PARENT_SCOPE)
endfunction()

# share_headers(PROGRAM): what most of a layer's tests include is compiled once, with the first program.
# The builds for Linux do without, and see that each file names what it needs.
function(share_headers program)
  if(NOT WIN32)
    return()
  elseif(program STREQUAL "tests_engine_slow")
    target_precompile_headers(${program} PRIVATE
      <gtest/gtest.h> <algorithm> <chrono> <functional> <string> <thread> <vector>)
  else()
    target_precompile_headers(${program} REUSE_FROM tests_engine_slow)
  endif()
endfunction()

# The engine's: three programs, what takes longest first. Only one of them can add names to the hosts
# file; one computes, the other two share their fixtures.
layer_sources(sources engine)
set(fixtures ${sources})
list(FILTER fixtures EXCLUDE REGEX "_test[.]cpp$")
set(simulation "${PROJECT_SOURCE_DIR}/tests/engine/planner_simulation_slow_test.cpp")
list(REMOVE_ITEM sources ${fixtures} ${simulation})
set(slow ${sources})
list(FILTER slow INCLUDE REGEX "_slow_test[.]cpp$")
list(FILTER slow EXCLUDE REGEX "/host_[^/]*$")
list(REMOVE_ITEM sources ${slow})
add_library(engine_fixtures STATIC EXCLUDE_FROM_ALL ${fixtures})
target_link_libraries(engine_fixtures PRIVATE tarnlo_static test_support tarnlo_options)
add_test_program(tests_engine_slow SOURCES ${slow} LIBRARIES engine_fixtures tarnlo_static)
add_test_program(tests_engine_simulation SOURCES ${simulation} LIBRARIES tarnlo_static)
target_compile_options(tests_engine_simulation PRIVATE -O2)
add_test_program(tests_engine SOURCES ${sources} LIBRARIES engine_fixtures tarnlo_static)
share_headers(tests_engine_slow)
share_headers(tests_engine)

# A program file with a version resource and nothing else, for the engine's tests.
if(WIN32)
  add_library(version_sample SHARED EXCLUDE_FROM_ALL tests/engine/version_sample.rc)
  set_target_properties(version_sample PROPERTIES PREFIX "" LINKER_LANGUAGE CXX)
  target_link_options(version_sample PRIVATE -nostdlib LINKER:--entry=0)
  add_dependencies(tests_engine version_sample)
endif()

file(GLOB abi_tests CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/tests/abi/*_test.cpp")
list(FILTER abi_tests EXCLUDE REGEX "${other_system}")
foreach(source IN LISTS abi_tests)
  cmake_path(GET source STEM name)
  add_test_program(${name} SOURCES "${source}" LIBRARIES tarnlo)
endforeach()

# The manager's: two programs. A worker that is stopped gets a second; in the storms hundreds are, and
# would be slower if a test of the same program had started the log.
layer_sources(sources manager)
set(storms ${sources})
list(FILTER storms INCLUDE REGEX "storm_test[.]cpp$")
list(REMOVE_ITEM sources ${storms})
set(manager_fixtures ${sources})
list(FILTER manager_fixtures EXCLUDE REGEX "_test[.]cpp$")
add_test_program(tests_manager_storm SOURCES ${storms} ${manager_fixtures} LIBRARIES tarnlo_static)
add_test_program(tests_manager SOURCES ${sources} LIBRARIES tarnlo_static)
share_headers(tests_manager_storm)
share_headers(tests_manager)

foreach(layer unit_support hosts transfer api)
  layer_sources(sources ${layer})
  if(sources)
    add_test_program(tests_${layer} SOURCES ${sources} LIBRARIES tarnlo_static)
    share_headers(tests_${layer})
  endif()
endforeach()

# A test that is written is a test that runs.
file(GLOB_RECURSE written_tests CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/tests/*_test.cpp")
list(REMOVE_ITEM written_tests ${built_tests})
list(FILTER written_tests EXCLUDE REGEX "${other_system}")
if(written_tests)
  list(JOIN written_tests "\n  " lost)
  message(FATAL_ERROR "No test program builds:\n  ${lost}")
endif()

# What scripts/test is to run.
list(JOIN test_programs "\n" lines)
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/test_programs.txt" CONTENT "${lines}\n")
