// The browser's side of a request: asks the plugin first, joins a preload that is on its way, and only then
// sends a transaction of its own, which it tells Corvane about. Executor's thread.
#ifndef HOST_NETWORK_STACK_H_
#define HOST_NETWORK_STACK_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "host/corvane.h"
#include "host/executor.h"
#include "host/transport.h"

namespace host {

struct LoadRequest {
  std::string url;
  std::string method;
  std::string headers;
  uint64_t tag = 0;  // handed through to the transport
};

// Where a response comes from.
enum class LoadSource { Network, Served, Joined };

// Hears of one load, never from inside Load. A served response comes whole: OnResponse, OnServedBody, OnDone.
class LoadClient {
 public:
  virtual ~LoadClient() = default;

  virtual void OnResponse(const net::HttpResponseHeaders& headers) = 0;
  // The plugin's copy of a body, the bytes being the caller's own already: served, or joined and complete.
  virtual void OnPreloadedBody(const std::string& headers, const std::string& body) = 0;
  virtual void OnDone(int32_t result) = 0;
};

struct Load {
  LoadSource source;
  TransferId transfer;  // of a Network load; else 0
};

// Must outlive every load.
class NetworkStack {
 public:
  NetworkStack(Corvane& corvane, Executor& executor, Transport& transport);
  ~NetworkStack();
  NetworkStack(const NetworkStack&) = delete;
  NetworkStack& operator=(const NetworkStack&) = delete;

  // The client must live until OnDone.
  Load Start(const LoadRequest& request, LoadClient& client);

 private:
  class Transaction;

  // Takes the held response, and gives it back to the plugin; false when there is none.
  bool Take(const std::string& url, std::string& headers, std::string& body);
  TransferId Send(const LoadRequest& request, LoadClient& client);
  void Join(const LoadRequest& request, LoadClient& client);

  Corvane& corvane_;
  Executor& executor_;
  Transport& transport_;
  std::map<uint32_t, std::unique_ptr<Transaction>> transactions_;  // by transaction id
};

}  // namespace host

#endif  // HOST_NETWORK_STACK_H_
