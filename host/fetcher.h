// Corvane's fetcher: runs launched preloads over the transport and reports to the plugin through its four
// callbacks. Executor's thread, as FetchDone requires.
#ifndef HOST_FETCHER_H_
#define HOST_FETCHER_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "host/executor.h"
#include "host/plugin_functions.h"
#include "host/settings.h"
#include "host/task_scope.h"
#include "host/transport.h"

namespace host {

// Observes fetches. `cookie` is the argument of CorvaneFetch, as a number.
class FetchObserver {
 public:
  virtual ~FetchObserver() = default;

  // Returns the headers to send with a request. `pluginHeaders` are those of the plugin.
  virtual std::string OnFetchBegins(uint32_t cookie, net::URLRequestContext* context,
                                    const std::string& pluginHeaders) = 0;
  // `accepted`: the plugin has accepted the response.
  virtual void OnFetchResponse(uint32_t cookie, const net::HttpResponseHeaders& headers, bool accepted) = 0;
  // Called after FetchDone, and before the joiners are notified.
  virtual void OnFetchEnded(uint32_t cookie, int32_t result, const TransferReport& report) = 0;
};

// Waits for a running fetch. It receives the whole response from its first byte on, no matter when it joined
// and whether the plugin accepts the response. Each of these functions may join, leave, start and cancel
// anything, and may destroy the fetcher.
class FetchJoiner {
 public:
  virtual ~FetchJoiner() = default;

  // `sentHeaders`: the header lines that the request was sent with.
  virtual void OnJoinResponse(const std::string& sentHeaders, const net::HttpResponseHeaders& headers) = 0;
  virtual void OnJoinBody(const char* bytes, int32_t count) = 0;
  // The fetch makes no progress and the joiner has received nothing, so it should leave. Called once.
  virtual void OnJoinStalled() = 0;
  // The last call.
  virtual void OnJoinDone(int32_t result) = 0;
};

// Identifies a joiner and the fetch that it joined. {0, 0} means none.
struct JoinId {
  uint64_t fetch = 0;
  uint64_t joiner = 0;
};

class Fetcher {
 public:
  Fetcher(const PluginFunctions& plugin, Executor& executor, Transport& transport,
          const HostSettings& settings, FetchObserver& observer);
  // Ends every transfer without notifying anybody.
  ~Fetcher();
  Fetcher(const Fetcher&) = delete;
  Fetcher& operator=(const Fetcher&) = delete;

  // Implements CorvaneFetch: starts the fetch in a task of its own and returns 1, or returns 0 if the cookie
  // is already running. The context must outlive the fetch.
  int Start(void* cookie, net::URLRequestContext* context);

  // True from Start until FetchDone.
  bool IsRunning(uint32_t cookie) const { return running_.contains(cookie); }

  // Waits for a running fetch, which becomes as urgent as the browser's own transactions. The joiner is not
  // called during this call, and must live until OnJoinDone or Leave.
  JoinId Join(uint32_t cookie, FetchJoiner& joiner);
  // These ignore a joiner after its OnJoinDone. After Leave, the joiner is not called any more.
  void Leave(JoinId id);
  // While this is false, the joiner receives no body. True at the start.
  void SetReading(JoinId id, bool reading);

  // Ends a running fetch for the plugin, as failed. It continues for its joiners, or is cancelled if it has
  // none. Returns what was received until now. The observer is not notified.
  TransferReport Abandon(uint32_t cookie);

 private:
  class Fetch;

  Fetch* Find(uint64_t id) const;

  const PluginFunctions& plugin_;
  Executor& executor_;
  Transport& transport_;
  const HostSettings settings_;
  FetchObserver& observer_;
  uint64_t lastId_ = 0;
  std::map<uint64_t, std::shared_ptr<Fetch>> fetches_;
  std::map<uint32_t, uint64_t> running_;  // by cookie: the ids of those that the plugin still hears of
  TaskScope tasks_;
};

}  // namespace host

#endif  // HOST_FETCHER_H_
