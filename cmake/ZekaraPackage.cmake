# Packages, which `cpack` makes in the build directory: a .deb on Linux. The one for macOS is made of both processors' builds by
# scripts/build-macos.
set(CPACK_PACKAGE_NAME zekara4mac)
set(CPACK_PACKAGE_VENDOR "Zekara")
set(CPACK_PACKAGE_CONTACT "Zekara <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Privileged helper tool and shared library of the Zekara suite")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The tool's place has no prefix: the package is staged with DESTDIR.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# Whoever makes the package need not be root: owners are written as root's, and this gives the tool its mode.
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/StagedToolMode.cmake")
set(CPACK_ZEKARA_TOOL "${ZEKARA_TOOL_DIRECTORY}/Zekara4MacTool")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
file(READ "${PROJECT_SOURCE_DIR}/packaging/tool-functions.sh" ZEKARA_TOOL_FUNCTIONS)
foreach(script IN ITEMS postinst postrm)
  configure_file("${PROJECT_SOURCE_DIR}/packaging/debian/${script}.in" "${PROJECT_BINARY_DIR}/debian/${script}"
                 @ONLY FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                        WORLD_READ WORLD_EXECUTE)
  list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/debian/${script}")
endforeach()
include(CPack)
