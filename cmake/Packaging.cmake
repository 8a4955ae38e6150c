# The Debian package of korva-gateway, built by `cpack -G DEB` in a build folder:
#   /usr/bin/korva-gateway, /usr/lib/korva-gateway/libkorva_protocol.so,
#   /etc/korva-gateway/ (the service's configuration and profiles, conffiles),
#   /usr/share/korva-gateway/examples/, the systemd unit and the man page.
# The targets' own install() rules (next to them) use the layout variables set here.

set(KORVA_INSTALL_BINDIR bin)
set(KORVA_INSTALL_PLUGINDIR lib/korva-gateway)
set(KORVA_CONFIG_DIR /etc/korva-gateway)
# The installed binary finds the plug-in through this path relative to its own folder.
file(RELATIVE_PATH KORVA_PLUGIN_DIR_FROM_BIN /${KORVA_INSTALL_BINDIR} /${KORVA_INSTALL_PLUGINDIR})

set(KORVA_PACKAGING_DIR ${CMAKE_CURRENT_LIST_DIR}/../packaging)
set(KORVA_EXAMPLES_DIR ${CMAKE_CURRENT_LIST_DIR}/../examples)

install(FILES ${KORVA_EXAMPLES_DIR}/gateway.json DESTINATION share/korva-gateway/examples)
install(DIRECTORY ${KORVA_EXAMPLES_DIR}/profiles DESTINATION share/korva-gateway/examples)
# The service's configuration: loopback only, TLS off, profiles beside it.
install(FILES ${KORVA_PACKAGING_DIR}/gateway.json DESTINATION ${KORVA_CONFIG_DIR})
install(DIRECTORY ${KORVA_EXAMPLES_DIR}/profiles DESTINATION ${KORVA_CONFIG_DIR})
install(FILES ${KORVA_PACKAGING_DIR}/korva-gateway.service DESTINATION lib/systemd/system)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/../README.md DESTINATION share/doc/korva-gateway)

# The man page, compressed as Debian installs them (-n: no name or time stamp inside).
set(KORVA_MAN_PAGE ${PROJECT_BINARY_DIR}/korva-gateway.1.gz)
add_custom_command(OUTPUT ${KORVA_MAN_PAGE}
  COMMAND gzip -9 -n -c ${KORVA_PACKAGING_DIR}/korva-gateway.1 > ${KORVA_MAN_PAGE}
  DEPENDS ${KORVA_PACKAGING_DIR}/korva-gateway.1
  VERBATIM)
add_custom_target(korva_man_page ALL DEPENDS ${KORVA_MAN_PAGE})
install(FILES ${KORVA_MAN_PAGE} DESTINATION share/man/man1)

# Every file under /etc is a conffile: an upgrade keeps the administrator's changes.
file(GLOB KORVA_PACKAGED_PROFILES RELATIVE ${KORVA_EXAMPLES_DIR} CONFIGURE_DEPENDS
     ${KORVA_EXAMPLES_DIR}/profiles/*.json)
set(KORVA_CONFFILES "${KORVA_CONFIG_DIR}/gateway.json\n")
foreach(profile ${KORVA_PACKAGED_PROFILES})
  string(APPEND KORVA_CONFFILES "${KORVA_CONFIG_DIR}/${profile}\n")
endforeach()
file(WRITE ${PROJECT_BINARY_DIR}/packaging/conffiles "${KORVA_CONFFILES}")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME korva-gateway)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "korva-gateway maintainers <korva-gateway@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "KORVA protocol plug-in served over HTTP with simulated cameras")
set(CPACK_PACKAGE_DESCRIPTION
    "korva-gateway loads the KORVA protocol plug-in and serves it with digest authentication in front of simulated cameras; an admin API attaches and detaches devices and injects alarms.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)  # korva-gateway_<version>_amd64.deb
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_BINARY_DIR}/packaging/conffiles
    ${KORVA_PACKAGING_DIR}/postinst ${KORVA_PACKAGING_DIR}/prerm ${KORVA_PACKAGING_DIR}/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_SOURCE_GENERATOR "")
include(CPack)
