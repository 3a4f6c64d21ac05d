# Runs PROGRAM and compares what it prints with the text in the file EXPECTED.
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE printed RESULT_VARIABLE status)
file(READ ${EXPECTED} expected)
if(NOT status EQUAL 0 OR NOT "${printed}" STREQUAL "${expected}")
  message(FATAL_ERROR "${PROGRAM} ended with ${status} and printed\n${printed}"
                      "instead of\n${expected}")
endif()
