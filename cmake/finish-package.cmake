# Run by CPack on the tree that it has installed below DESTDIR, before that becomes a package: adds and moves what the two
# kinds of package want each in its own way, and evens out what depends on when and by whom it was built.

set(share $ENV{DESTDIR}/usr/share)
set(package_data ${CMAKE_CURRENT_LIST_DIR}/../data/package)

function(add file directory name)
  file(INSTALL ${file} DESTINATION /usr/share/${directory} RENAME ${name} MESSAGE_NEVER)
endfunction()

if(CPACK_GENERATOR STREQUAL "DEB")
  add(${package_data}/copyright doc/nebulark-ctl copyright)
  add(${package_data}/changelog doc/nebulark-ctl changelog.Debian)
  add(${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md doc/nebulark-ctl changelog)
  add(${package_data}/lintian-overrides lintian/overrides nebulark-ctl)
  file(REMOVE_RECURSE ${share}/licenses) # the copyright file says it
  set(zsh_completions ${share}/zsh/vendor-completions)
else()
  set(zsh_completions ${share}/zsh/site-functions)
endif()

set(installed $ENV{DESTDIR}/usr/${CPACK_NEBULARK_ZSH_COMPLETIONS})
if(NOT installed STREQUAL zsh_completions)
  file(RENAME ${installed} ${zsh_completions})
endif()

file(GLOB texts ${share}/man/man*/* ${share}/doc/nebulark-ctl/changelog*)
execute_process(COMMAND gzip --best --no-name ${texts} COMMAND_ERROR_IS_FATAL ANY)

if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND date --date=${CPACK_NEBULARK_DATE} +%s
    OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(ENV{SOURCE_DATE_EPOCH} ${epoch})
endif()
# Directories are made with the umask of whoever builds; files are not.
execute_process(COMMAND find $ENV{DESTDIR} -type d -exec chmod 755 {} + COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND find $ENV{DESTDIR} -exec touch --date=@$ENV{SOURCE_DATE_EPOCH} {} + COMMAND_ERROR_IS_FATAL ANY)
