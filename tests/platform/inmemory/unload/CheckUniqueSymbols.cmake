# Fails when a library exports a symbol of binding STB_GNU_UNIQUE: the loader never unloads such a library.
# Usage: cmake -DKV_NM=... -DKV_LIBRARY=... -P CheckUniqueSymbols.cmake

execute_process(
    COMMAND "${KV_NM}" --dynamic --defined-only --format=posix "${KV_LIBRARY}"
    OUTPUT_VARIABLE kv_symbols COMMAND_ERROR_IS_FATAL ANY)
if(NOT kv_symbols MATCHES " [TDW] ")
    message(FATAL_ERROR "${KV_LIBRARY} exports nothing:\n${kv_symbols}")
endif()
string(REGEX MATCHALL "[^\n]+ u [^\n]*" kv_unique_symbols "${kv_symbols}")
if(kv_unique_symbols)
    list(JOIN kv_unique_symbols "\n  " kv_unique_symbols)
    message(FATAL_ERROR "${KV_LIBRARY} has unique symbols:\n  ${kv_unique_symbols}")
endif()
