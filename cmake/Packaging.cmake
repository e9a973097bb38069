# A Debian package of what `cmake --install` puts under the prefix the build
# was configured with (tools/package-deb.sh configures one for /usr).
# Its dependencies are computed by dpkg-shlibdeps from the libraries the
# binary and the web-process extension link, not written by hand.
set(CPACK_PACKAGE_NAME orvane)
set(CPACK_PACKAGE_VENDOR "The Orvane developers")
set(CPACK_PACKAGE_CONTACT "The Orvane developers <${ORVANE_ISSUES_URL}>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "All your Gmail accounts, one window")
set(CPACK_PACKAGE_DESCRIPTION
  "Orvane puts several Gmail, Google Calendar and Outlook on the web accounts into one window, each in a private web session of its own, with unread counts, notifications and email links.")
set(CPACK_PACKAGE_HOMEPAGE_URL "${ORVANE_HOMEPAGE_URL}")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/COPYING")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION mail)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The private libraries of the build tree are linked statically; nothing
# outside the package provides them.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)
include(CPack)
