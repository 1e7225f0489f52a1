// Where connections lead: not back to the proxy itself, and elsewhere when the user says so. Any thread.
#ifndef LIVE_PROXY_FRONT_OWN_ADDRESS_H_
#define LIVE_PROXY_FRONT_OWN_ADDRESS_H_

#include <boost/asio/ip/tcp.hpp>
#include <string>
#include <vector>

#include "live/proxy/front/request_head.h"

namespace live {

// Whether a connection to `target` would come back to the socket that listens at `self`.
bool LeadsTo(const boost::asio::ip::tcp::endpoint& target, const boost::asio::ip::tcp::endpoint& self);
// The same as far as the name tells: "localhost" and numeric addresses.
bool LeadsTo(const HostPort& target, const boost::asio::ip::tcp::endpoint& self);

// The first rule "NAME:PORT:ADDRESS:PORT" that fits says where the target is; itself when none does. An empty
// part means any name, any port, or the same one.
HostPort Redirected(const HostPort& target, const std::vector<std::string>& rules);

}  // namespace live

#endif  // LIVE_PROXY_FRONT_OWN_ADDRESS_H_
