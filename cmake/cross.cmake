# Builds for NEBULARK_PROCESSOR, a name in cmake/processors, with Debian's cross compiler.

file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/processors line REGEX "^${NEBULARK_PROCESSOR} ")
if(NOT line)
  message(FATAL_ERROR "cmake/processors has no processor named \"${NEBULARK_PROCESSOR}\"")
endif()
string(REGEX REPLACE " +" ";" line "${line}")
list(GET line 2 triplet)
list(GET line 3 emulator)
string(REGEX MATCH "^[^-]+" processor ${triplet})

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${processor})
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/${emulator})
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES NEBULARK_PROCESSOR)

# Uses this machine's programs, and the other processor's headers and libraries.
set(CMAKE_FIND_ROOT_PATH /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Tests run on this machine, which has the other processor's C library in another directory.
if(BUILD_TESTING)
  file(GLOB loader /usr/${triplet}/lib/ld*.so.*)
  set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--dynamic-linker=${loader} -Wl,-rpath,/usr/${triplet}/lib")
endif()
