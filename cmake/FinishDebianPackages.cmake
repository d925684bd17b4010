# Run by CPack after packing.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  execute_process(COMMAND sh "${CPACK_ZEKARA_SOURCE_DIRECTORY}/packaging/debian/finish-package" "${package}"
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()
