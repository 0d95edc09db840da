# exportedNames(FILE RESULT): the names of the functions and objects a shared object defines in
# its dynamic symbol table, without version suffixes, sorted.
function(exportedNames file result)
    execute_process(COMMAND nm -D --defined-only ${file} OUTPUT_VARIABLE defined COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "[^\n]+" lines "${defined}")
    set(names "")
    foreach(line IN LISTS lines)
        string(REGEX REPLACE "^[0-9a-f]* *[A-Za-z] " "" name "${line}")
        string(REGEX REPLACE "@.*" "" name "${name}")
        list(APPEND names ${name})
    endforeach()
    list(SORT names)
    set(${result} "${names}" PARENT_SCOPE)
endfunction()
