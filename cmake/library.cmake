# The library: its objects are compiled once, for the DLL and for the tests' static library alike.
# Off Windows the system beneath it is the one in tests/native/, which serves the tests alone.
set(layers support hosts transfer engine manager api)
set(seam support/os)
if(WIN32)
  list(APPEND seam support/os/win32)
  set(system_libraries ws2_32 winhttp version user32)
else()
  list(APPEND seam tests/native)
  find_package(CURL REQUIRED)
  find_package(Threads REQUIRED)
  set(system_libraries CURL::libcurl Threads::Threads)
endif()

# add_objects(NAME FOLDER...): an object library of all sources of the folders.
function(add_objects name)
  set(sources)
  foreach(folder IN LISTS ARGN)
    file(GLOB found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${folder}/*.cpp")
    list(APPEND sources ${found})
  endforeach()
  add_library(${name} OBJECT ${sources})
  target_link_libraries(${name} PRIVATE tarnlo_options)
  target_compile_definitions(${name} PRIVATE TARNLO_BUILDING)
endfunction()

add_objects(tarnlo_objects ${layers})
add_objects(tarnlo_seam ${seam})

# The same objects for tests that reach inside; of the seam a build whose calls a test can make fail.
add_objects(tarnlo_faulty_seam ${seam} tests/faults)
target_compile_definitions(tarnlo_faulty_seam PRIVATE TARNLO_FAULTS)
set_target_properties(tarnlo_faulty_seam PROPERTIES EXCLUDE_FROM_ALL ON)
add_library(tarnlo_static STATIC EXCLUDE_FROM_ALL
  $<TARGET_OBJECTS:tarnlo_objects> $<TARGET_OBJECTS:tarnlo_faulty_seam>)
target_link_libraries(tarnlo_static PUBLIC ${system_libraries})
target_compile_definitions(tarnlo_static INTERFACE TARNLO_STATIC)
set_target_properties(tarnlo_static PROPERTIES LINKER_LANGUAGE CXX)
