# Where an installation puts what. Everything stands below the prefix, which is /usr unless the caller says otherwise: the
# tool's preferences and the page that its usage text names are there whatever the prefix, and polkit looks nowhere else.

if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
  set_property(CACHE CMAKE_INSTALL_PREFIX PROPERTY VALUE /usr)
endif()

# Debian keeps the completions that come with packages apart from those of the machine's administrator.
if(EXISTS /etc/debian_version)
  set(zsh_completions share/zsh/vendor-completions)
else()
  set(zsh_completions share/zsh/site-functions)
endif()
set(NEBULARK_ZSH_COMPLETIONS ${zsh_completions} CACHE STRING "Where zsh looks for completions, below the prefix")

install(TARGETS nebulark-ctl DESTINATION bin)
install(FILES ${PROJECT_BINARY_DIR}/docs/nebulark-ctl.1 DESTINATION share/man/man1)
install(FILES ${PROJECT_BINARY_DIR}/docs/nebulark-preferences.5 DESTINATION share/man/man5)
install(FILES data/completions/nebulark-ctl DESTINATION share/bash-completion/completions)
install(FILES data/completions/nebulark-ctl.fish DESTINATION share/fish/vendor_completions.d)
install(FILES data/completions/_nebulark-ctl DESTINATION ${NEBULARK_ZSH_COMPLETIONS})
install(FILES LICENSE DESTINATION share/licenses/nebulark-ctl)

# The action names the tool by its full path. The prefix may change up to the last moment: cmake --install --prefix.
set(policy ${PROJECT_BINARY_DIR}/nebulark.ctl.policy)
install(CODE "set(CMAKE_INSTALL_FULL_BINDIR \${CMAKE_INSTALL_PREFIX}/bin)
configure_file(\"${PROJECT_SOURCE_DIR}/data/polkit/nebulark.ctl.policy.in\" \"${policy}\" @ONLY)")
install(FILES ${policy} DESTINATION share/polkit-1/actions)

# Empty: the tool makes the preferences file, with the first --set. But that one looks for a directory to write it in, and
# without one it fails, for root too.
install(DIRECTORY DESTINATION share/nebulark DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
