# Run by CPack between staging and packing.
foreach(package IN ITEMS suite:zekara4mac development:zekara4mac-dev)
  string(REPLACE ":" ";" package "${package}")
  list(GET package 0 stage)
  list(GET package 1 name)
  execute_process(COMMAND sh "${CPACK_ZEKARA_SOURCE_DIRECTORY}/packaging/debian/finish-stage"
                          "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${stage}" "${name}"
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()
