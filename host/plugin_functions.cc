#include "host/plugin_functions.h"

#include <dlfcn.h>

#include <stdexcept>

namespace host {
namespace {

template <typename Function>
void Find(void* library, const std::string& path, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  if (function == nullptr) throw std::runtime_error(path + ": the plugin has no function " + name);
}

PluginFunctions FindAll(void* library, const std::string& path) {
  PluginFunctions found;
#define KIV_FIND(name) Find(library, path, #name, found.name)
  KIV_FIND(OnInit);
  KIV_FIND(OnGetCmdMask);
  KIV_FIND(OnCmd);
  KIV_FIND(OnGetProcInfo);
  KIV_FIND(OnFetchDb);
  KIV_FIND(OnFlushDb);
  KIV_FIND(OnClearDb);
  KIV_FIND(IsPreloaderEnabled);
  KIV_FIND(FetchGetRequestInfo);
  KIV_FIND(FetchStartComplete);
  KIV_FIND(FetchReadComplete);
  KIV_FIND(FetchDone);
  KIV_FIND(IsPreloaded);
  KIV_FIND(ReleasePreloaded);
  KIV_FIND(IsInDC);
#undef KIV_FIND
  return found;
}

}  // namespace

LoadedPlugin::LoadedPlugin(const std::string& path) : library_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (library_ == nullptr) {
    // dlerror names the file in most of its texts. The path comes first so that every line begins with it.
    const char* const error = dlerror();
    throw std::runtime_error(path + ": cannot be loaded: " + (error != nullptr ? error : "no reason given"));
  }
  try {
    functions_ = FindAll(library_, path);
  } catch (...) {
    dlclose(library_);
    throw;
  }
}

LoadedPlugin::~LoadedPlugin() {
  dlclose(library_);
}

}  // namespace host
