# The forwarding library (-DFORWARDER=path) against the real library (-DLIBRARY=path): the same
# SONAME, exactly the real library's exported functions plus the two Host functions it stands in
# front of, and no need of the driver's libraries (the real library brings those).
execute_process(COMMAND readelf -d ${FORWARDER} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
if(NOT dynamic MATCHES "Library soname: \\[libQuorvane.so.13\\]")
    message(FATAL_ERROR "the forwarding library's SONAME is not libQuorvane.so.13:\n${dynamic}")
endif()
if(dynamic MATCHES "libBrenn|libMoskSrv|libHostRuntime")
    message(FATAL_ERROR "the forwarding library needs a platform library:\n${dynamic}")
endif()

include(${CMAKE_CURRENT_LIST_DIR}/../abi/exportedNames.cmake)

exportedNames(${LIBRARY} expected)
list(APPEND expected RTSetCleanupProc EDVR_CreateReference)
list(SORT expected)
exportedNames(${FORWARDER} forwarded)
if(NOT forwarded STREQUAL expected)
    set(missing ${expected})
    list(REMOVE_ITEM missing ${forwarded})
    set(extra ${forwarded})
    list(REMOVE_ITEM extra ${expected})
    message(FATAL_ERROR "the forwarding library lacks: ${missing}\nand exports beyond the real library: ${extra}")
endif()
list(LENGTH forwarded count)
message(STATUS "${count} exports: the real library's and the two Host functions")
