# The Debian package, made by CPack from an installed tree of the preset "package".
set(CPACK_PACKAGE_VENDOR "Quorvane project")
set(CPACK_PACKAGE_CONTACT "Quorvane project <maintainers@quorvane.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "command-line client of the Quorvane service")
set(CPACK_STRIP_FILES ON)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/install/cpack-epoch.cmake)
file(WRITE ${CPACK_PROJECT_CONFIG_FILE} "set(ENV{SOURCE_DATE_EPOCH} \"${QUORVANE_EPOCH}\")\n")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
endif()
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://quorvane.example)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Loaded on the first TLS use, so that it does not appear among the linked libraries.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libssl3 (>= 3.0.0) | libssl3t64")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ca-certificates, xdg-utils")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Signs you in to a Quorvane service through the browser, shows your account
and projects, and moves a project's configuration between the service and a
local JSON file, guarded by a revision check: a push never overwrites what
somebody else has changed.
.
It is one small program without a settings file, a log or a background
process, and comes with a manual page, guides and completions for bash, zsh
and fish.")
include(CPack)
