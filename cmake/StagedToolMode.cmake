# Run by CPack between staging and packing.
file(GLOB_RECURSE tools LIST_DIRECTORIES OFF "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/Zekara4MacTool")
list(LENGTH tools count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "Staged below ${CPACK_TEMPORARY_INSTALL_DIRECTORY} is not one tool, but: ${tools}")
endif()
file(CHMOD "${tools}" PERMISSIONS SETUID OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                  WORLD_READ WORLD_EXECUTE)
