// The browser's network stack behind the proxy: determines which page a request belongs to, makes the plugin
// preload for that page, and answers the request from a preload, from the cache or from the server. Loop's
// thread, which is the plugin's command thread.
#ifndef LIVE_PROXY_PROXY_ENGINE_H_
#define LIVE_PROXY_PROXY_ENGINE_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "host/corvane_runtime.h"
#include "host/network_stack.h"
#include "host/plugin_functions.h"
#include "host/recency_map.h"
#include "live/cache/caching_transport.h"
#include "live/cache/http_cache.h"
#include "live/loop/event_loop.h"
#include "live/proxy/browser_cache_estimate.h"
#include "live/proxy/cookie_view.h"
#include "live/proxy/page_tracker.h"
#include "live/proxy/request_handler.h"
#include "live/transport/curl_transport.h"

namespace live {

struct EngineSettings {
  host::HostSettings host;
  UpstreamSettings upstream;
  CacheLimits cache;
  TrackerSettings tracker;
  bool preload = true;        // if false, only the cache and the transport are used
  bool mark = false;          // add a Server-Timing header that says where each response came from
  bool allowPrivate = false;  // pages of public servers may reach private addresses
};

// How one load ended, for logs and recordings. Times are those of the loop.
struct LoadRecord {
  host::TabId page = 0;  // 0: it belongs to none
  std::string pageUrl;
  Role role = Role::Unplaced;
  host::ResourceKind kind = host::ResourceKind::Other;
  std::string method, url, requestHeaders;
  std::string responseBlock;  // empty when there was none
  int64_t bodyBytes = 0;
  int32_t result = host::kOk;
  host::LoadInfo info;
  base::Time asked, firstByte, ended;
  host::TransferReport transfer;  // of its own; empty when it had none
};

// The figures of one page load, once it has settled.
struct PageRecord {
  std::string url;
  base::Time begun, lastEnd;
  uint64_t served = 0, joined = 0, fetched = 0;  // resources
  uint64_t preloads = 0, unusedPreloads = 0;
  int64_t bytes = 0, preloadedBytes = 0, unusedBytes = 0;
};

struct EngineObserver {
  std::function<void(const LoadRecord&)> onLoad;
  std::function<void(const PageRecord&)> onPage;
};

class ProxyEngine final : public RequestHandler {
 public:
  ProxyEngine(EventLoop& loop, const host::PluginFunctions& plugin, const EngineSettings& settings,
              WallClock wallClock, EngineObserver observer);
  // Makes known what open pages have taught, and ends everything without another call to a client.
  ~ProxyEngine() override;

  host::LoadId Start(const BrowserRequest& request, host::LoadClient& client) override;
  void Cancel(host::LoadId id) override;
  void SetReading(host::LoadId id, bool reading) override;
  AddressRule AddressesFor(const BrowserRequest& request) override;

  // What is known of pages, for the store that keeps it between runs. An observer must outlive the engine,
  // whose destructor makes open pages known.
  host::PageDatabase& Pages() { return corvane_.Database(); }

 private:
  class Load;
  class PageContext;
  class NavigationContext;
  class OutsideContext;
  struct OpenPage;

  double NowMs() const { return static_cast<double>(wallClock_()) / 1e3; }
  OpenPage* FindPage(host::TabId id);
  void BeginPage(host::TabId id, const BrowserRequest& request);
  std::shared_ptr<ConnectPolicy> ContextFor(const BrowserRequest& request, const Placement& placement);
  std::shared_ptr<ConnectPolicy> OutsideContextFor(const BrowserRequest& request) const;
  bool MayReachPrivate(const std::string& origin) const;
  // What is known of a page's resource; null if nothing is known.
  const host::KnownResource* FindKnown(const std::string& pageUrl, const std::string& url) const;
  void LeavePage(host::TabId id);
  void WaitForSettled();
  void SettlePages();
  bool IsFresh(const std::string& site, const std::string& url) const;
  host::NotServed WhyNotPreload(const std::string& site, const host::KnownResource& resource);

  EventLoop& loop_;
  const EngineSettings settings_;
  const WallClock wallClock_;
  const EngineObserver observer_;
  const std::set<std::string> privateNames_;  // of servers that are private by the user's own word
  PageTracker tracker_;
  BrowserCacheEstimate browserCache_;
  CookieView cookies_;
  CurlTransport network_;
  HttpCache cache_;
  CachingTransport transport_;
  // Whether the last navigation to an origin reached a private address; of those that went over the network.
  host::RecencyMap<std::string, bool> isPrivateOrigin_{1000};
  host::RecencyMap<std::string, std::string> redirectedPages_{1000};  // where the last load has landed
  std::map<host::TabId, std::unique_ptr<OpenPage>> pages_;
  host::CorvaneRuntime corvane_;
  host::NetworkStack stack_;
  std::map<host::LoadId, std::shared_ptr<Load>> loads_;
  host::Timer settleTimer_;
};

}  // namespace live

#endif  // LIVE_PROXY_PROXY_ENGINE_H_
