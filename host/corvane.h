// The running side of the Corvane stand-in: watches the browser's page loads, tells the plugin of them in
// commands, orders the preloads worth having, and runs what the plugin launches. Executor's thread, the
// plugin's command thread. One at a time per process: it is the Host behind the stand-in's functions while it
// lives.
#ifndef HOST_CORVANE_H_
#define HOST_CORVANE_H_

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "corvane/host.h"
#include "host/executor.h"
#include "host/fetcher.h"
#include "host/page_database.h"
#include "host/plugin_functions.h"
#include "host/preload_ledger.h"
#include "host/settings.h"
#include "host/transport.h"

namespace host {

// A request for a page, as the browser makes it.
struct PageRequest {
  std::string url;
  std::string method;
  std::string headers;  // header lines as text
  net::URLRequestContext* context = nullptr;
  // Whether the HTTP cache can answer for a URL without asking the server.
  std::function<bool(const std::string& url)> isFresh;
};

class Corvane final : public corvane::Host, private FetchObserver {
 public:
  Corvane(const PluginFunctions& plugin, Executor& executor, Transport& transport,
          const HostSettings& settings);
  ~Corvane() override;

  // --- What the browser tells ---

  // Once, first: initialises the plugin and asks for its mask.
  void Start();
  // The IO message loop and the HTTP cache have come up: fetches can start from now on.
  void NetworkStackIsUp();
  // A visit begins; what the database knows of the page is ordered, most urgent first.
  void PageRequested(const PageRequest& page);
  void ResourceSeen(const std::string& url, ResourceKind kind, const std::string& method);
  void ResponseSeen(const std::string& url, const net::HttpResponseHeaders& headers);
  // Around each of the browser's own transactions. The id is for TransactionDone.
  uint32_t TransactionStarts(const std::string& url);
  void TransactionDone(const std::string& url, uint32_t id);
  // The HTTP cache holds the URL's response from now on, or dropped it.
  void CacheStatus(const std::string& url, bool held);
  // The visit is over: what was seen on it becomes known.
  void PageLeft();
  void Flush();

  // --- What the browser asks ---

  // The resource as the current page's orders know it, or null.
  PreloadRecord* FindRecord(const std::string& url);
  // False for a URL that shares its hash with another one that was ordered: the plugin would answer for that
  // one.
  bool MayAsk(const std::string& url) const;
  // True while the URL's preload is on its way, so that it can be joined.
  bool IsRunning(const std::string& url) const;
  void Join(const std::string& url, FetchJoiner joiner);

  const PluginFunctions& Plugin() const { return plugin_; }
  const HostSettings& Settings() const { return settings_; }
  const PageDatabase& Database() const { return database_; }
  const PreloadLedger& Ledger() const { return ledger_; }

  uint64_t CommandCount() const { return commandCount_; }
  // Commands of a routed type to which OnCmd answered 0.
  uint64_t UnansweredCount() const { return unansweredCount_; }

  // --- corvane::Host: what the plugin asks ---

  int Fetch(void* cookie, net::URLRequestContext* context) override;
  void* IoMessageLoop() override;
  void* HttpCache() override;
  int MaxSocketsPerGroup() override;
  base::Time SystemTime() override;
  int VerboseLevel() override;
  bool VerboseEnabled() override;
  void CommitDelayed(CorvaneCmd* cmd, unsigned int delay) override;

 private:
  // An order of this page, or of an earlier one that still runs or is held. `record` is in ledger_.
  struct Order {
    std::string url;
    std::string hostPort;
    PreloadRecord* record;
    uint32_t transactionId = 0;
  };

  // FetchObserver.
  void OnFetchTaken(uint32_t cookie, TransferId transfer) override;
  void OnFetchResponse(uint32_t cookie, const net::HttpResponseHeaders& headers, bool accepted) override;
  void OnFetchEnded(uint32_t cookie, int32_t result) override;

  void Send(CorvaneCmd* cmd);
  void AnnounceLaunches();
  void WithdrawWaiting();
  void KeepWhatIsThere();
  void OrderKnown(const PageRequest& request);
  NotOrdered WhyNotOrder(const KnownPage& page, const KnownResource& resource,
                         const PageRequest& request) const;
  void SendOrder(PreloadRecord& record, uint32_t priority);

  const PluginFunctions& plugin_;
  Executor& executor_;
  const HostSettings settings_;
  Fetcher fetcher_;
  PageDatabase database_;
  PreloadLedger ledger_;
  std::map<uint32_t, Order> orders_;             // by URL hash, which is also the fetch cookie
  std::map<std::string, int> preloadsInFlight_;  // by host and port
  std::map<std::string, int> openTransactions_;  // by host and port: the browser\'s, and announced preloads
  std::vector<uint32_t> justLaunched_;           // by the command being handled: cookies
  std::string pageUrl_;
  std::set<std::string> toldAsResource_;  // URLs that the plugin may know as resources of a page
  uint32_t mask_ = 0;
  uint32_t lastTransactionId_ = 0;
  uint64_t sizeLimit_ = 0;  // the plugin's, in bytes
  bool pluginIsOn_ = false;
  bool neverLaunches_ = false;  // by the properties: no preload, or no socket for one
  bool networkStackIsUp_ = false;
  uint64_t commandCount_ = 0;
  uint64_t unansweredCount_ = 0;
};

}  // namespace host

#endif  // HOST_CORVANE_H_
