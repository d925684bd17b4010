# darwin_program(PROCESSOR NAME MACHO): makes ${CMAKE_CURRENT_BINARY_DIR}/PROCESSOR/NAME, a program for this machine that runs the
# part of the Mach-O file for that processor: x86_64 natively, arm64 under qemu.
set(loader "${CMAKE_CURRENT_LIST_DIR}")
set(loader_options -std=gnu2x -O2 -g -Wall -Wextra -Wshadow -Werror -fno-stack-protector)
set(loader_sources main image fixups unwind standins files signals processes text threads sockets)
list(TRANSFORM loader_sources REPLACE "(.+)" "${loader}/\\1.c")
file(GLOB loader_headers CONFIGURE_DEPENDS "${loader}/*.h")

add_library(loader_x86_64 OBJECT ${loader_sources} "${loader}/start-x86_64.S")
target_compile_options(loader_x86_64 PRIVATE ${loader_options} -fPIE)

# CMake has one compiler for a language, and the loader for arm64 needs another.
find_program(ZEKARA_ARM64_COMPILER aarch64-linux-gnu-gcc REQUIRED)
file(MAKE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/loader-arm64")
set(loader_arm64_objects)
foreach(source IN LISTS loader_sources ITEMS "${loader}/start-aarch64.S")
  cmake_path(GET source STEM stem)
  set(object "${CMAKE_CURRENT_BINARY_DIR}/loader-arm64/${stem}.o")
  add_custom_command(OUTPUT "${object}"
    COMMAND "${ZEKARA_ARM64_COMPILER}" ${loader_options} -c "${source}" -o "${object}"
    DEPENDS "${source}" ${loader_headers})
  list(APPEND loader_arm64_objects "${object}")
endforeach()

# Writes the assembler source that embeds the file, and sets `result` to its path.
function(darwin_embed result name file)
  set(embedded "${file}")
  configure_file("${loader}/embed.S.in" "${CMAKE_CURRENT_BINARY_DIR}/embed/${name}.S" @ONLY)
  set_source_files_properties("${CMAKE_CURRENT_BINARY_DIR}/embed/${name}.S" PROPERTIES OBJECT_DEPENDS "${file}")
  set(${result} "${CMAKE_CURRENT_BINARY_DIR}/embed/${name}.S" PARENT_SCOPE)
endfunction()

function(darwin_program processor name macho)
  set(target ${processor}-${name})
  darwin_embed(program ${target} "${macho}")
  if(processor STREQUAL "x86_64")
    add_executable(${target} "${program}")
    target_link_libraries(${target} PRIVATE loader_x86_64 m)
    target_link_options(${target} PRIVATE -Wl,--wrap=_Unwind_Find_FDE)
  else()
    set(inner "${CMAKE_CURRENT_BINARY_DIR}/loader-arm64/${name}")
    add_custom_command(OUTPUT "${inner}"
      COMMAND "${ZEKARA_ARM64_COMPILER}" -static -Wl,--wrap=_Unwind_Find_FDE "${program}" ${loader_arm64_objects} -lm -o "${inner}"
      DEPENDS "${program}" "${macho}" ${loader_arm64_objects})
    darwin_embed(launched ${target}-launched "${inner}")
    add_executable(${target} "${loader}/launch.c" "${launched}")
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:C>:${loader_options}>)
    target_compile_definitions(${target} PRIVATE "QEMU=\"${ZEKARA_QEMU}\"")
  endif()
  target_link_options(${target} PRIVATE -static-pie)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${name} RUNTIME_OUTPUT_DIRECTORY ${processor}
                                             POSITION_INDEPENDENT_CODE ON)
endfunction()

# darwin_compile(PROCESSOR NAME SOURCE [LIBRARY...]): compiles the source for macOS and links it, then darwin_program() of that.
function(darwin_compile processor name source)
  string(REPLACE arm64 aarch64 target ${processor})
  set(macho "${CMAKE_CURRENT_BINARY_DIR}/macho/${processor}/${name}")
  file(MAKE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/macho/${processor}")
  add_custom_command(OUTPUT "${macho}"
    COMMAND "${ZEKARA_ZIG}" c++ -target ${target}-macos.13.3 -g0 -O2 -Wl,-S -std=c++20 -Wall -Wextra -Werror
            "-I${ZEKARA_ROOT}" "${source}" ${ARGN} -o "${macho}"
    DEPENDS "${source}" ${ARGN})
  darwin_program(${processor} ${name} "${macho}")
endfunction()
