# What a host needs, as a CMake package: find_package(tarnlo), tarnlo::tarnlo, <tarnlo/tarnlo.h>.
include(CMakePackageConfigHelpers)

install(TARGETS tarnlo EXPORT tarnlo
  RUNTIME DESTINATION bin
  ARCHIVE DESTINATION lib
  INCLUDES DESTINATION include)
# The header finds what it includes beside it.
install(FILES "${PROJECT_SOURCE_DIR}/api/tarnlo.h" DESTINATION include/tarnlo)
install(FILES "${PROJECT_SOURCE_DIR}/support/result.h" DESTINATION include/tarnlo/support)
install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" DESTINATION share/tarnlo)

install(EXPORT tarnlo NAMESPACE tarnlo:: FILE tarnlo-config.cmake DESTINATION lib/cmake/tarnlo)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/tarnlo-config-version.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/tarnlo-config-version.cmake" DESTINATION lib/cmake/tarnlo)
