// A server that does what the test says, byte by byte: each connection is answered on a thread of its own, so
// that it can stall, lie and hang up. Any thread.
#ifndef TESTS_LIVE_SUPPORT_SCRIPTED_SERVER_H_
#define TESTS_LIVE_SUPPORT_SCRIPTED_SERVER_H_

#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tests {

// One connection, on its thread.
class Connection {
 public:
  explicit Connection(int socket) : socket_(socket) {}

  // The next request: its head up to the empty line, and as much body as its Content-Length says, or its
  // chunks as they came. Empty when the client has closed.
  std::string ReadRequest();
  // More bytes that the client sends, at least one; empty when it has closed.
  std::string ReadSome();
  // False when the client is gone.
  bool Write(const std::string& bytes);
  void Pause(int ms);
  // An end in the middle of everything, instead of an orderly one.
  void Reset();

 private:
  int socket_;
  std::string read_;
};

class ScriptedServer {
 public:
  // `serve` is called for each connection that is accepted.
  explicit ScriptedServer(std::function<void(Connection&)> serve);
  // Closes every connection and waits for their threads.
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  int Port() const { return port_; }
  std::string Url(const std::string& path = "/") const;
  int ConnectionCount() const { return accepted_; }

 private:
  void Accept();

  const std::function<void(Connection&)> serve_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<int> accepted_ = 0;
  std::mutex mutex_;  // for the next two
  std::list<int> sockets_;
  std::list<std::thread> threads_;
  std::thread acceptor_;
};

// Answers requests for "/1000" with 1000 bytes and others with 404, one after the other, until the client
// closes.
void ServeBySize(Connection& connection);

// "HTTP/1.1 200 OK" with these header lines (each with its CRLF) and body.
std::string OkResponse(const std::string& headers, const std::string& body);

}  // namespace tests

#endif  // TESTS_LIVE_SUPPORT_SCRIPTED_SERVER_H_
