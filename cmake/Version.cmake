# The version text comes from git at every build. Outside git, branch, commit and date are "unknown". Who links
# satnavd_version_text may include the generated VersionText.h; no library of the service comes with it.
set(version_header ${CMAKE_BINARY_DIR}/gen/VersionText.h)
add_custom_target(satnavd_version
  COMMAND ${CMAKE_COMMAND} -D SOURCE_DIR=${CMAKE_SOURCE_DIR} -D OUTPUT=${version_header}
          -D PROJECT_VERSION=${PROJECT_VERSION} -D BUILD_TYPE=${CMAKE_BUILD_TYPE}
          -P ${CMAKE_SOURCE_DIR}/cmake/VersionText.cmake
  BYPRODUCTS ${version_header}
  COMMENT "Version text")
add_library(satnavd_version_text INTERFACE)
add_dependencies(satnavd_version_text satnavd_version)
target_include_directories(satnavd_version_text INTERFACE ${CMAKE_BINARY_DIR}/gen)
