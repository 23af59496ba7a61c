# Run by CPack on what it is about to pack: manual pages are compressed, as Debian has them.

file(GLOB_RECURSE pages ${CPACK_TEMPORARY_DIRECTORY}/*/*/share/man/*.[1-9])
if(pages)
    execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()
