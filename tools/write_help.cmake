# Runs the built tool's "help OPTION" and keeps its output in OUTPUT:
#   cmake -DTOOL=aostore -DOPTION=--man -DOUTPUT=aostore.1 -P write_help.cmake
execute_process(COMMAND ${TOOL} help ${OPTION} OUTPUT_FILE ${OUTPUT}.new RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  file(REMOVE ${OUTPUT}.new)
  message(FATAL_ERROR "${TOOL} help ${OPTION} failed: ${result}")
endif()
file(RENAME ${OUTPUT}.new ${OUTPUT})
