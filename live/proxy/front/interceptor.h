// What the proxy needs to act as a server: for which servers it does, with which certificates, and how it
// verifies the real ones. Loop's thread.
#ifndef LIVE_PROXY_FRONT_INTERCEPTOR_H_
#define LIVE_PROXY_FRONT_INTERCEPTOR_H_

#include <boost/asio/ssl/context.hpp>
#include <ctime>
#include <memory>
#include <string>

#include "host/recency_map.h"
#include "live/proxy/front/front_settings.h"

namespace live {

using TlsContext = std::shared_ptr<boost::asio::ssl::context>;

class Interceptor {
 public:
  // Throws std::runtime_error if the authorities of the servers cannot be read.
  explicit Interceptor(const FrontSettings& settings);

  bool Intercepts(const std::string& host) const;
  // Its clients refuse our certificates, or it wants theirs: this host is tunnelled from now on. The latest
  // thousand hosts are remembered.
  void Except(const std::string& host);

  // The context for a TLS server with that name. Its certificate is valid for at least a day.
  TlsContext ForBrowser(const std::string& host);
  // The context for TLS clients, which verify the server.
  TlsContext ForServers() const { return servers_; }

 private:
  struct Made {
    TlsContext context;
    std::time_t when = 0;
  };

  const FrontSettings settings_;
  const TlsContext servers_;
  host::RecencyMap<std::string, Made> made_;
  host::RecencyMap<std::string, bool> exceptions_;
};

// Whether it is the alert of a client that does not accept our certificate.
bool IsCertificateRefusal(const boost::system::error_code& error);

}  // namespace live

#endif  // LIVE_PROXY_FRONT_INTERCEPTOR_H_
