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
