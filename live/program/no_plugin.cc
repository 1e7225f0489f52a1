#include "live/program/no_plugin.h"

namespace live {

host::PluginFunctions NoPlugin() {
  return {
      .OnInit = [](uint32_t) { return 1; },
      .OnGetCmdMask =
          [](uint32_t* mask) {
            *mask = 0;
            return 1;
          },
      .OnCmd = [](CorvaneCmd*) { return 0; },
      .OnGetProcInfo = [](std::string&, std::string&) { return 1; },
      .OnFetchDb = [] { return 1; },
      .OnFlushDb = [](uint32_t) { return 1; },
      .OnClearDb = [](uint32_t) { return 1; },
      .IsPreloaderEnabled = [] { return 0; },
      .FetchGetRequestInfo = [](void*) -> net::HttpRequestInfo* { return nullptr; },
      .FetchStartComplete = [](void*, const CorvaneFetchResponse*) { return 0; },
      .FetchReadComplete = [](void*, const char*, int32_t) { return 0; },
      .FetchDone = [](void*, int32_t) { return 0; },
      .IsPreloaded = [](const char*, std::string*, const char**, int32_t*) { return 0; },
      .ReleasePreloaded = [](const char*) { return 0; },
      .IsInDC = [](const char*) { return 0; },
  };
}

}  // namespace live
