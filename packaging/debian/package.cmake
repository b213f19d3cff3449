# rovu-tools_VERSION_ARCHITECTURE.deb from the component `tools`, by CPack. packaging/make-deb calls it.
set(ROVU_PACKAGE_MAINTAINER "rovu developers <rovu@example.org>" CACHE STRING
  "Who answers for the Debian package: a name and an address")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME rovu)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${ROVU_PACKAGE_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "build, check and rehearse firmware updates for rovu")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"rovu updates the firmware of embedded Linux devices that boot from one of two
sets of UBI volumes. This package has what a workstation needs for updates:
.
rovu-pack builds and signs them, predicts what devices will do with them, and
rehearses them. rovu-sim simulates a device. Playbooks for Ansible, in
/usr/share/rovu/fleet, bring an update to many devices.")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME rovu-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The fleet's report is a Python script.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "python3:any")
# nginx answers the URLs of a rehearsal, openssl makes a certificate in place of those of ca-certificates; the rest is
# for the fleet.
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS
  "bubblewrap, busybox | busybox-static, nginx-light | nginx, openssl, ca-certificates, ansible-core, openssh-client, python3-jinja2")

configure_file(debian/changelog.in ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog @ONLY)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/layout.cmake)
set(CPACK_ROVU_DEBIAN_FILES ${CMAKE_CURRENT_LIST_DIR})
set(CPACK_ROVU_CHANGELOG ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog)
set(CPACK_ROVU_CHANGES ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
include(CPack)
