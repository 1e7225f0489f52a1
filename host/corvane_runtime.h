// The running side of Corvane: it observes the browser's page loads, reports them to the plugin, orders the
// useful preloads, runs what the plugin launches, and records the results. It is used on the executor's
// thread, which is the plugin's command thread. There must be only one in a process.
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

// The embedder's name for a tab, or for anything else that shows one page at a time.
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
  // The embedder's own reasons not to preload a resource; may be empty.
  std::function<NotServed(const KnownResource& resource)> whyNot;
};

// May be destroyed at any moment. Destroy the network stack that uses it first, and executor, transport and
// plugin afterwards.
class CorvaneRuntime final : private FetchObserver {
 public:
  CorvaneRuntime(const PluginFunctions& plugin, Executor& executor, Transport& transport,
                 const HostSettings& settings);
  ~CorvaneRuntime() override;
  CorvaneRuntime(const CorvaneRuntime&) = delete;
  CorvaneRuntime& operator=(const CorvaneRuntime&) = delete;

  // --- Events of the browser. Events of a tab in which no page was requested are ignored.

  // Initialises the plugin. Must be called once, before anything else.
  void Start();
  // The IO message loop and the HTTP cache exist: fetches can start, and the orders of pages that were
  // requested before are sent.
  void NetworkStackIsUp();
  // A visit begins, and the tab's previous one ends. What the database knows of the page is ordered, the most
  // urgent first.
  void PageRequested(const PageRequest& page);
  // The page requests a resource, from whatever source.
  void ResourceSeen(TabId tab, const SeenResource& resource);
  // The network has responded to a load of the page.
  void ResponseSeen(TabId tab, const std::string& url, const net::HttpResponseHeaders& headers);
  // The page has painted, or loaded. A proxy cannot know either, and kiv_replay reports only the load event.
  void FirstPaint(TabId tab);
  void LoadEvent(TabId tab);
  // The visit ends: the database learns what was seen, and preloads that were not used are dropped. The tab's
  // ledger is kept until its next page.
  void PageLeft(TabId tab);
  // The same; the tab is also forgotten.
  void TabClosed(TabId tab);
  // Drops the unused preloads of pages without a request for HostSettings::settleAfterMs.
  void SettleIdlePages();
  // The HTTP cache holds the URL's response from now on, or has dropped it. The plugin forgets what is
  // dropped, so of an open page it is told later: queued preloads need what it knows of that.
  void CacheStatus(const std::string& url, bool held);
  // The browser's own cache has answered a load of the page, so its preload is not needed.
  void AnsweredByCache(TabId tab, const std::string& url);

  // --- For the network stack.

  // Called around each transaction. Pass the returned id to TransactionDone.
  uint32_t TransactionStarts(const std::string& url);
  void TransactionDone(const std::string& url, uint32_t id);

  // Whether preloads are served at all.
  bool ServesPreloads() const;
  // The record of a resource of the tab's current page, or of its last one if it was left. Null if there is
  // none. Valid until the tab's next page.
  const PreloadRecord* FindRecord(TabId tab, const std::string& url) const;
  // Moves the response of a record of stage Held out of the plugin. Returns false if the plugin does not hold
  // it.
  bool Take(const PreloadRecord& record, std::string& responseBlock, std::string& body);
  // Joins the running preload of a record of stage Launched.
  JoinId Join(const PreloadRecord& record, FetchJoiner& joiner);
  // A load has received the whole response by joining the preload, so the plugin's copy is not needed.
  void GotByJoining(TabId tab, const std::string& url, uint64_t orderId);
  // A request has changed the resource of the URL, so held and running preloads of it cannot be used.
  void Invalidate(const std::string& url);
  Fetcher& Fetches() { return fetcher_; }

  // --- For reports.

  const HostSettings& Settings() const { return settings_; }
  const PageDatabase& Database() const { return database_; }
  PageDatabase& Database() { return database_; }  // to keep it between runs
  // The ledger of the tab's current page, or of its last one if it was left.
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
  // An active order: queued, running, or held and unused.
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
  // Ends the orders that `which` selects in host and fetcher. The plugin may still hold their responses.
  std::vector<Order> EndOrders(const std::function<bool(const Order&)>& which);
  // Ends them in the plugin as well.
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
