# Fails unless MODULE defines exactly one dynamic symbol, ENTRY, which the interpreter looks up.

execute_process(COMMAND ${NM} -D --defined-only ${MODULE}
    OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
if(NOT listing MATCHES "^[0-9a-f]+ T ${ENTRY}\n$")
    message(FATAL_ERROR "${MODULE} exports:\n${listing}")
endif()
