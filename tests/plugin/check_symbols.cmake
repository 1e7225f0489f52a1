# Compares the symbols of the library with what they should be: it exports its functions and nothing else, and imports
# what the host's libraries (HOST) define, besides the C and C++ runtimes, whose symbols have versions.
# Run as: cmake -DNM=... -DLIBRARY=... -DHOST=... -P check_symbols.cmake
cmake_policy(VERSION 3.25)
function(list_symbols file kind result)
  execute_process(COMMAND ${NM} -D ${kind} --format=posix ${file} OUTPUT_VARIABLE lines COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX REPLACE " [^\n]*\n" ";" symbols "${lines}")
  list(FILTER symbols EXCLUDE REGEX "^$")
  list(SORT symbols)
  set(${result} ${symbols} PARENT_SCOPE)
endfunction()

set(expected
  FetchDone FetchGetRequestInfo FetchReadComplete FetchStartComplete IsInDC IsPreloaded IsPreloaderEnabled OnClearDb
  OnCmd OnFetchDb OnFlushDb OnGetCmdMask OnGetProcInfo OnInit ReleasePreloaded)
list_symbols(${LIBRARY} --defined-only exports)
if(NOT exports STREQUAL expected)
  message(FATAL_ERROR "${LIBRARY} exports\n  ${exports}\ninstead of\n  ${expected}")
endif()

list_symbols(${LIBRARY} --undefined-only imports)
list_symbols(${HOST} --defined-only offered)
list(FILTER imports EXCLUDE REGEX "@")
# Weak symbols that compilers reference and nobody has to define.
list(REMOVE_ITEM imports ${offered} _ITM_deregisterTMCloneTable _ITM_registerTMCloneTable __gmon_start__)
if(imports)
  message(FATAL_ERROR "${LIBRARY} imports what no host offers:\n  ${imports}")
endif()
