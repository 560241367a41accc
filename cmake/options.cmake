# How the project's own sources are compiled; nothing of it reaches those who use the library.
add_library(tarnlo_options INTERFACE)
target_include_directories(tarnlo_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(tarnlo_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(TARNLO_TRAP_UNDEFINED)
  # Traps need no runtime library, which this compiler does not have for Windows.
  target_compile_options(tarnlo_options INTERFACE
    -fsanitize=undefined -fsanitize-undefined-trap-on-error)
endif()
if(TARNLO_COVERAGE)
  target_compile_options(tarnlo_options INTERFACE --coverage)
  target_link_options(tarnlo_options INTERFACE --coverage)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(tarnlo_options INTERFACE -Wthread-safety)
endif()
if(WIN32)
  # Programs and the DLL import nothing but what Windows has.
  target_link_options(tarnlo_options INTERFACE -static)
endif()
