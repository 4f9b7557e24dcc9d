# What the tool people run is built with, beyond the compiler's own settings. Debug builds, sanitized ones among them, are
# left alone.

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

# Sections that nothing refers to are left out, most of the C++ runtime among them.
add_flags_where_known(-ffunction-sections -fdata-sections)
add_link_flags_where_known(-Wl,--gc-sections -Wl,--as-needed)

# Both or neither: what throws and what catches must be of one runtime.
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
  if(NOT CMAKE_CXX_FLAGS MATCHES _FORTIFY_SOURCE) # a packager's own level stands
    add_compile_options($<${released}:-D_FORTIFY_SOURCE=2>)
  endif()
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    add_flags_where_known(-fcf-protection=full)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    add_flags_where_known(-mbranch-protection=standard)
  endif()
  add_link_flags_where_known(-Wl,-z,relro -Wl,-z,now)
endif()
