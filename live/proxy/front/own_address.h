// Where connections lead: never back to the proxy itself, and elsewhere if the user says so. Any thread.
#ifndef LIVE_PROXY_FRONT_OWN_ADDRESS_H_
#define LIVE_PROXY_FRONT_OWN_ADDRESS_H_

#include <boost/asio/ip/tcp.hpp>
#include <string>
#include <vector>

#include "live/proxy/front/request_head.h"

namespace live {

// Whether a connection to `target` would come back to the socket that listens at `self`.
bool LeadsTo(const boost::asio::ip::tcp::endpoint& target, const boost::asio::ip::tcp::endpoint& self);
// The same, as far as it can be determined from the name: for "localhost" and numeric addresses.
bool LeadsTo(const HostPort& target, const boost::asio::ip::tcp::endpoint& self);

// Applies the first matching rule "NAME:PORT:ADDRESS:PORT" to the target; returns the target itself if none
// matches. An empty part means any name, any port, or the same one.
HostPort Redirected(const HostPort& target, const std::vector<std::string>& rules);

}  // namespace live

#endif  // LIVE_PROXY_FRONT_OWN_ADDRESS_H_
