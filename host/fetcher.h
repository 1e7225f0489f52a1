// Corvane's fetcher: runs launched preloads over the transport and tells the plugin through its four
// callbacks. Executor's thread, which is also where FetchDone has to run.
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

// Hears of fetches. `cookie` is what CorvaneFetch was given, as a number.
class FetchObserver {
 public:
  virtual ~FetchObserver() = default;

  // The request goes out: what headers to send it with. `pluginHeaders` are those that the plugin asked for.
  virtual std::string OnFetchBegins(uint32_t cookie, net::URLRequestContext* context,
                                    const std::string& pluginHeaders) = 0;
  // `accepted`: the plugin goes on with the response.
  virtual void OnFetchResponse(uint32_t cookie, const net::HttpResponseHeaders& headers, bool accepted) = 0;
  // After FetchDone, and before those who joined hear of the end.
  virtual void OnFetchEnded(uint32_t cookie, int32_t result, const TransferReport& report) = 0;
};

// What somebody hears who waits for a running fetch: the whole response from its first byte on, whenever they
// have joined and whether or not the plugin takes it. Any of these may join, leave, and start and cancel
// anything else, and may destroy the fetcher.
class FetchJoiner {
 public:
  virtual ~FetchJoiner() = default;

  // `sentHeaders`: the header lines that the request was sent with.
  virtual void OnJoinResponse(const std::string& sentHeaders, const net::HttpResponseHeaders& headers) = 0;
  virtual void OnJoinBody(const char* bytes, int32_t count) = 0;
  // The fetch makes no progress, and nothing of it has been heard: better leave. It is called once.
  virtual void OnJoinStalled() = 0;
  // The last call.
  virtual void OnJoinDone(int32_t result) = 0;
};

// Names who has joined which fetch. {0, 0} is nobody.
struct JoinId {
  uint64_t fetch = 0;
  uint64_t joiner = 0;
};

class Fetcher {
 public:
  Fetcher(const PluginFunctions& plugin, Executor& executor, Transport& transport,
          const HostSettings& settings, FetchObserver& observer);
  // Ends every transfer; nobody hears of it.
  ~Fetcher();
  Fetcher(const Fetcher&) = delete;
  Fetcher& operator=(const Fetcher&) = delete;

  // For CorvaneFetch: takes the fetch on, to start in a task of its own. 1, or 0 for a cookie that is
  // running. The context must outlive the fetch.
  int Start(void* cookie, net::URLRequestContext* context);

  // True from Start until FetchDone.
  bool IsRunning(uint32_t cookie) const { return running_.contains(cookie); }

  // Waits for a running fetch, which becomes as urgent as the browser's own transactions. The joiner is not
  // called from inside, and must live until OnJoinDone or Leave.
  JoinId Join(uint32_t cookie, FetchJoiner& joiner);
  // The following ignore a joiner who has heard the end. Leave: the joiner hears nothing more.
  void Leave(JoinId id);
  // While false, the joiner gets no body. True at the start.
  void SetReading(JoinId id, bool reading);

  // Ends a running fetch for the plugin, for which it has failed. It goes on for those who have joined it,
  // and is cancelled when there are none. What had come of it until now. The observer does not hear of it.
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
