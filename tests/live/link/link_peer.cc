// Both ends of a small protocol over TCP, for the tests of kiv_link: the client sends a number of bytes to
// ask for, as text on a line, and the server sends as many. `link_peer serve ADDRESS PORT` serves one
// connection after the other. `link_peer fetch ADDRESS PORT BYTES` prints as JSON how long it took to
// connect, to get a single byte and to get BYTES, in milliseconds.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

[[noreturn]] void Fail(const char* what) {
  perror(what);
  exit(1);
}

int Socket() {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  const int on = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  return socket;
}

void SendAll(int socket, const std::string& text) {
  for (size_t at = 0; at < text.size();) {
    const ssize_t sent = send(socket, text.data() + at, text.size() - at, MSG_NOSIGNAL);
    if (sent < 0) return;  // the client has gone
    at += static_cast<size_t>(sent);
  }
}

void Serve(const sockaddr_in& address) {
  const int listener = Socket();
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) Fail("bind");
  if (listen(listener, 16) != 0) Fail("listen");
  while (true) {
    FILE* const connection = fdopen(accept(listener, nullptr, nullptr), "r");
    if (connection == nullptr) Fail("accept");
    unsigned long long bytes = 0;
    while (fscanf(connection, "%llu", &bytes) == 1) SendAll(fileno(connection), std::string(bytes, 'x'));
    fclose(connection);
  }
}

void Get(int socket, size_t bytes) {
  SendAll(socket, std::to_string(bytes) + "\n");
  std::vector<char> buffer(65536);
  while (bytes > 0) {
    const ssize_t size = recv(socket, buffer.data(), std::min(buffer.size(), bytes), 0);
    if (size <= 0) Fail("recv");
    bytes -= static_cast<size_t>(size);
  }
}

template <typename Work>
double MillisecondsOf(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

void Fetch(const sockaddr_in& address, size_t bytes) {
  const int socket = Socket();
  const double connectMs = MillisecondsOf([&] {
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) Fail("connect");
  });
  const double byteMs = MillisecondsOf([&] { Get(socket, 1); });
  const double bytesMs = MillisecondsOf([&] { Get(socket, bytes); });
  printf(R"({"connect": %f, "byte": %f, "bytes": %f})", connectMs, byteMs, bytesMs);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv, argv + argc);
  if (arguments.size() < 4) return 2;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(std::stoi(arguments[3])));
  inet_pton(AF_INET, arguments[2].c_str(), &address.sin_addr);
  if (arguments[1] == "serve") Serve(address);
  if (arguments[1] == "fetch") Fetch(address, std::stoul(arguments.at(4)));
}
