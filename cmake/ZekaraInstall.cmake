# What is installed, and where. Components: Tool (the privileged tool and its directories), Library (archives, headers, and
# what other projects find them by), FrontEnd (zkaconfig, manual pages, completions). The tool's own rule stands with it
# (Zekara4MacTool/CMakeLists.txt), because it comes first.
include(CMakePackageConfigHelpers)

# The library. Includes are written as in the tree, from include/Zekara4Mac on.
set(ZEKARA_INCLUDE_DIRECTORY "${CMAKE_INSTALL_INCLUDEDIR}/Zekara4Mac")
file(GLOB ZEKARA_FOUNDATION_HEADERS CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/PortableFoundation/NS*.h")
list(APPEND ZEKARA_FOUNDATION_HEADERS "${PROJECT_SOURCE_DIR}/PortableFoundation/Descriptor.h"
                                      "${PROJECT_SOURCE_DIR}/PortableFoundation/Plist.h")
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

set(ZEKARA_CMAKE_DIRECTORY "${CMAKE_INSTALL_LIBDIR}/cmake/Zekara4Mac")
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/Zekara4MacConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/Zekara4MacConfig.cmake" INSTALL_DESTINATION "${ZEKARA_CMAKE_DIRECTORY}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/Zekara4MacConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(EXPORT Zekara4Mac NAMESPACE Zekara4Mac:: FILE Zekara4MacTargets.cmake
        DESTINATION "${ZEKARA_CMAKE_DIRECTORY}" COMPONENT Library)
install(FILES "${PROJECT_BINARY_DIR}/Zekara4MacConfig.cmake" "${PROJECT_BINARY_DIR}/Zekara4MacConfigVersion.cmake"
        DESTINATION "${ZEKARA_CMAKE_DIRECTORY}" COMPONENT Library)

# The .pc file finds the prefix from where it lies, so that the tree may be moved.
file(RELATIVE_PATH ZEKARA_PC_PREFIX "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/Zekara4Mac.pc.in" "${PROJECT_BINARY_DIR}/Zekara4Mac.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/Zekara4Mac.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT Library)

# The front end, and what there is to read.
if(TARGET zkaconfig)
  install(TARGETS zkaconfig RUNTIME COMPONENT FrontEnd)
endif()
foreach(section IN ITEMS 1 5 8)
  file(GLOB pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/man/*.${section}")
  install(FILES ${pages} DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}" COMPONENT FrontEnd)
endforeach()
set(ZEKARA_ZSH_DIRECTORY "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND EXISTS /etc/debian_version)
  set(ZEKARA_ZSH_DIRECTORY "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")  # there alone its zsh looks, below /usr
endif()
if(TARGET zkaconfig)
  install(FILES "${PROJECT_SOURCE_DIR}/completions/zkaconfig.bash" RENAME zkaconfig
          DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT FrontEnd)
  install(FILES "${PROJECT_SOURCE_DIR}/completions/_zkaconfig" DESTINATION "${ZEKARA_ZSH_DIRECTORY}" COMPONENT FrontEnd)
endif()
