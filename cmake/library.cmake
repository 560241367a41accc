# The library: its objects are compiled once, for the DLL and for the tests' static library alike.
# Off Windows the system beneath it is the one in tests/native/, which serves the tests alone.
set(layers support hosts transfer engine manager api)
if(WIN32)
  list(APPEND layers support/os/win32)
  set(system_libraries ws2_32 winhttp version user32)
else()
  list(APPEND layers tests/native)
  find_package(CURL REQUIRED)
  find_package(Threads REQUIRED)
  set(system_libraries CURL::libcurl Threads::Threads)
endif()
set(sources)
foreach(layer IN LISTS layers)
  file(GLOB found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${layer}/*.cpp")
  list(APPEND sources ${found})
endforeach()

add_library(tarnlo_objects OBJECT ${sources})
target_link_libraries(tarnlo_objects PRIVATE tarnlo_options)
target_compile_definitions(tarnlo_objects PRIVATE TARNLO_BUILDING)

# The same objects for tests that reach inside.
add_library(tarnlo_static STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:tarnlo_objects>)
target_link_libraries(tarnlo_static PUBLIC ${system_libraries})
target_compile_definitions(tarnlo_static INTERFACE TARNLO_STATIC)
set_target_properties(tarnlo_static PROPERTIES LINKER_LANGUAGE CXX)
