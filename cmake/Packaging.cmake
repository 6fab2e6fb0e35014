# `cpack -G DEB` in a build folder configured with -DCMAKE_INSTALL_PREFIX=/usr makes a Debian
# package of everything `cmake --install` places.
set(CPACK_PACKAGE_NAME "corvina")
set(CPACK_PACKAGE_VENDOR "Brindle Labs")
set(CPACK_PACKAGE_CONTACT "Brindle Labs <support@brindle-labs.net>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Desktop monitor of network connections")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
    "Corvina runs lsof at a fixed interval and shows every internet socket in a sortable, "
    "filterable table, marking new, state-changed and closed connections. Changes can go to "
    "desktop notifications, the system log and daily CSV files; searches can be saved. An "
    "optional privileged helper lets an ordinary user see every process's sockets.")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://brindle-labs.net/")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_SOURCE_IGNORE_FILES "/build.*/" "/\\\\.git/")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION "net")
set(CPACK_DEBIAN_PACKAGE_PRIORITY "optional")
# Shared-library dependencies come from dpkg-shlibdeps; lsof is run, not linked, and the helper
# is started through pkexec and systemd.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libqt6core6, libqt6gui6, libqt6widgets6, libqt6dbus6, libsqlite3-0, libsystemd0, lsof, qt6-qpa-plugins")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "policykit-1 | pkexec, systemd, libqt6svg6")

# The headless service (corvina-watch) reaches other machines through ssh and feeds
# node_exporter's textfile collector.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "openssh-client, prometheus-node-exporter")

set(CPACK_GENERATOR "DEB")
include(CPack)
