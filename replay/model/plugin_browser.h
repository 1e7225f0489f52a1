// The browser with the plugin: it loads pages through the real library and the host. Between visits it keeps
// what a browser keeps: the disk cache, the page database, and the plugin's own memory. One per process.
#ifndef REPLAY_MODEL_PLUGIN_BROWSER_H_
#define REPLAY_MODEL_PLUGIN_BROWSER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/corvane_runtime.h"
#include "host/network_stack.h"
#include "host/plugin_functions.h"
#include "replay/model/cookie_presence.h"
#include "replay/model/disk_cache.h"
#include "replay/model/network_model.h"
#include "replay/model/results.h"
#include "replay/model/visit_setup.h"

namespace replay {

class PluginBrowser {
 public:
  PluginBrowser(const host::PluginFunctions& plugin, const RecordedNetwork& recordedNetwork,
                const ReplayOptions& options, const host::HostSettings& settings);
  ~PluginBrowser();
  PluginBrowser(const PluginBrowser&) = delete;
  PluginBrowser& operator=(const PluginBrowser&) = delete;

  int64_t NowUs() const { return clock_.NowUs(); }
  void AdvanceTo(int64_t timeUs) { clock_.AdvanceTo(timeUs); }
  // What earlier visits of the page have taught; null before its first.
  const host::KnownPage* Known(const std::string& pageUrl) const { return corvane_.Database().Find(pageUrl); }

  bool IsFresh(const std::string& url, int64_t atUs) const { return diskCache_.IsFresh(url, atUs); }

  // Loads the page and fills in the visit's plugin way and its counts. Throws std::runtime_error if a served
  // body is not the one that was fetched.
  void Load(const VisitSetup& setup, Visit& visit);

  // The plugin's log so far, if the options ask for it. The lines have the format of logcat's threadtime.
  std::vector<LogLine> TakeLog();

 private:
  class Client;

  // The simulated browser has one tab.
  static constexpr host::TabId kTab = 1;

  void Ask(size_t index);
  void Count(Visit& visit) const;
  std::vector<PreloadRow> PreloadRows(int64_t startUs) const;

  host::VirtualClock clock_;
  NetworkModel network_;
  host::CorvaneRuntime corvane_;
  host::NetworkStack stack_;
  CookiePresence cookies_;
  DiskCache diskCache_;

  // The current visit.
  uint64_t contentVersion_ = 0;  // its number: each visit finds other content
  const VisitSetup* setup_ = nullptr;
  class PageLoad* load_ = nullptr;
  std::vector<std::unique_ptr<Client>> clients_;
};

}  // namespace replay

#endif  // REPLAY_MODEL_PLUGIN_BROWSER_H_
