// A client that sends any bytes, and hears all that comes. One thread.
#ifndef TESTS_LIVE_SUPPORT_RAW_CLIENT_H_
#define TESTS_LIVE_SUPPORT_RAW_CLIENT_H_

#include <string>

namespace tests {

// Its calls block: where the proxy runs in the same program, on a thread of its own (see FrontTest::Client).
class RawClient {
 public:
  explicit RawClient(int port);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  int Descriptor() const { return socket_; }
  void Send(const std::string& bytes) const;  // what cannot be sent is lost
  void EndSending() const;
  void Close(bool reset);
  // What comes until `end` has come, the proxy closes, or ten seconds have passed.
  std::string ReadUntil(const std::string& end);
  // All that comes until the proxy closes; "(reset)" at its end for no orderly end, "(late)" for none.
  std::string ReadAll() { return ReadUntil(""); }

 private:
  int socket_ = -1;
  std::string read_;
};

}  // namespace tests

#endif  // TESTS_LIVE_SUPPORT_RAW_CLIENT_H_
