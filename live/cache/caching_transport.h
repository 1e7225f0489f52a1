// The HTTP cache between the host and the network: a transport that answers from the cache if it has a fresh
// response, otherwise asks the server with the validators that it has, and turns a 304 into the stored
// response. Executor's thread.
#ifndef LIVE_CACHE_CACHING_TRANSPORT_H_
#define LIVE_CACHE_CACHING_TRANSPORT_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "host/executor.h"
#include "host/task_scope.h"
#include "host/transport.h"
#include "live/cache/http_cache.h"

namespace live {

// Microseconds since 1970, for dates and ages. The clock may be set back.
using WallClock = std::function<int64_t()>;

class CachingTransport final : public host::Transport {
 public:
  // All of these must outlive the transport.
  CachingTransport(host::Executor& executor, host::Transport& network, HttpCache& cache, WallClock wallClock);
  // Ends every transfer without another call to its client.
  ~CachingTransport() override;
  CachingTransport(const CachingTransport&) = delete;
  CachingTransport& operator=(const CachingTransport&) = delete;

  host::TransferId Start(const host::TransferRequest& request, host::TransferClient& client) override;
  void SetUrgency(host::TransferId id, host::Urgency urgency) override;
  void SetReading(host::TransferId id, bool reading) override;
  host::TransferReport Cancel(host::TransferId id) override;
  void Preconnect(const std::string& url, size_t count, net::URLRequestContext* context) override {
    network_.Preconnect(url, count, context);
  }

  // Whether a GET of the URL with these header lines would be answered without the network now.
  bool IsFresh(const std::string& url, const std::string& headers);

 private:
  class Exchange;

  CacheLookup Lookup(CacheRequest& request);

  host::Executor& executor_;
  host::Transport& network_;
  HttpCache& cache_;
  const WallClock wallClock_;
  host::TransferId lastId_ = 0;
  std::map<host::TransferId, std::shared_ptr<Exchange>> exchanges_;
  host::TaskScope tasks_;
};

}  // namespace live

#endif  // LIVE_CACHE_CACHING_TRANSPORT_H_
