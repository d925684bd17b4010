# Packages for Debian, which `cpack` makes in the build directory: the suite, and what other programs are built with. The archive
# for macOS is made of the builds for both processors by scripts/build-macos.
set(ZEKARA_PACKAGE_CONTACT "Zekara maintainers <maintainers@zekara.invalid>" CACHE STRING
    "Who answers for the Debian packages: a name and an address")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zekara4mac)
set(CPACK_PACKAGE_VENDOR "Zekara")
set(CPACK_PACKAGE_CONTACT "${ZEKARA_PACKAGE_CONTACT}")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# No prefix moves the tool, so the packages are staged with DESTDIR.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)

# Two packages: zekara4mac has the components Tool and FrontEnd, zekara4mac-dev has the component Library.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Tool FrontEnd Library)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENT_TOOL_GROUP suite)
set(CPACK_COMPONENT_FRONTEND_GROUP suite)
set(CPACK_COMPONENT_LIBRARY_GROUP development)

# The packager's umask, account, folder and date leave no trace.
set(CPACK_PROJECT_CONFIG_FILE "${CMAKE_CURRENT_LIST_DIR}/SourceDate.cmake")
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/FinishDebianStage.cmake")
set(CPACK_POST_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/FinishDebianPackages.cmake")
set(CPACK_ZEKARA_SOURCE_DIRECTORY "${PROJECT_SOURCE_DIR}")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_SUITE_PACKAGE_NAME zekara4mac)
set(CPACK_DEBIAN_SUITE_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_SUITE_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_SUITE_DESCRIPTION "privileged helper tool of the Zekara suite
Zekara4MacTool finishes the installation of the Zekara anti-virus suite and
changes its configuration file on behalf of unprivileged front ends.
zkaconfig reads and changes the configuration from a shell.

The tool is set-user-ID root: every account that can start it can change
every setting of the suite.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME zekara4mac-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "zekara4mac, cmake, pkg-config")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "shared library of the Zekara suite (development files)
Headers and static libraries for programs of the Zekara anti-virus suite:
reading and writing its configuration file, property lists, the command
pipe of the privileged tool, and signals to daemons and front ends.")

file(READ "${PROJECT_SOURCE_DIR}/packaging/tool-functions.sh" ZEKARA_TOOL_FUNCTIONS)
foreach(script IN ITEMS preinst postinst postrm)
  configure_file("${PROJECT_SOURCE_DIR}/packaging/debian/${script}.in" "${PROJECT_BINARY_DIR}/debian/${script}"
                 @ONLY FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                        WORLD_READ WORLD_EXECUTE)
  list(APPEND CPACK_DEBIAN_SUITE_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/debian/${script}")
endforeach()
include(CPack)
