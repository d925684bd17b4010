# Builds for macOS on Linux with zig's clang and its libc++: -DZEKARA_TARGET=aarch64-macos.13.3 or x86_64-macos.13.3.
# scripts/build-macos uses it; a Mac needs no toolchain file.

set(ZEKARA_TARGET "" CACHE STRING "What to build for, as zig names it")
set(ZEKARA_ZIG "" CACHE FILEPATH "The program zig; scripts/zig prints where it is")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZEKARA_TARGET ZEKARA_ZIG)

string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR "${ZEKARA_TARGET}")
if(ZEKARA_TARGET MATCHES "-macos\\.([0-9.]+)$")
  set(CMAKE_SYSTEM_NAME Darwin)
  set(ZEKARA_MACOS_MINIMUM ${CMAKE_MATCH_1})
  # The target's name says all that -isysroot, -arch and -mmacosx-version-min would.
  set(CMAKE_OSX_SYSROOT "" CACHE STRING "" FORCE)
  set(CMAKE_OSX_DEPLOYMENT_TARGET "" CACHE STRING "" FORCE)
else()
  message(FATAL_ERROR "ZEKARA_TARGET=\"${ZEKARA_TARGET}\" is no target of this toolchain file")
endif()

set(CMAKE_CXX_COMPILER "${ZEKARA_ZIG}" c++ -target ${ZEKARA_TARGET})
# Where nothing is said, this compiler adds debugging information. Its C++ library has some, too: -Wl,-S leaves out of each program what
# would name the compiler's cache. It is one of the compiler's flags, because CMake's first link must use the same library.
set(CMAKE_CXX_FLAGS_INIT "-g0 -Wl,-S")
# Debian's llvm reads and writes the archives of every target; some of its programs stand in its own directory only.
file(GLOB ZEKARA_LLVM_DIRECTORIES /usr/lib/llvm-*/bin)
foreach(tool IN ITEMS ar ranlib nm strip install-name-tool)
  string(TOUPPER "CMAKE_${tool}" variable)
  string(REPLACE "-" "_" variable "${variable}")
  find_program(${variable} NAMES llvm-${tool} HINTS ${ZEKARA_LLVM_DIRECTORIES} REQUIRED)
endforeach()

# Nothing of this machine's own libraries is found for another system; zekara's consumers add their prefixes.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
