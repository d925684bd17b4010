# Builds the unit tests for macOS on Linux, where the packages that they need are built for another system. scripts/test-macos gives
# it to CMake as CMAKE_PROJECT_TOP_LEVEL_INCLUDES.

# From Debian's sources (package googletest), with the project's own compiler. It runs a few times only.
function(zekara_add_googletest)
  set(INSTALL_GTEST OFF)
  set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
  set(CMAKE_CXX_FLAGS_RELEASE "-O1 -DNDEBUG")
  add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
endfunction()

macro(zekara_provide method package)
  if("${package}" STREQUAL "GTest")
    zekara_add_googletest()
    set(GTest_FOUND TRUE)
  elseif("${package}" STREQUAL "EXPAT")
    # Left out: what needs a library that is linked, see below.
    add_library(EXPAT::EXPAT INTERFACE IMPORTED)
    set(EXPAT_FOUND TRUE)
  elseif("${package}" STREQUAL "PkgConfig")
    function(pkg_check_modules name)
      add_library(PkgConfig::${name} INTERFACE IMPORTED GLOBAL)
      set(${name}_FOUND TRUE PARENT_SCOPE)
    endfunction()
    set(PkgConfig_FOUND TRUE)
  endif()
endmacro()
cmake_language(SET_DEPENDENCY_PROVIDER zekara_provide SUPPORTED_METHODS FIND_PACKAGE)

# The target macos_tests: for x86_64 all programs of the unit tests but those that link libraries which Debian has for Linux only; for
# arm64 the tests of the files in which the systems differ, because all of them would take CI too long. The file macos_tests.txt in the
# build directory lists the programs.
set(ZEKARA_LEFT_OUT PlistPeerTest)  # libplist, expat
set(ZEKARA_ARM64_TESTS DescriptorTest NSFileHandleTest NSLogTest NSPropertyListSerializationTest ProcessTest)
function(zekara_collect_tests)
  if(NOT ZEKARA_BUILD_TESTS)
    return()
  endif()
  add_custom_target(macos_tests)
  foreach(tree IN ITEMS PortableFoundation Zekara4MacLibrary Zekara4MacTool zkaconfig)
    get_property(targets DIRECTORY "${CMAKE_SOURCE_DIR}/tests/${tree}" PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
      if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64" AND NOT target IN_LIST ZEKARA_ARM64_TESTS)
        continue()
      endif()
      get_target_property(type ${target} TYPE)
      if(type STREQUAL "EXECUTABLE" AND NOT target IN_LIST ZEKARA_LEFT_OUT)
        add_dependencies(macos_tests ${target})
        string(APPEND programs "$<TARGET_FILE:${target}>\n")
      endif()
    endforeach()
  endforeach()
  file(GENERATE OUTPUT "${CMAKE_BINARY_DIR}/macos_tests.txt" CONTENT "${programs}")
endfunction()
cmake_language(DEFER DIRECTORY "${CMAKE_SOURCE_DIR}" CALL zekara_collect_tests)
