# Compiler and linker options for every build except debug builds, such as the sanitized one.

include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

option(NEBULARK_STATIC_RUNTIME "Link the C++ runtime into the tool; its start takes half as long" ON)
option(NEBULARK_HARDENING "Build with the compiler's and linker's defences on" ON)

set(released $<NOT:$<CONFIG:Debug>>)

function(add_flags_where_known)
  foreach(flag IN LISTS ARGN)
    string(MAKE_C_IDENTIFIER "knows${flag}" knows)
    check_cxx_compiler_flag(${flag} ${knows})
    if(${knows})
      add_compile_options($<${released}:${flag}>)
    endif()
  endforeach()
endfunction()

function(add_link_flags_where_known)
  foreach(flag IN LISTS ARGN)
    string(MAKE_C_IDENTIFIER "links${flag}" links)
    check_linker_flag(CXX ${flag} ${links})
    if(${links})
      add_link_options($<${released}:${flag}>)
    endif()
  endforeach()
endfunction()

# Leaves out what nothing uses: most of the C++ runtime.
add_flags_where_known(-ffunction-sections -fdata-sections)
add_link_flags_where_known(-Wl,--gc-sections -Wl,--as-needed)

# Both or neither: code that throws and code that catches must share a runtime.
if(NEBULARK_STATIC_RUNTIME)
  add_link_flags_where_known(-static-libstdc++)
  if(links_static_libstdc__)
    add_link_flags_where_known(-static-libgcc)
  endif()
endif()

if(NEBULARK_HARDENING)
  check_pie_supported()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  add_flags_where_known(-fstack-protector-strong -fstack-clash-protection)
  if(NOT CMAKE_CXX_FLAGS MATCHES _FORTIFY_SOURCE) # a packager's own level wins
    add_compile_options($<${released}:-D_FORTIFY_SOURCE=2>)
  endif()
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    add_flags_where_known(-fcf-protection=full)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    add_flags_where_known(-mbranch-protection=standard)
  endif()
  add_link_flags_where_known(-Wl,-z,relro -Wl,-z,now)
endif()
