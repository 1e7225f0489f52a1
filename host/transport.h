// The network that the host uses for the browser's transactions and the fetcher's preloads.
#ifndef HOST_TRANSPORT_H_
#define HOST_TRANSPORT_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "base/time/time.h"
#include "net/http/http_request_info.h"
#include "net/http/http_response_headers.h"
#include "net/url_request/url_request_context.h"

namespace host {

using TransferId = uint64_t;  // never 0

// Results of a transfer: 0 is success, the others are numbered as the network stack numbers its errors.
inline constexpr int32_t kOk = 0;
inline constexpr int32_t kFailed = -2;
inline constexpr int32_t kAborted = -3;
inline constexpr int32_t kTimedOut = -7;
inline constexpr int32_t kBlocked = -20;  // by who asked, not by the server
inline constexpr int32_t kConnectionClosed = -100;
inline constexpr int32_t kConnectionFailed = -104;
inline constexpr int32_t kNameNotResolved = -105;
inline constexpr int32_t kInvalidResponse = -320;
inline constexpr int32_t kClientCertificateNeeded = -110;
inline constexpr int32_t kEmptyResponse = -324;
inline constexpr int32_t kContentLengthMismatch = -354;
inline constexpr int32_t kHttp2ProtocolError = -337;
inline constexpr int32_t kCertificateError = -207;

// A preload yields: it gets a connection only if no transaction of the browser waits for one, and the share
// of the link that host/link_policy.h decides.
enum class Urgency { Browser, Preload };

// The body of a request, which is read in pieces.
class UploadBody {
 public:
  virtual ~UploadBody() = default;

  // The total number of bytes, or -1 if it is not known before the end.
  virtual int64_t Length() const = 0;
  // Copies up to `size` bytes and returns their number. Returns 0 at the end, -1 if there is nothing yet
  // (then `onReadable` will be called when there is), and -2 if the body will never be complete.
  virtual int64_t Read(char* buffer, size_t size) = 0;

  std::function<void()> onReadable;  // set by the transport
};

struct TransferRequest {
  std::string url;
  std::string method;
  std::string headers;  // header lines as text
  Urgency urgency = Urgency::Browser;
  net::URLRequestContext* context = nullptr;  // not owned; lives as long as the transfer
  int loadFlags = 0;
  net::RequestPriority priority = net::MEDIUM;
  net::HttpRequestInfo::RequestMotivation motivation = net::HttpRequestInfo::NORMAL_MOTIVATION;
  std::shared_ptr<UploadBody> body;  // null for none
  uint64_t requestId = 0;            // the embedder's own id of the load, if it has one
};

// The times of a transfer. What has not happened has a null time.
struct TransferReport {
  base::Time started;  // requested
  base::Time connect;  // its connection set-up began; the same as `sent` when it needed none
  base::Time sent;
  base::Time firstByte;
  base::Time ended;       // complete, failed or cancelled
  int64_t bodyBytes = 0;  // received
  int httpVersion = 0;    // that the server spoke, times ten (11, 20); 0 when that is not known
};

// Receives one transfer, on the executor's thread and never during a call of Transport. Each of these
// functions may start, cancel, pause and hurry transfers, including this one.
class TransferClient {
 public:
  virtual ~TransferClient() = default;

  // A response with a status of 1xx, which precedes the final response.
  virtual void OnInformational(const net::HttpResponseHeaders& /*headers*/) {}
  virtual void OnResponse(const net::HttpResponseHeaders& headers) = 0;
  virtual void OnBody(const char* bytes, int32_t count) = 0;
  // The last call. Success means that the message was complete by its own framing. The client must check
  // whether its length is the declared one.
  virtual void OnDone(int32_t result, const TransferReport& report) = 0;
};

class Transport {
 public:
  virtual ~Transport() = default;

  // The client must live until OnDone or Cancel. Redirects are not followed, and bodies are not decoded.
  virtual TransferId Start(const TransferRequest& request, TransferClient& client) = 0;
  // The following functions ignore unknown ids and finished transfers.
  virtual void SetUrgency(TransferId id, Urgency urgency) = 0;
  // While this is false, the client receives no body and the server is slowed down. True at the start.
  virtual void SetReading(TransferId id, bool reading) = 0;
  // Ends a transfer; its client is not called any more. Returns what was received until now.
  virtual TransferReport Cancel(TransferId id) = 0;

  // Has up to `count` connections for the URL's group, set up or on the way, that no transfer uses. One is
  // all that a group needs whose server multiplexes. `context`: of the page that needs them, for rules about
  // what it may reach; null for none. It need not outlive the call.
  virtual void Preconnect(const std::string& url, size_t count, net::URLRequestContext* context) = 0;
};

}  // namespace host

#endif  // HOST_TRANSPORT_H_
