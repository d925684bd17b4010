# What every target of the project is built with.

option(ZEKARA_BUILD_TESTS "Build the tests" ${PROJECT_IS_TOP_LEVEL})
option(ZEKARA_BUILD_EXAMPLES "Build the example programs" ${PROJECT_IS_TOP_LEVEL})
option(ZEKARA_BUILD_ZKACONFIG "Build zkaconfig, the command-line front end" ON)
option(ZEKARA_BUILD_BENCHMARKS "Build the benchmarks; needs the peers' packages" OFF)
option(ZEKARA_BUILD_FUZZ "Build the fuzzers; needs clang" OFF)
option(ZEKARA_WERROR "Treat warnings as errors" OFF)
set(ZEKARA_TOOL_DIRECTORY "/Library/Application Support/Zekara" CACHE STRING
    "Where the tool is installed; only DESTDIR moves it")
set(ZEKARA_SANITIZE "" CACHE STRING "Sanitizers for tests, as -fsanitize takes them (never for an installed tool)")
option(ZEKARA_COVERAGE "Count executed lines (tests only)" OFF)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

add_library(zekara_options INTERFACE)
target_compile_features(zekara_options INTERFACE cxx_std_20)
target_include_directories(zekara_options INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
# -O2 makes a quarter less code than -O3: the tool runs most of it once, and pays for each page that it touches. A directory of targets
# that are run only a few times sets the variable to another level.
set(ZEKARA_OPTIMIZATION -O2)
define_property(TARGET PROPERTY ZEKARA_OPTIMIZATION INITIALIZE_FROM_VARIABLE ZEKARA_OPTIMIZATION)
target_compile_options(zekara_options INTERFACE $<$<CONFIG:Release>:$<TARGET_PROPERTY:ZEKARA_OPTIMIZATION>>)
# A program takes from the libraries what it calls, function by function.
if(NOT APPLE)
  target_compile_options(zekara_options INTERFACE -ffunction-sections -fdata-sections)
endif()
target_compile_options(zekara_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2)
if(ZEKARA_WERROR)
  target_compile_options(zekara_options INTERFACE -Werror)
endif()

# Hardening, for everything: what runs as root is built as it is tested.
function(zekara_add_compile_option flag)
  string(MAKE_C_IDENTIFIER "ZEKARA_HAS${flag}" variable)
  check_cxx_compiler_flag("-Werror ${flag}" ${variable})
  if(${variable})
    target_compile_options(zekara_options INTERFACE ${flag})
  endif()
endfunction()
zekara_add_compile_option(-fstack-protector-strong)
zekara_add_compile_option(-fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64" AND NOT APPLE)
  zekara_add_compile_option(-fcf-protection=full)
endif()
zekara_add_compile_option(-ftrivial-auto-var-init=zero)
# The C++ library's checks of its callers, whichever library it is; the compiler may have set its own.
target_compile_definitions(zekara_options INTERFACE _GLIBCXX_ASSERTIONS)
target_compile_options(zekara_options INTERFACE -U_LIBCPP_HARDENING_MODE
                                                -D_LIBCPP_HARDENING_MODE=_LIBCPP_HARDENING_MODE_FAST)

if(ZEKARA_SANITIZE)
  target_compile_options(zekara_options INTERFACE -fsanitize=${ZEKARA_SANITIZE} -fno-sanitize-recover=all
                                                  -fno-omit-frame-pointer)
  target_link_options(zekara_options INTERFACE -fsanitize=${ZEKARA_SANITIZE})
  # That check of clang's writes into a pipe to see whether an address can be read, and ends the program where tests have
  # write() fail or leave no descriptor free.
  zekara_add_compile_option(-fno-sanitize=vptr)
elseif(ZEKARA_COVERAGE)
  target_compile_options(zekara_options INTERFACE --coverage)
  target_link_options(zekara_options INTERFACE --coverage)
elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_options(zekara_options INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
endif()
