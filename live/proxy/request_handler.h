// The seam of the proxy: on one side what speaks HTTP with the browser, on the other side what decides where
// the responses come from. Loop's thread.
#ifndef LIVE_PROXY_REQUEST_HANDLER_H_
#define LIVE_PROXY_REQUEST_HANDLER_H_

#include <functional>
#include <memory>
#include <string>

#include "host/network_stack.h"

namespace live {

// One request of the browser, as it came through the proxy.
struct BrowserRequest {
  std::string method;
  std::string url;      // absolute, http or https
  std::string headers;  // header lines as text, without those of one connection and without Host
  std::shared_ptr<host::UploadBody> body;  // null for none
};

using AddressRule = std::function<bool(const std::string& address)>;

// Answers requests. The client hears the response, its body as it comes, and the end, never from inside these
// calls; a result other than kOk before the response means that there is none, and after it that the response
// is cut: it must not look complete to the browser. Responses have no headers of one connection; of their
// length they declare what the server has declared, or nothing.
class RequestHandler {
 public:
  virtual ~RequestHandler() = default;

  // The client must live until OnDone or Cancel.
  virtual host::LoadId Start(const BrowserRequest& request, host::LoadClient& client) = 0;
  // The browser has given the load up: the client hears nothing more.
  virtual void Cancel(host::LoadId id) = 0;
  // While false, the client gets no body.
  virtual void SetReading(host::LoadId id, bool reading) = 0;

  // For a request that does not come this way, because a tunnel carries it (an upgrade to WebSocket): to
  // which addresses ("192.0.2.1", "2001:db8::1") the tunnel may lead. Empty: to any.
  virtual AddressRule AddressesFor(const BrowserRequest& /*request*/) { return {}; }
};

}  // namespace live

#endif  // LIVE_PROXY_REQUEST_HANDLER_H_
