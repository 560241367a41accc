# Hosts that use the public header and the import library, each of one file.
file(GLOB examples CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/examples/*.cpp")
foreach(example IN LISTS examples)
  cmake_path(GET example STEM name)
  add_executable(${name} "${example}")
  target_link_libraries(${name} PRIVATE tarnlo tarnlo_options)
  target_link_options(${name} PRIVATE $<$<CONFIG:Release>:-s>)
endforeach()
