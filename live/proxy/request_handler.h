// The interface between the part of the proxy that speaks HTTP with the browser and the part that decides
// where the responses come from. Loop's thread.
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

// Answers requests. The client is called for the response, for each piece of its body, and at the end, but
// never from inside these functions. A result other than kOk means that there is no response or, if there was
// one already, that it is incomplete and must not look complete to the browser. Responses have no headers of
// one connection, and declare the length that the server declared, or none.
class RequestHandler {
 public:
  virtual ~RequestHandler() = default;

  // The client must live until OnDone or Cancel.
  virtual host::LoadId Start(const BrowserRequest& request, host::LoadClient& client) = 0;
  // The browser has cancelled the load. The client is not called any more.
  virtual void Cancel(host::LoadId id) = 0;
  // While false, the client gets no body.
  virtual void SetReading(host::LoadId id, bool reading) = 0;

  // For a request that is carried by a tunnel instead (an upgrade to WebSocket): a rule for the addresses
  // ("192.0.2.1", "2001:db8::1") to which the tunnel may lead. Empty for any address.
  virtual AddressRule AddressesFor(const BrowserRequest& /*request*/) { return {}; }
};

}  // namespace live

#endif  // LIVE_PROXY_REQUEST_HANDLER_H_
