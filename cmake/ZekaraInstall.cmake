# What is installed, and where. Components: Tool (the privileged tool and its directories), Library (archives, headers, and
# what other projects find them by), FrontEnd (zkaconfig, manual pages, completions, documentation). The rule that installs the tool
# is in Zekara4MacTool/CMakeLists.txt and runs first.
include(CMakePackageConfigHelpers)

# Makes directories below the prefix with mode 0755 before files are installed there: CMake would apply the caller's umask.
function(zekara_install_directories component)
  list(TRANSFORM ARGN PREPEND "\"\${root}/" OUTPUT_VARIABLE directories)
  list(TRANSFORM directories APPEND "\"")
  list(JOIN directories " " directories)
  install(CODE "
    set(root \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    execute_process(COMMAND sh -c \"umask 022 && exec mkdir -p \\\"\\$@\\\"\" sh ${directories} COMMAND_ERROR_IS_FATAL ANY)"
    COMPONENT ${component})
endfunction()

# The library. Includes are written as in the tree, from include/Zekara4Mac on.
set(ZEKARA_INCLUDE_DIRECTORY "${CMAKE_INSTALL_INCLUDEDIR}/Zekara4Mac")
set(ZEKARA_CMAKE_DIRECTORY "${CMAKE_INSTALL_LIBDIR}/cmake/Zekara4Mac")
zekara_install_directories(Library "${ZEKARA_INCLUDE_DIRECTORY}/PortableFoundation" "${ZEKARA_INCLUDE_DIRECTORY}/Zekara4MacLibrary"
  "${ZEKARA_CMAKE_DIRECTORY}" "${CMAKE_INSTALL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_DOCDIR}/library/examples")
file(GLOB ZEKARA_FOUNDATION_HEADERS CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/PortableFoundation/NS*.h")
foreach(header IN ITEMS Alphanumeric Descriptor IntValue Plist Process SharedText)
  list(APPEND ZEKARA_FOUNDATION_HEADERS "${PROJECT_SOURCE_DIR}/PortableFoundation/${header}.h")
endforeach()
file(GLOB ZEKARA_LIBRARY_HEADERS CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/Zekara4MacLibrary/ZKA*.h")

set_target_properties(PortableFoundation PROPERTIES EXPORT_NAME Foundation)
set_target_properties(Zekara4MacLibrary PROPERTIES EXPORT_NAME Library)
add_library(Zekara4Mac::Foundation ALIAS PortableFoundation)
add_library(Zekara4Mac::Library ALIAS Zekara4MacLibrary)
target_compile_features(PortableFoundation PUBLIC cxx_std_20)
target_include_directories(PortableFoundation PUBLIC $<INSTALL_INTERFACE:${ZEKARA_INCLUDE_DIRECTORY}>)

install(TARGETS PortableFoundation Zekara4MacLibrary EXPORT Zekara4Mac ARCHIVE COMPONENT Library)
install(FILES ${ZEKARA_FOUNDATION_HEADERS} DESTINATION "${ZEKARA_INCLUDE_DIRECTORY}/PortableFoundation" COMPONENT Library)
install(FILES ${ZEKARA_LIBRARY_HEADERS} DESTINATION "${ZEKARA_INCLUDE_DIRECTORY}/Zekara4MacLibrary" COMPONENT Library)

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/Zekara4MacConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/Zekara4MacConfig.cmake" INSTALL_DESTINATION "${ZEKARA_CMAKE_DIRECTORY}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/Zekara4MacConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(EXPORT Zekara4Mac NAMESPACE Zekara4Mac:: FILE Zekara4MacTargets.cmake
        DESTINATION "${ZEKARA_CMAKE_DIRECTORY}" COMPONENT Library)
install(FILES "${PROJECT_BINARY_DIR}/Zekara4MacConfig.cmake" "${PROJECT_BINARY_DIR}/Zekara4MacConfigVersion.cmake"
        DESTINATION "${ZEKARA_CMAKE_DIRECTORY}" COMPONENT Library)

# The .pc file finds the prefix from its own place, so that the tree can be moved. It also has the name in lower case, as most
# packages have.
file(RELATIVE_PATH ZEKARA_PC_PREFIX "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/Zekara4Mac.pc.in" "${PROJECT_BINARY_DIR}/Zekara4Mac.pc" @ONLY)
foreach(name IN ITEMS Zekara4Mac.pc zekara4mac.pc)
  install(FILES "${PROJECT_BINARY_DIR}/Zekara4Mac.pc" RENAME "${name}"
          DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT Library)
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/docs/library.md" DESTINATION "${CMAKE_INSTALL_DOCDIR}/library" COMPONENT Library)
file(GLOB ZEKARA_EXAMPLES CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/examples/*.cpp")
install(FILES ${ZEKARA_EXAMPLES} DESTINATION "${CMAKE_INSTALL_DOCDIR}/library/examples" COMPONENT Library)

# The front end, and the documentation.
zekara_install_directories(FrontEnd "${CMAKE_INSTALL_BINDIR}" "${CMAKE_INSTALL_MANDIR}/man1" "${CMAKE_INSTALL_MANDIR}/man5"
  "${CMAKE_INSTALL_MANDIR}/man8" "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
  "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d" "${CMAKE_INSTALL_DOCDIR}/docs")
if(TARGET zkaconfig)
  install(TARGETS zkaconfig RUNTIME COMPONENT FrontEnd)
endif()
foreach(section IN ITEMS 1 5 8)
  file(GLOB pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/man/*.${section}")
  install(FILES ${pages} DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}" COMPONENT FrontEnd)
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/SECURITY.md" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
        DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT FrontEnd)
file(GLOB ZEKARA_DOCUMENTS CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/*.md")
install(FILES ${ZEKARA_DOCUMENTS} DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs" COMPONENT FrontEnd)
if(TARGET zkaconfig)
  install(FILES "${PROJECT_SOURCE_DIR}/completions/zkaconfig.bash" RENAME zkaconfig
          DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT FrontEnd)
  install(FILES "${PROJECT_SOURCE_DIR}/completions/zkaconfig.fish"
          DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d" COMPONENT FrontEnd)
  # The prefix is known only when the files are installed. Below /usr, the zsh of Debian reads a directory of its own.
  install(CODE "
    set(directory \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/zsh/site-functions\")
    if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\" AND EXISTS /etc/debian_version)
      set(directory \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions\")
    endif()
    execute_process(COMMAND sh -c \"umask 022 && exec mkdir -p \\\"\\$@\\\"\" sh \"\$ENV{DESTDIR}\${directory}\"
                    COMMAND_ERROR_IS_FATAL ANY)
    file(INSTALL FILES \"${PROJECT_SOURCE_DIR}/completions/_zkaconfig\" DESTINATION \"\${directory}\")
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${directory}/_zkaconfig\")"
    COMPONENT FrontEnd)
endif()

# Records the files of a real installation, so that packaging/uninstall can remove them without the build directory.
install(CODE "
  if(\"\$ENV{DESTDIR}\" STREQUAL \"\" AND CMAKE_INSTALL_MANIFEST_FILES)
    execute_process(COMMAND sh \"${PROJECT_SOURCE_DIR}/packaging/record-files\" \${CMAKE_INSTALL_MANIFEST_FILES}
                    COMMAND_ERROR_IS_FATAL ANY)
  endif()"
  ALL_COMPONENTS)
