# What an installation puts where, below the prefix. The default is /usr: only there does the tool find its preferences,
# polkit the action, and a reader the page that the usage text names.

if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
  set_property(CACHE CMAKE_INSTALL_PREFIX PROPERTY VALUE /usr)
endif()
include(GNUInstallDirs)

set(data ${CMAKE_INSTALL_DATADIR})
set(NEBULARK_BASH_COMPLETIONS ${data}/bash-completion/completions CACHE STRING "Where bash looks for completions")
set(NEBULARK_ZSH_COMPLETIONS ${data}/zsh/site-functions CACHE STRING "Where zsh looks for completions")

install(TARGETS nebulark-ctl)
install(FILES ${PROJECT_BINARY_DIR}/docs/nebulark-ctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_BINARY_DIR}/docs/nebulark-preferences.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES data/completions/nebulark-ctl DESTINATION ${NEBULARK_BASH_COMPLETIONS})
install(FILES data/completions/nebulark-ctl.fish DESTINATION ${data}/fish/vendor_completions.d)
install(FILES data/completions/_nebulark-ctl DESTINATION ${NEBULARK_ZSH_COMPLETIONS})

# The action names the tool's full path, and cmake --install --prefix may still change it.
set(policy ${PROJECT_BINARY_DIR}/nebulark.ctl.policy)
install(CODE "set(CMAKE_INSTALL_FULL_BINDIR ${CMAKE_INSTALL_BINDIR})
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_FULL_BINDIR BASE_DIRECTORY \${CMAKE_INSTALL_PREFIX})
configure_file(\"${PROJECT_SOURCE_DIR}/data/polkit/nebulark.ctl.policy.in\" \"${policy}\" @ONLY)")
install(FILES ${policy} DESTINATION ${data}/polkit-1/actions)

# Empty: the first --set makes the preferences file. Without the directory it fails, even for root.
install(DIRECTORY DESTINATION ${data}/nebulark)
