# What `cmake --install` puts where, and the Debian package made of it (`./run package`).
#
#   bin/dossync, bin/dossync-wizard               (the wizard's program, which `dossync wizard` runs)
#   share/man/man1/dossync.1                      } made at build time from dossync's own
#   share/bash-completion/completions/dossync     } --help (packaging/help-pages.sh)
#   share/zsh/vendor-completions/_dossync         }
#   share/applications/dossync-wizard.desktop, share/icons/hicolor/scalable/apps/dossync.svg
#   lib/systemd/user/dossync@.service, dossync@.timer   (a job every 15 minutes)
#   share/doc/dossync/                            README.md, docs/
include(GNUInstallDirs)

find_program(HELP2MAN help2man REQUIRED)
set(DOSSYNC_PAGES ${CMAKE_BINARY_DIR}/pages)
add_custom_command(
  OUTPUT ${DOSSYNC_PAGES}/dossync.1 ${DOSSYNC_PAGES}/dossync.bash ${DOSSYNC_PAGES}/_dossync
  COMMAND bash ${CMAKE_SOURCE_DIR}/packaging/help-pages.sh $<TARGET_FILE:dossync>
          ${PROJECT_VERSION} ${DOSSYNC_PAGES}
  DEPENDS dossync packaging/help-pages.sh packaging/help-pages.awk packaging/man/dossync.h2m
          packaging/shell/dossync.bash packaging/shell/_dossync
  WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
  COMMENT "Manual page and shell completions from dossync --help"
  VERBATIM)
add_custom_target(dossync_pages ALL
  DEPENDS ${DOSSYNC_PAGES}/dossync.1 ${DOSSYNC_PAGES}/dossync.bash ${DOSSYNC_PAGES}/_dossync)

install(TARGETS dossync dossync-wizard RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${DOSSYNC_PAGES}/dossync.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${DOSSYNC_PAGES}/dossync.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME dossync)
install(FILES ${DOSSYNC_PAGES}/_dossync DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES packaging/desktop/dossync-wizard.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES packaging/desktop/dossync.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
# The service names the program by its installed path, known only when installing (a --prefix,
# or the package's /usr under CPack's DESTDIR).
install(FILES packaging/systemd/dossync@.timer DESTINATION lib/systemd/user)
install(CODE "
  set(DOSSYNC_BINARY \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/dossync\")
  set(DOSSYNC_DOC_DIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}\")
  set(unit \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/lib/systemd/user/dossync@.service\")
  message(STATUS \"Installing: \${unit}\")
  configure_file(${CMAKE_SOURCE_DIR}/packaging/systemd/dossync@.service.in \${unit} @ONLY)")
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})  # README.md links docs/...

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME dossync)
set(CPACK_PACKAGE_CONTACT "dossync developers <dossync@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "keeps a practice's client records and its contacts in step")
# The long description; CPack puts the summary above it and indents its lines.
set(CPACK_PACKAGE_DESCRIPTION
    "dossync synchronises an accountant's practice database (companies, contacts and
categories, in SQLite or on PostgreSQL) with a folder of vCard files or an
address book on a CardDAV server, one way or both ways, with a report of each
run. Jobs in ~/.config/dossync/config.toml run on a systemd user timer.")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "khard, vdirsyncer")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)  # dossync_VERSION_amd64.deb
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)   # Depends: from the libraries the programs link
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_OUTPUT_FILE_PREFIX ${CMAKE_BINARY_DIR})
include(CPack)
