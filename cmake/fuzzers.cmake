# One fuzzer per file of tests/fuzz/, named after it.
file(GLOB fuzzers CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/tests/fuzz/*_fuzz.cpp")
foreach(source IN LISTS fuzzers)
  cmake_path(GET source STEM name)
  add_executable(${name} "${source}")
  target_link_libraries(${name} PRIVATE tarnlo_static tarnlo_options)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
endforeach()
