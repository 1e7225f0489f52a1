#include "tests/live/support/scripted_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace tests {

std::string Connection::ReadSome() {
  char buffer[16384];
  const ssize_t count = recv(socket_, buffer, sizeof buffer, 0);
  return count > 0 ? std::string(buffer, static_cast<size_t>(count)) : std::string();
}

std::string Connection::ReadRequest() {
  size_t end = std::string::npos;
  while ((end = read_.find("\r\n\r\n")) == std::string::npos) {
    const std::string more = ReadSome();
    if (more.empty()) return {};
    read_ += more;
  }
  size_t size = end + 4;
  if (read_.find("Transfer-Encoding: chunked") < end) {
    size_t last = 0;
    while ((last = read_.find("0\r\n\r\n", size)) == std::string::npos) {
      const std::string more = ReadSome();
      if (more.empty()) return {};
      read_ += more;
    }
    size = last + 5;
  }
  const size_t length = read_.find("Content-Length: ");
  if (length < end) size += static_cast<size_t>(std::atoll(read_.c_str() + length + 16));
  while (read_.size() < size) {
    const std::string more = ReadSome();
    if (more.empty()) return {};
    read_ += more;
  }
  std::string request = read_.substr(0, size);
  read_.erase(0, size);
  return request;
}

bool Connection::Write(const std::string& bytes) {
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t count = send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

void Connection::Pause(int ms) {
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

void Connection::Reset() {
  const linger now = {.l_onoff = 1, .l_linger = 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

ScriptedServer::ScriptedServer(std::function<void(Connection&)> serve) : serve_(std::move(serve)) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener_, generic, length) != 0 || listen(listener_, 128) != 0 ||
      getsockname(listener_, generic, &length) != 0) {
    throw std::runtime_error("the test's server cannot listen");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { Accept(); });
}

ScriptedServer::~ScriptedServer() {
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  close(listener_);
  {
    const std::lock_guard hold(mutex_);
    for (const int socket : sockets_) shutdown(socket, SHUT_RDWR);
  }
  for (std::thread& thread : threads_) thread.join();
}

std::string ScriptedServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

void ScriptedServer::Accept() {
  while (true) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) return;
    ++accepted_;
    const std::lock_guard hold(mutex_);
    const auto place = sockets_.insert(sockets_.end(), socket);
    threads_.emplace_back([this, place, socket] {
      Connection connection(socket);
      serve_(connection);
      const std::lock_guard closing(mutex_);
      sockets_.erase(place);
      close(socket);
    });
  }
}

void ServeBySize(Connection& connection) {
  for (std::string request = connection.ReadRequest(); !request.empty(); request = connection.ReadRequest()) {
    const size_t begin = request.find(' ') + 2;
    const int size = std::atoi(request.c_str() + begin);
    const bool known = size > 0;
    const std::string response = known ? OkResponse("", std::string(static_cast<size_t>(size), 'x'))
                                       : "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n";
    if (!connection.Write(response)) return;
  }
}

std::string OkResponse(const std::string& headers, const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + headers + "\r\n" +
         body;
}

}  // namespace tests
