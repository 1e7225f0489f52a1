#include "tests/live/support/raw_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tests {

RawClient::RawClient(int port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) read_ = "(refused)";
  const timeval limit{.tv_sec = 10};
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

RawClient::~RawClient() {
  Close(false);
}

void RawClient::Send(const std::string& bytes) const {
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t count = send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return;
    sent += static_cast<size_t>(count);
  }
}

void RawClient::EndSending() const {
  shutdown(socket_, SHUT_WR);
}

void RawClient::Close(bool reset) {
  if (socket_ < 0) return;
  const linger now = {.l_onoff = 1, .l_linger = 0};
  if (reset) setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  close(std::exchange(socket_, -1));
}

std::string RawClient::ReadUntil(const std::string& end) {
  size_t found = std::string::npos;
  while (end.empty() || (found = read_.find(end)) == std::string::npos) {
    char buffer[65536];
    const ssize_t count = recv(socket_, buffer, sizeof buffer, 0);
    if (count > 0) {
      read_.append(buffer, static_cast<size_t>(count));
      continue;
    }
    if (count < 0) read_ += errno == EAGAIN ? "(late)" : "(reset)";
    return std::exchange(read_, {});
  }
  std::string taken = read_.substr(0, found + end.size());
  read_.erase(0, taken.size());
  return taken;
}

}  // namespace tests
