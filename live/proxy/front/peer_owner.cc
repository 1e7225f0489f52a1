#include "live/proxy/front/peer_owner.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace live {
namespace {

using boost::asio::ip::tcp;

void CopyAddress(const boost::asio::ip::address& address, __be32 (&out)[4]) {
  if (address.is_v4()) {
    const auto bytes = address.to_v4().to_bytes();
    std::memcpy(out, bytes.data(), bytes.size());
  } else {
    const auto bytes = address.to_v6().to_bytes();
    std::memcpy(out, bytes.data(), bytes.size());
  }
}

}  // namespace

std::optional<uid_t> OwnerOfPeer(const tcp::endpoint& peer, const tcp::endpoint& own) {
  struct {
    nlmsghdr header;
    inet_diag_req_v2 body;
  } request{};
  request.header = {
      .nlmsg_len = sizeof request, .nlmsg_type = SOCK_DIAG_BY_FAMILY, .nlmsg_flags = NLM_F_REQUEST};
  request.body.sdiag_family = peer.address().is_v4() ? AF_INET : AF_INET6;
  request.body.sdiag_protocol = IPPROTO_TCP;
  request.body.idiag_states = ~0U;
  inet_diag_sockid& id = request.body.id;
  id.idiag_sport = htons(peer.port());
  id.idiag_dport = htons(own.port());
  CopyAddress(peer.address(), id.idiag_src);
  CopyAddress(own.address(), id.idiag_dst);
  id.idiag_cookie[0] = id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;

  const int netlink = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
  if (netlink < 0) return std::nullopt;
  alignas(nlmsghdr) char answer[4096];
  ssize_t size = -1;
  // The kernel answers within the call of send.
  if (send(netlink, &request, sizeof request, 0) >= 0)
    size = recv(netlink, answer, sizeof answer, MSG_DONTWAIT);
  close(netlink);
  if (size < static_cast<ssize_t>(NLMSG_LENGTH(sizeof(inet_diag_msg)))) return std::nullopt;
  nlmsghdr header;
  std::memcpy(&header, answer, sizeof header);
  if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY) return std::nullopt;
  inet_diag_msg message;
  std::memcpy(&message, answer + NLMSG_HDRLEN, sizeof message);
  return message.idiag_uid;
}

}  // namespace live
