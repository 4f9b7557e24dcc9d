# Packages for Debian and for those who use RPM, by CPack. A package's version, its changelog, its date and who answers for
# it all come from data/package/changelog.

set(changelog ${PROJECT_SOURCE_DIR}/data/package/changelog)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${changelog})

# Reads Debian's changelog, whose latest entry comes first, and writes the same as RPM would have it. Answers version,
# release, contact and date of the latest entry.
function(read_changelog rpm_changelog)
  file(STRINGS ${changelog} lines)
  foreach(line IN LISTS lines)
    if(line MATCHES "^[a-z-]+ \\(([^-]+)-(.+)\\)")
      set(entry_version ${CMAKE_MATCH_1})
      set(entry_release ${CMAKE_MATCH_2})
      set(changes "")
    elseif(line MATCHES "^ -- (.+)  ((...), 0?([0-9]+) (...) (....) .+)$")
      string(APPEND text "* ${CMAKE_MATCH_3} ${CMAKE_MATCH_5} ${CMAKE_MATCH_4} ${CMAKE_MATCH_6} ${CMAKE_MATCH_1} - "
        "${entry_version}-${entry_release}\n${changes}\n")
      if(NOT contact)
        set(version ${entry_version})
        set(release ${entry_release})
        set(contact ${CMAKE_MATCH_1})
        set(date ${CMAKE_MATCH_2})
      endif()
    elseif(line)
      string(REGEX REPLACE "^  \\* " "- " line "${line}")
      string(APPEND changes "${line}\n")
    endif()
  endforeach()
  file(WRITE ${rpm_changelog} "${text}")
  return(PROPAGATE version release contact date)
endfunction()

read_changelog(${PROJECT_BINARY_DIR}/rpm-changelog)
if(NOT version STREQUAL PROJECT_VERSION)
  message(WARNING "Packages would be those of ${version}, the latest in ${changelog}, not of ${PROJECT_VERSION}")
endif()

set(CPACK_GENERATOR DEB RPM)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${contact})
set(CPACK_PACKAGE_VENDOR Nebulark)
set(CPACK_PACKAGE_DESCRIPTION "\
Nebulark draws the thumbnails that file managers show for astronomical
images: FITS and XISF files, and the project files of a companion stacking
application. This tool administers it from a terminal. It shows and changes
the preferences by which Nebulark draws, for every user of the machine, and
it clears a user's thumbnail cache of what was drawn for such files, so that
file managers draw them anew.")
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

# Installed as a person would, with DESTDIR, so that the prefix is the real one.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_NEBULARK_DATE ${date})
set(CPACK_NEBULARK_ZSH_COMPLETIONS ${NEBULARK_ZSH_COMPLETIONS})
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/finish-package.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/repack-deb.cmake)

# The C library alone, with the C++ runtime linked in. What version of it the tool needs is stated, since the usual means
# know it only for the machine that builds; the tests hold it against the tool.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.35)")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS pkexec)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${release})
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
endif()

# RPM finds by itself what the tool needs of the C library.
set(CPACK_RPM_PACKAGE_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_RPM_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
set(CPACK_RPM_PACKAGE_RELEASE ${release})
set(CPACK_RPM_PACKAGE_LICENSE MIT)
set(CPACK_RPM_PACKAGE_GROUP Applications/System)
set(CPACK_RPM_CHANGELOG_FILE ${PROJECT_BINARY_DIR}/rpm-changelog)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_COMPRESSION_TYPE xz)
set(CPACK_RPM_USER_FILELIST "%license /usr/share/licenses/nebulark-ctl/LICENSE")
# Directories that belong to the distribution. Those of the shells and of polkit are listed, since nothing says that they
# come with another package.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /usr/share/licenses /usr/share/man /usr/share/man/man1 /usr/share/man/man5)
# What CPack stages is what is packed. Nothing is to tell where and when it was built.
set(CPACK_RPM_SPEC_MORE_DEFINE "\
Packager: ${contact}
Recommends: /usr/bin/pkexec
%define __spec_install_post %{nil}
%define _build_id_links none
%define _buildhost localhost
%define use_source_date_epoch_as_buildtime 1")

include(CPack)
