# Run by CPack when a package is made. The size that CPack writes into a Debian package counts directories by what they take
# on the file system it was built on. This puts Debian's own measure in its place: every file in whole KiB, and one for each
# directory.

if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()

set(tree ${CPACK_TEMPORARY_DIRECTORY}-repacked)

function(dpkg_deb)
  execute_process(COMMAND dpkg-deb ${ARGN} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${tree})
dpkg_deb(--raw-extract ${CPACK_PACKAGE_FILES} ${tree})

set(size 0)
file(GLOB_RECURSE paths LIST_DIRECTORIES true ${tree}/usr/*)
foreach(path IN LISTS paths)
  set(bytes 1)
  if(NOT IS_DIRECTORY ${path})
    file(SIZE ${path} bytes)
  endif()
  math(EXPR size "${size} + (${bytes} + 1023) / 1024")
endforeach()

file(READ ${tree}/DEBIAN/control control)
string(REGEX REPLACE "Installed-Size: [0-9]+\n*" "Installed-Size: ${size}\n" control "${control}")
file(WRITE ${tree}/DEBIAN/control "${control}")

# Whatever the umask; dpkg-deb wants it so.
file(CHMOD ${tree} ${tree}/DEBIAN PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
file(CHMOD ${tree}/DEBIAN/control PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
dpkg_deb(--root-owner-group -Zxz --build ${tree} ${CPACK_PACKAGE_FILES})
