# The library: its objects are compiled once, for the DLL and for the tests' static library alike.
set(layers support support/os/win32 hosts transfer engine manager api)
set(sources)
foreach(layer IN LISTS layers)
  file(GLOB found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${layer}/*.cpp")
  list(APPEND sources ${found})
endforeach()
set(system_libraries ws2_32 winhttp version user32)

add_library(tarnlo_objects OBJECT ${sources})
target_link_libraries(tarnlo_objects PRIVATE tarnlo_options)
target_compile_definitions(tarnlo_objects PRIVATE TARNLO_BUILDING)

# The DLL. What it exports is marked in the sources; the linker adds nothing of its own.
enable_language(RC)
configure_file("${CMAKE_CURRENT_LIST_DIR}/version.rc.in" "${PROJECT_BINARY_DIR}/version.rc" @ONLY)
add_library(tarnlo SHARED $<TARGET_OBJECTS:tarnlo_objects> "${PROJECT_BINARY_DIR}/version.rc")
add_library(tarnlo::tarnlo ALIAS tarnlo)
target_link_libraries(tarnlo PRIVATE ${system_libraries} $<BUILD_INTERFACE:tarnlo_options>)
target_link_options(tarnlo PRIVATE LINKER:--exclude-all-symbols $<$<CONFIG:Release>:-s>)
target_include_directories(tarnlo INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
set_target_properties(tarnlo PROPERTIES PREFIX "" LINKER_LANGUAGE CXX)

# The same objects for tests that reach inside.
add_library(tarnlo_static STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:tarnlo_objects>)
target_link_libraries(tarnlo_static PUBLIC ${system_libraries})
target_compile_definitions(tarnlo_static INTERFACE TARNLO_STATIC)
set_target_properties(tarnlo_static PROPERTIES LINKER_LANGUAGE CXX)
