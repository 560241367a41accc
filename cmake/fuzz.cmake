# One fuzz target per file tests/fuzz/NAME_fuzz.cpp, each with its seeds in tests/fuzz/corpus/NAME. The
# other files of the folder are what targets share. The library is compiled with the counters that the
# fuzzer reads, which the preset's flags ask for.
file(GLOB fuzz_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/tests/fuzz/*_fuzz.cpp")

add_library(fuzz_support INTERFACE)
target_link_libraries(fuzz_support INTERFACE tarnlo_static tarnlo_options)
target_link_options(fuzz_support INTERFACE -fsanitize=fuzzer)

set(fuzz_names)
foreach(source IN LISTS fuzz_sources)
  cmake_path(GET source STEM target)
  add_executable(${target} EXCLUDE_FROM_ALL ${source})
  target_link_libraries(${target} PRIVATE fuzz_support)
  string(REGEX REPLACE "_fuzz$" "" name ${target})
  list(APPEND fuzz_names ${name})
endforeach()
add_custom_target(fuzz_targets)
list(TRANSFORM fuzz_names APPEND _fuzz OUTPUT_VARIABLE fuzz_programs)
add_dependencies(fuzz_targets ${fuzz_programs})

# Takes the place of the seam's network and of the fault points: what is defined in the program
# itself is not taken from the library.
target_sources(worker_answer_fuzz PRIVATE
  "${PROJECT_SOURCE_DIR}/tests/fuzz/scripted_net.cpp"
  "${PROJECT_SOURCE_DIR}/tests/fuzz/marked_file.cpp")
target_compile_definitions(worker_answer_fuzz PRIVATE TARNLO_FAULTS)

# What scripts/fuzz is to run.
list(JOIN fuzz_names "\n" lines)
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/fuzz_targets.txt" CONTENT "${lines}\n")
