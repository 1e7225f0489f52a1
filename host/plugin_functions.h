// The plugin's exported functions, found by name in the library at a path. Any thread; the functions
// themselves have the contracts of plugin/kiv_proc_plugin.h.
#ifndef HOST_PLUGIN_FUNCTIONS_H_
#define HOST_PLUGIN_FUNCTIONS_H_

#include <string>

#include "plugin/kiv_proc_plugin.h"

namespace host {

struct PluginFunctions {
  decltype(&::OnInit) OnInit = nullptr;
  decltype(&::OnGetCmdMask) OnGetCmdMask = nullptr;
  decltype(&::OnCmd) OnCmd = nullptr;
  decltype(&::OnGetProcInfo) OnGetProcInfo = nullptr;
  decltype(&::OnFetchDb) OnFetchDb = nullptr;
  decltype(&::OnFlushDb) OnFlushDb = nullptr;
  decltype(&::OnClearDb) OnClearDb = nullptr;
  decltype(&::IsPreloaderEnabled) IsPreloaderEnabled = nullptr;
  decltype(&::FetchGetRequestInfo) FetchGetRequestInfo = nullptr;
  decltype(&::FetchStartComplete) FetchStartComplete = nullptr;
  decltype(&::FetchReadComplete) FetchReadComplete = nullptr;
  decltype(&::FetchDone) FetchDone = nullptr;
  decltype(&::IsPreloaded) IsPreloaded = nullptr;
  decltype(&::ReleasePreloaded) ReleasePreloaded = nullptr;
  decltype(&::IsInDC) IsInDC = nullptr;
};

// A loaded library. It is unloaded by the destructor. The constructor throws std::runtime_error with one line
// that names the file, and the function if one is missing.
class LoadedPlugin {
 public:
  explicit LoadedPlugin(const std::string& path);
  ~LoadedPlugin();
  LoadedPlugin(const LoadedPlugin&) = delete;
  LoadedPlugin& operator=(const LoadedPlugin&) = delete;

  const PluginFunctions& Functions() const { return functions_; }

 private:
  void* library_;
  PluginFunctions functions_;
};

}  // namespace host

#endif  // HOST_PLUGIN_FUNCTIONS_H_
