// The browser's side of a request. It first asks for a held preload, then joins a running one, and otherwise
// sends a transaction of its own, which it reports to Corvane. Executor's thread.
#ifndef HOST_NETWORK_STACK_H_
#define HOST_NETWORK_STACK_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "host/corvane_runtime.h"
#include "host/executor.h"
#include "host/not_served.h"
#include "host/task_scope.h"
#include "host/transport.h"

namespace host {

using LoadId = uint64_t;  // never 0, and never used again

struct LoadRequest {
  TabId tab = 0;
  std::string url;
  std::string method = "GET";
  std::string headers;                        // header lines as text, cookies among them
  bool withCredentials = true;                // cookies and the like may be sent and stored
  net::URLRequestContext* context = nullptr;  // not owned; outlives the load
  std::shared_ptr<UploadBody> body;           // null for none
  uint64_t requestId = 0;                     // the embedder's own id of the load, passed on
};

// The source of a response.
enum class LoadSource { Network, Served, Joined };

struct LoadInfo {
  LoadId id = 0;
  LoadSource source = LoadSource::Network;
  NotServed why = NotServed::None;  // of a network load, and of one that joined
};

// Receives one load: the response, its body in pieces, and its end. It always receives the whole response,
// whatever the source, and is never called during a call of NetworkStack. Each of these functions may start,
// join, cancel and pause loads, including this one, and may destroy the network stack.
class LoadClient {
 public:
  virtual ~LoadClient() = default;

  // A response with a status of 1xx, which precedes the final response.
  virtual void OnInformational(const net::HttpResponseHeaders& /*headers*/) {}
  // `info` as it is now: a load that had joined a preload may have gone to the network after all.
  virtual void OnResponse(const LoadInfo& info, const net::HttpResponseHeaders& headers) = 0;
  virtual void OnBody(const char* bytes, int32_t count) = 0;
  // The last call. A result other than kOk may come before or after the response. `report` describes the
  // load's own transfer, and is empty if there was none.
  virtual void OnDone(const LoadInfo& info, int32_t result, const TransferReport& report) = 0;
};

// May be destroyed at any moment, but before the runtime. The clients are not called any more.
class NetworkStack {
 public:
  NetworkStack(CorvaneRuntime& corvane, Executor& executor, Transport& transport);
  ~NetworkStack();
  NetworkStack(const NetworkStack&) = delete;
  NetworkStack& operator=(const NetworkStack&) = delete;

  // The client must live until OnDone or Cancel.
  LoadInfo Start(const LoadRequest& request, LoadClient& client);
  // Both ignore unknown and finished loads. After Cancel, the client is not called any more.
  void Cancel(LoadId id);
  // While this is false, the client receives no body and the sender is slowed down. True at the start.
  void SetReading(LoadId id, bool reading);

 private:
  class ActiveLoad;

  CorvaneRuntime& corvane_;
  Transport& transport_;
  LoadId lastId_ = 0;
  std::map<LoadId, std::shared_ptr<ActiveLoad>> loads_;
  TaskScope tasks_;
};

}  // namespace host

#endif  // HOST_NETWORK_STACK_H_
