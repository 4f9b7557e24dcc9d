# GoogleTest: as it is installed or, for tests that are to run on another kind of machine, built from the sources that
# Debian installs beside it.

if(CMAKE_CROSSCOMPILING)
  set(BUILD_GMOCK OFF)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
else()
  find_package(GTest REQUIRED)
endif()
