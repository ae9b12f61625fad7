# Install rules and the Debian package (CPack's DEB generator).
#
# CPack rather than a debian/ folder: the package is made from the same CMake build as
# everything else, needs no debhelper, and `make package` works from a clean clone with
# the packages of scripts/install-deps.sh. Dependencies come from dpkg-shlibdeps.
include(GNUInstallDirs)

# Installing (and so packaging) takes the programs as they are built: `make package`
# builds the four it needs, and a test build is not rebuilt whole to package it.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(KN_PKG_NAME kestrane-logproc)
set(KN_PKG_DOC ${CMAKE_INSTALL_DATADIR}/doc/${KN_PKG_NAME})

install(TARGETS knlogproc SoundShuttle knmsg kncapture-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${CMAKE_SOURCE_DIR}/data/nvkn4.prx DESTINATION ${CMAKE_INSTALL_DATADIR}/${KN_PKG_NAME})
# Debian 12 keeps units under /lib; sysusers and tmpfiles entries under /usr/lib.
install(FILES ${CMAKE_CURRENT_LIST_DIR}/knlogproc.service DESTINATION /lib/systemd/system)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/kestrane-logproc.sysusers
        DESTINATION /usr/lib/sysusers.d RENAME ${KN_PKG_NAME}.conf)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/kestrane-logproc.tmpfiles
        DESTINATION /usr/lib/tmpfiles.d RENAME ${KN_PKG_NAME}.conf)
install(FILES ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_CURRENT_LIST_DIR}/copyright DESTINATION ${KN_PKG_DOC})

# Man pages and the changelog, compressed as Debian wants them (gzip -9n: no name, no
# time stamp, so the same sources give the same package).
set(kn_gz_files)
foreach(page knlogproc.8 SoundShuttle.1 knmsg.1 kncapture-sim.1)
  string(REGEX REPLACE ".*\\.([0-9])$" "\\1" section ${page})
  set(gz ${CMAKE_BINARY_DIR}/packaging/${page}.gz)
  add_custom_command(OUTPUT ${gz}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/packaging
    COMMAND gzip -9n -c ${CMAKE_CURRENT_LIST_DIR}/man/${page} > ${gz}
    DEPENDS ${CMAKE_CURRENT_LIST_DIR}/man/${page} VERBATIM)
  install(FILES ${gz} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  list(APPEND kn_gz_files ${gz})
endforeach()
set(changelog_gz ${CMAKE_BINARY_DIR}/packaging/changelog.Debian.gz)
add_custom_command(OUTPUT ${changelog_gz}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/packaging
  COMMAND gzip -9n -c ${CMAKE_CURRENT_LIST_DIR}/changelog > ${changelog_gz}
  DEPENDS ${CMAKE_CURRENT_LIST_DIR}/changelog VERBATIM)
install(FILES ${changelog_gz} DESTINATION ${KN_PKG_DOC})
list(APPEND kn_gz_files ${changelog_gz})
add_custom_target(kn_package_docs ALL DEPENDS ${kn_gz_files})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${KN_PKG_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Kestrane log processor maintainers <logproc@kestrane.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Kestrane log processor: standardise, archive and delete recorded audio")
set(CPACK_PACKAGE_DESCRIPTION
    "The log processor of the Kestrane broadcast audio logger. It walks the day\n\
and hour folders of every logger on the recording server and, for each\n\
recorded hour, converts its audio to the logger's standard or archive format,\n\
or deletes it, as its age demands. It runs as a systemd service with a\n\
watchdog, writes its status as JSON and in the Prometheus text format, and\n\
can print its plan without changing anything.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# systemd-sysusers and systemd-tmpfiles run in the maintainer scripts.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "systemd")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/debian-scripts/postinst
    ${CMAKE_CURRENT_LIST_DIR}/debian-scripts/prerm
    ${CMAKE_CURRENT_LIST_DIR}/debian-scripts/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
