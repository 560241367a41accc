# The DLL. What it exports is marked in the sources; the linker adds nothing of its own.
enable_language(RC)
configure_file("${CMAKE_CURRENT_LIST_DIR}/version.rc.in" "${PROJECT_BINARY_DIR}/version.rc" @ONLY)
add_library(tarnlo SHARED
  $<TARGET_OBJECTS:tarnlo_objects> $<TARGET_OBJECTS:tarnlo_seam> "${PROJECT_BINARY_DIR}/version.rc")
add_library(tarnlo::tarnlo ALIAS tarnlo)
target_link_libraries(tarnlo PRIVATE ${system_libraries} $<BUILD_INTERFACE:tarnlo_options>)
target_link_options(tarnlo PRIVATE LINKER:--exclude-all-symbols $<$<CONFIG:Release>:-s>)
target_include_directories(tarnlo INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
set_target_properties(tarnlo PROPERTIES PREFIX "" LINKER_LANGUAGE CXX)
