# Compares what a library exports with what it should. Run as: cmake -DNM=... -DLIBRARY=... -P check_exports.cmake
set(expected
  FetchDone FetchGetRequestInfo FetchReadComplete FetchStartComplete IsInDC IsPreloaded IsPreloaderEnabled OnClearDb
  OnCmd OnFetchDb OnFlushDb OnGetCmdMask OnGetProcInfo OnInit ReleasePreloaded)
execute_process(COMMAND ${NM} -D --defined-only --format=posix ${LIBRARY}
  OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE " [^\n]*\n" ";" symbols "${symbols}")
list(FILTER symbols EXCLUDE REGEX "^$")
list(SORT symbols)
if(NOT symbols STREQUAL expected)
  message(FATAL_ERROR "${LIBRARY} exports\n  ${symbols}\ninstead of\n  ${expected}")
endif()
