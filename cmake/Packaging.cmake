# What `cmake --install` puts where, and the Debian package CPack makes of it:
#   cmake --build build --target package      (or: cd build && cpack -G DEB)
# gives build/trovix_VERSION_ARCH.deb. The programs go into one folder, because each
# program looks for its helpers trovix-extract and trovix-render beside itself (not on PATH, not
# in the build tree).
include(GNUInstallDirs)

foreach(program trovix trovix-cli trovix-extract trovix-render trovix-plugin-host)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

if(TARGET trovix-cli-docs)
  install(FILES ${CMAKE_BINARY_DIR}/trovix-cli.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${CMAKE_BINARY_DIR}/completions/trovix-cli.bash
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME trovix-cli)
  install(FILES ${CMAKE_BINARY_DIR}/completions/_trovix-cli DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
  install(FILES ${CMAKE_BINARY_DIR}/completions/trovix-cli.fish
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()

if(TARGET trovix-cli)
  # The user unit that keeps the index live runs the installed program, so its path is written
  # when installing: the package installs under /usr whatever prefix the build was configured
  # with. User units go to the prefix's lib/systemd/user (not the multiarch library folder).
  install(CODE "
    set(TROVIX_CLI \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/trovix-cli\")
    configure_file(\"${CMAKE_SOURCE_DIR}/data/systemd/trovix-index.service\"
                   \"${CMAKE_BINARY_DIR}/systemd/trovix-index.service\" @ONLY)")
  install(FILES ${CMAKE_BINARY_DIR}/systemd/trovix-index.service DESTINATION lib/systemd/user)
endif()

if(TARGET trovix)
  install(FILES ${CMAKE_SOURCE_DIR}/data/desktop/trovix.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${CMAKE_SOURCE_DIR}/data/desktop/trovix.svg
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
endif()

# The Debian package. Its dependencies are computed from the programs' own libraries
# (dpkg-shlibdeps, from dpkg-dev), so they follow whatever the build linked.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME trovix)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Trovix maintainers <maintainers@trovix.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "find files by rules on their properties")
set(CPACK_PACKAGE_DESCRIPTION
    "Trovix finds files by a list of rules on name, size, dates, kind, contents and metadata,
answered by an index, a volume's file table or a folder walk; a desktop and a console program.")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# What no library link shows: the desktop program draws its own icon through Qt's SVG plugin.
if(TARGET trovix)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS libqt6svg6)
endif()
# A package carries no debugging information; the build folder keeps it.
set(CPACK_STRIP_FILES ON)
# The package is installed under /usr whatever prefix the build folder was configured with.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
