// Which user's process is at the other end of a connection within this machine. Loop's thread.
#ifndef LIVE_PROXY_FRONT_PEER_OWNER_H_
#define LIVE_PROXY_FRONT_PEER_OWNER_H_

#include <sys/types.h>

#include <boost/asio/ip/tcp.hpp>
#include <optional>

namespace live {

// The user whose socket is bound to `peer` and connected to `own`; nothing if there is no such socket (any
// more) or the kernel does not say. This asks the kernel for the one socket over netlink, which took 10 to 50
// us. Reading /proc/net/tcp took 8 ms on the same machine with two open sockets, because the kernel walks its
// whole table.
std::optional<uid_t> OwnerOfPeer(const boost::asio::ip::tcp::endpoint& peer,
                                 const boost::asio::ip::tcp::endpoint& own);

}  // namespace live

#endif  // LIVE_PROXY_FRONT_PEER_OWNER_H_
