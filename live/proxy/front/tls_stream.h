// A stream over TLS, after the handshake. Loop's thread.
#ifndef LIVE_PROXY_FRONT_TLS_STREAM_H_
#define LIVE_PROXY_FRONT_TLS_STREAM_H_

#include <boost/asio/ssl/stream.hpp>
#include <memory>

#include "live/proxy/front/stream.h"

namespace live {

using TlsSocket = boost::asio::ssl::stream<Socket>;

std::unique_ptr<Stream> MakeTlsStream(std::unique_ptr<TlsSocket> socket);

}  // namespace live

#endif  // LIVE_PROXY_FRONT_TLS_STREAM_H_
