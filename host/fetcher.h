// Corvane's fetcher: runs launched preloads over the transport and tells the plugin through its four
// callbacks. Executor's thread, which is also where FetchDone has to run.
#ifndef HOST_FETCHER_H_
#define HOST_FETCHER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/executor.h"
#include "host/plugin_functions.h"
#include "host/transport.h"

namespace host {

// Hears of fetches. `cookie` is what CorvaneFetch was given, as a number.
class FetchObserver {
 public:
  virtual ~FetchObserver() = default;

  virtual void OnFetchTaken(uint32_t cookie, TransferId transfer) = 0;
  // `accepted`: the plugin goes on with the response.
  virtual void OnFetchResponse(uint32_t cookie, const net::HttpResponseHeaders& headers, bool accepted) = 0;
  // After FetchDone, and before those who joined hear of it.
  virtual void OnFetchEnded(uint32_t cookie, int32_t result) = 0;
};

// What somebody who waits for a running fetch hears: the response as soon as it is there, then its end. Both
// come even when the plugin refuses the response: the transfer then goes on for those who wait.
struct FetchJoiner {
  std::function<void(const net::HttpResponseHeaders&)> onResponse;
  // `forPlugin`: the plugin heard of the end as well, so it may hold the response now. False when it had
  // refused the response or was told to forget the fetch.
  std::function<void(int32_t result, bool forPlugin)> onDone;
};

// Must outlive every task that it posted to the executor.
class Fetcher {
 public:
  Fetcher(const PluginFunctions& plugin, Executor& executor, Transport& transport, FetchObserver& observer);
  ~Fetcher();
  Fetcher(const Fetcher&) = delete;
  Fetcher& operator=(const Fetcher&) = delete;

  // For CorvaneFetch: takes the fetch on, to start in a task of its own. 1, or 0 for a cookie that is
  // running.
  int Start(void* cookie);

  // True from Start until FetchDone.
  bool IsRunning(uint32_t cookie) const;

  // Waits for a running fetch, which becomes as urgent as the browser's own transactions. The joiner is not
  // called from inside.
  void Join(uint32_t cookie, FetchJoiner joiner);

  // For a flush, before it: every running fetch ends for the plugin, which after the flush would not know it
  // any more, or take it for a new one of the same cookie. A fetch that somebody waits for goes on for them,
  // the others are cancelled.
  void AbandonAll();

 private:
  class Fetch;

  void Begin(uint64_t id);
  void TellJoiners(uint64_t id);
  void Forget(uint64_t id);

  const PluginFunctions& plugin_;
  Executor& executor_;
  Transport& transport_;
  FetchObserver& observer_;
  uint64_t lastId_ = 0;
  std::map<uint64_t, std::unique_ptr<Fetch>> fetches_;
  std::map<uint32_t, Fetch*> running_;  // by cookie: those that the plugin still hears of
};

}  // namespace host

#endif  // HOST_FETCHER_H_
