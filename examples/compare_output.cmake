# cmake -DCOMMAND=program;argument... -DEXPECTED=file -P compare_output.cmake
# Runs the command and fails unless it ends with 0, prints exactly what the file holds and writes
# nothing to standard error.

execute_process(COMMAND ${COMMAND}
    OUTPUT_VARIABLE printed ERROR_VARIABLE complained RESULT_VARIABLE result)
file(READ ${EXPECTED} expected)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "ended with ${result}, having printed:\n${printed}${complained}")
endif()
if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "printed:\n${printed}\nexpected:\n${expected}")
endif()
if(NOT complained STREQUAL "")
    message(FATAL_ERROR "wrote to standard error:\n${complained}")
endif()
