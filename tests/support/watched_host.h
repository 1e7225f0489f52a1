// The scripted host with an eye on the plugin's memory: what is allocated in a call of the plugin is watched,
// but for what the host itself needs to record and to answer. The text of a host and port, which the plugin
// owns, counts as the plugin's. The test's thread only.
#ifndef TESTS_SUPPORT_WATCHED_HOST_H_
#define TESTS_SUPPORT_WATCHED_HOST_H_

#include "android/log.h"
#include "tests/support/scripted_host.h"
#include "tests/support/watched_memory.h"

namespace tests {

class WatchedHost : public ScriptedHost {
 public:
  WatchedHost() {
    original_ = plugin;
    WatchAll<&Functions::OnInit, &Functions::OnGetCmdMask, &Functions::OnCmd, &Functions::OnGetProcInfo,
             &Functions::OnFetchDb, &Functions::OnFlushDb, &Functions::OnClearDb,
             &Functions::IsPreloaderEnabled, &Functions::FetchGetRequestInfo, &Functions::FetchStartComplete,
             &Functions::FetchReadComplete, &Functions::FetchDone, &Functions::IsPreloaded,
             &Functions::ReleasePreloaded, &Functions::IsInDC>();
    android_log::SetSink([](int bufferId, int priority, const char* tag, const char* text) {
      const MemoryOwner host(false);
      WriteLine(bufferId, priority, tag, text);
    });
  }

  uint32_t Hash(const char* url) override {
    const MemoryOwner host(false);
    return ScriptedHost::Hash(url);
  }
  int Fetch(void* cookie, net::URLRequestContext* context) override {
    const MemoryOwner host(false);
    return ScriptedHost::Fetch(cookie, context);
  }
  // From here to CommitDelayed the plugin only adds parameters, which are the host's.
  CorvaneCmd* CmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int value) override {
    EnterPlugin(false);
    return ScriptedHost::CmdCreate(type, action, value);
  }
  void CommitDelayed(CorvaneCmd* cmd, unsigned int delay) override {
    ScriptedHost::CommitDelayed(cmd, delay);
    EnterPlugin(true);
  }

 private:
  using Functions = ::host::PluginFunctions;

  template <auto kFunction>
  struct Watched;
  template <typename Result, typename... Arguments, Result (*Functions::*kFunction)(Arguments...)>
  struct Watched<kFunction> {
    static Result Call(Arguments... arguments) {
      const MemoryOwner inside(true);
      return (original_.*kFunction)(arguments...);
    }
  };

  template <auto... kFunctions>
  void WatchAll() {
    ((plugin.*kFunctions = &Watched<kFunctions>::Call), ...);
  }

  static inline Functions original_;
};

}  // namespace tests

#endif  // TESTS_SUPPORT_WATCHED_HOST_H_
