# Read by CPack before it packs: archives carry the date of the newest entry of the Debian changelog.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND "${CPACK_ZEKARA_SOURCE_DIRECTORY}/packaging/source-date" OUTPUT_VARIABLE date
                  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(ENV{SOURCE_DATE_EPOCH} "${date}")
endif()
