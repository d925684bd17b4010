# Where the tests' packages come from when they are built for the C++ library of macOS: Debian's are built for another one.
# Given to CMake as CMAKE_PROJECT_TOP_LEVEL_INCLUDES by scripts/test-libcxx and scripts/test-macos.

macro(zekara_provide method package)
  if("${package}" STREQUAL "GTest")
    # From Debian's sources (package googletest), with the project's own compiler.
    set(INSTALL_GTEST OFF)
    set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
    add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
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

# The target libcxx_tests: the unit tests of the trees, without those that link what Debian has for its own C library only. The file
# libcxx_tests.txt in the build directory lists the programs.
set(ZEKARA_LEFT_OUT PlistPeerTest)  # libplist, expat
# For macOS, the programs that scripts/test-macos passes; add a program once it compiles and passes there.
set(ZEKARA_MACOS_TESTS AlphanumericTest IntValueTest NSExceptionTest NSFileManagerTest NSPropertyListSerializationTest PlistTest
    PlistDateTest SipHashTest ZKAConfigTest ZKAIniDataTest)
function(zekara_collect_tests)
  add_custom_target(libcxx_tests)
  foreach(tree IN ITEMS PortableFoundation Zekara4MacLibrary Zekara4MacTool)
    get_property(targets DIRECTORY "${CMAKE_SOURCE_DIR}/tests/${tree}" PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
      if(APPLE AND NOT target IN_LIST ZEKARA_MACOS_TESTS)
        continue()
      endif()
      get_target_property(type ${target} TYPE)
      if(type STREQUAL "EXECUTABLE" AND NOT target IN_LIST ZEKARA_LEFT_OUT)
        add_dependencies(libcxx_tests ${target})
        string(APPEND programs "$<TARGET_FILE:${target}>\n")
      endif()
    endforeach()
  endforeach()
  file(GENERATE OUTPUT "${CMAKE_BINARY_DIR}/libcxx_tests.txt" CONTENT "${programs}")
endfunction()
cmake_language(DEFER DIRECTORY "${CMAKE_SOURCE_DIR}" CALL zekara_collect_tests)
