# Compiler and linker options for every build except debug builds, such as the sanitized one.

include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

option(NEBULARK_STATIC_RUNTIME "Link the C++ runtime into the tool; its start takes half as long" ON)
option(NEBULARK_HARDENING "Build with the compiler's and linker's defences on" ON)

set(released $<NOT:$<CONFIG:Debug>>)

# Leaves out what nothing uses: most of the C++ runtime.
add_compile_options("$<${released}:-ffunction-sections;-fdata-sections>")
add_link_options("$<${released}:-Wl,--gc-sections;-Wl,--as-needed>")

# Both or neither: code that throws and code that catches must share a runtime.
check_linker_flag(CXX -static-libstdc++ links_static_runtime)
if(NEBULARK_STATIC_RUNTIME AND links_static_runtime)
  add_link_options("$<${released}:-static-libstdc++;-static-libgcc>")
endif()

if(NEBULARK_HARDENING)
  check_pie_supported()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  add_link_options("$<${released}:-Wl,-z,relro;-Wl,-z,now>")
  if(NOT CMAKE_CXX_FLAGS MATCHES _FORTIFY_SOURCE) # a packager's own level wins
    add_compile_options($<${released}:-D_FORTIFY_SOURCE=2>)
  endif()

  set(defences -fstack-protector-strong -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    list(APPEND defences -fcf-protection=full)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    list(APPEND defences -mbranch-protection=standard)
  endif()
  foreach(flag IN LISTS defences) # a compiler may lack one for some processors
    string(MAKE_C_IDENTIFIER "knows${flag}" knows)
    check_cxx_compiler_flag(${flag} ${knows})
    if(${knows})
      add_compile_options($<${released}:${flag}>)
    endif()
  endforeach()
endif()
