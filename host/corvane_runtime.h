// Corvane's running side: watches the browser's page loads, tells the plugin of them, orders the preloads
// worth having, runs what the plugin launches, and knows what became of each. Executor's thread, the plugin's
// command thread. One at a time per process.
#ifndef HOST_CORVANE_RUNTIME_H_
#define HOST_CORVANE_RUNTIME_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/command_sender.h"
#include "host/corvane_answers.h"
#include "host/executor.h"
#include "host/fetcher.h"
#include "host/page_database.h"
#include "host/plugin_functions.h"
#include "host/preconnect_policy.h"
#include "host/preload_ledger.h"
#include "host/recency_map.h"
#include "host/settings.h"
#include "host/task_scope.h"
#include "host/transport.h"

namespace host {

// The embedder's name for a tab, or whatever else shows one page at a time.
using TabId = uint64_t;

// A request for a page, as the browser makes it.
struct PageRequest {
  TabId tab = 0;
  std::string url;
  std::string method = "GET";
  std::string headers;                        // header lines as text
  net::URLRequestContext* context = nullptr;  // not owned; outlives the page and the transfers made for it
  // Whether the browser's own cache can answer for a URL without asking the server.
  std::function<bool(const std::string& url)> isFresh;
  // What else the embedder knows against preloading a resource; empty for nothing.
  std::function<NotServed(const KnownResource& resource)> whyNot;
};

// May be destroyed at any moment, after the network stack that uses it and before executor, transport and
// plugin.
class CorvaneRuntime final : private FetchObserver {
 public:
  CorvaneRuntime(const PluginFunctions& plugin, Executor& executor, Transport& transport,
                 const HostSettings& settings);
  ~CorvaneRuntime() override;
  CorvaneRuntime(const CorvaneRuntime&) = delete;
  CorvaneRuntime& operator=(const CorvaneRuntime&) = delete;

  // --- What the browser tells. A tab that no page was requested in is ignored.

  // Once, first: initialises the plugin.
  void Start();
  // The IO message loop and the HTTP cache have come up: fetches can start, and what pages have ordered until
  // now is ordered.
  void NetworkStackIsUp();
  // A visit begins, and the tab's last one is over. What the database knows of the page is ordered, most
  // urgent first.
  void PageRequested(const PageRequest& page);
  // The page asks for a resource, wherever its response will come from.
  void ResourceSeen(TabId tab, const SeenResource& resource);
  // The network has answered a load of the page.
  void ResponseSeen(TabId tab, const std::string& url, const net::HttpResponseHeaders& headers);
  void FirstPaint(TabId tab);
  void LoadEvent(TabId tab);
  // The visit is over: what was seen on it becomes known, and preloads that it has not asked for are dropped.
  // The tab's ledger stays until its next page.
  void PageLeft(TabId tab);
  // The same, and the tab is forgotten.
  void TabClosed(TabId tab);
  // Drops the unused preloads of pages that have asked for nothing for a while (HostSettings::settleAfterMs).
  void SettleIdlePages();
  // The HTTP cache holds the URL's response from now on, or has dropped it. The plugin forgets what is
  // dropped, so of an open page it is told later: queued preloads need what it knows of that.
  void CacheStatus(const std::string& url, bool held);
  // A load of the page was answered by the browser's own cache, so its preload is not needed.
  void AnsweredByCache(TabId tab, const std::string& url);

  // --- For the network stack.

  // Around each transaction. The id is for TransactionDone.
  uint32_t TransactionStarts(const std::string& url);
  void TransactionDone(const std::string& url, uint32_t id);

  // Whether preloads are served at all.
  bool ServesPreloads() const;
  // What the tab's page, or its last one once that was left, knows of a resource; null when it knows nothing.
  // Valid until the tab's next page.
  const PreloadRecord* FindRecord(TabId tab, const std::string& url) const;
  // Takes the response that the plugin holds for a record of stage Held out of the plugin; false when it has
  // none to give.
  bool Take(const PreloadRecord& record, std::string& responseBlock, std::string& body);
  // Joins the running preload of a record of stage Launched.
  JoinId Join(const PreloadRecord& record, FetchJoiner& joiner);
  // A load has got the whole response by joining the preload of that order: the plugin's copy is not needed.
  void GotByJoining(TabId tab, const std::string& url, uint64_t orderId);
  // A request has changed what the URL stands for: what is held or running for it is of no use to anybody.
  void Invalidate(const std::string& url);
  Fetcher& Fetches() { return fetcher_; }

  // --- For reports.

  const HostSettings& Settings() const { return settings_; }
  const PageDatabase& Database() const { return database_; }
  PageDatabase& Database() { return database_; }  // for who keeps it between runs
  // Of the tab's page, or of its last one once that was left.
  const PreloadLedger& Ledger(TabId tab) const;
  uint64_t CommandCount() const { return sender_.CommandCount(); }
  uint64_t UnansweredCount() const { return sender_.UnansweredCount(); }

 private:
  struct OpenPage {
    TabId tab;
    PageRequest request;
    PageVisit visit;
    PreloadLedger ledger;
    base::Time requested;
    base::Time lastRequest;
    bool left = false;
    bool forgetWhenLeft = false;        // the HTTP cache has dropped it meanwhile
    std::vector<ConnectionNeed> needs;  // not opened yet, the next one last
    std::unique_ptr<Timer> nextNeed;
  };
  // An order that is alive: queued or running, or held and unused.
  struct Order {
    std::string url;
    std::string hostPort;
    TabId tab;
    PreloadRecord* record;       // in the ledger of the tab's page
    uint32_t transactionId = 0;  // announced; 0 when it is not
  };
  using OrderPlace = std::map<uint32_t, Order>::iterator;

  // FetchObserver.
  std::string OnFetchBegins(uint32_t cookie, net::URLRequestContext* context,
                            const std::string& pluginHeaders) override;
  void OnFetchResponse(uint32_t cookie, const net::HttpResponseHeaders& headers, bool accepted) override;
  void OnFetchEnded(uint32_t cookie, int32_t result, const TransferReport& report) override;

  int64_t Since(base::Time time) const;  // microseconds
  OpenPage* FindPage(TabId tab);
  bool IsOpenPage(const std::string& url) const;
  void OrderKnown(OpenPage& page);
  int StartFetch(void* cookie, net::URLRequestContext* context);
  void PlanConnections(OpenPage& page, const KnownPage& known, const std::vector<bool>& covered);
  void OpenDueConnections(OpenPage& page);
  void AnnounceLaunches();
  void LeavePage(OpenPage& page);
  // Ends the orders for which `which` holds, for host and fetcher; the plugin may still hold their responses.
  std::vector<Order> EndOrders(const std::function<bool(const Order&)>& which);
  // Ends them for the plugin as well.
  void DropOrders(const std::function<bool(const Order&)>& which);
  bool SomePageIsLoading() const;
  void Flush();
  void ReleaseFailed(const std::string& url);
  OrderPlace FindOrder(const std::string& url);

  const PluginFunctions& plugin_;
  Executor& executor_;
  Transport& transport_;
  const HostSettings settings_;
  CommandSender sender_;
  CorvaneAnswers answers_;
  Fetcher fetcher_;
  PageDatabase database_;
  std::map<TabId, OpenPage> pages_;              // as many as the embedder has tabs
  std::map<uint32_t, Order> orders_;             // by URL hash, which is also the fetch cookie
  std::map<std::string, int> openTransactions_;  // by host and port: the browser's, and announced preloads
  std::map<std::string, int> preloadsInFlight_;  // by host and port
  std::vector<uint32_t> justLaunched_;           // by the command being handled: cookies
  RecencyMap<std::string, char> toldResources_;  // URLs that the plugin may know as resources of a page
  uint32_t lastTransactionId_ = 0;
  uint64_t lastOrderId_ = 0;
  uint64_t sizeLimit_ = 0;      // the plugin's, in bytes
  bool neverLaunches_ = false;  // by the properties: no preload, or no socket for one
  TaskScope tasks_;
};

}  // namespace host

#endif  // HOST_CORVANE_RUNTIME_H_
