// The network below the host: what the browser's transactions and the fetcher's preloads are sent with.
#ifndef HOST_TRANSPORT_H_
#define HOST_TRANSPORT_H_

#include <cstdint>
#include <string>

#include "net/http/http_response_headers.h"

namespace host {

using TransferId = uint64_t;

// Results of a transfer: 0 is success, as in the network stack.
inline constexpr int32_t kOk = 0;
inline constexpr int32_t kAborted = -3;

// A preload yields: it gets a socket when no transaction of the browser waits for one, and of the link what
// Transport's owner says. See HostSettings.
enum class Urgency { Browser, Preload };

struct TransferRequest {
  std::string url;
  std::string method;
  std::string headers;  // header lines as text
  Urgency urgency = Urgency::Browser;
  uint64_t tag = 0;  // the embedder's own mark, handed through
};

// Hears of one transfer, on the executor's thread, never from inside Start, SetUrgency or Cancel.
class TransferClient {
 public:
  virtual ~TransferClient() = default;

  virtual void OnResponse(const net::HttpResponseHeaders& headers) = 0;
  virtual void OnBody(const char* bytes, int32_t count) = 0;
  virtual void OnDone(int32_t result) = 0;  // the last call
};

class Transport {
 public:
  virtual ~Transport() = default;

  // The client must live until OnDone or Cancel.
  virtual TransferId Start(const TransferRequest& request, TransferClient& client) = 0;
  virtual void SetUrgency(TransferId id, Urgency urgency) = 0;
  // Ends a transfer; its client hears nothing more.
  virtual void Cancel(TransferId id) = 0;
};

}  // namespace host

#endif  // HOST_TRANSPORT_H_
