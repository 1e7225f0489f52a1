// TLS in a server's place. Loop's thread.
#ifndef LIVE_PROXY_FRONT_TLS_SERVER_STREAM_H_
#define LIVE_PROXY_FRONT_TLS_SERVER_STREAM_H_

#include <openssl/ssl.h>

#include <functional>
#include <memory>
#include <string>

#include "live/proxy/front/stream.h"

namespace live {

// Reads and writes the socket itself, without the buffers of 17 kB that each way of Asio's stream has:
// browsers keep many connections that are idle.
class TlsServerStream final : public Stream {
 public:
  // `read`: bytes that the client has sent already. Throws std::bad_alloc when there is no memory.
  TlsServerStream(Socket socket, SSL_CTX* context, std::string read);
  ~TlsServerStream() override;
  TlsServerStream(const TlsServerStream&) = delete;
  TlsServerStream& operator=(const TlsServerStream&) = delete;

  // Comes first. `done` is as for reading.
  void Accept(std::function<void(const Error& error)> done);

  void ReadSome(boost::asio::mutable_buffer buffer, Done done) override;
  void Write(boost::asio::const_buffer buffer, Done done) override;
  // The peer's own end is not waited for: whoever reads will see it.
  void EndSending(Done done) override;
  Socket& Tcp() override { return socket_; }

 private:
  struct Wire;
  using Step = std::function<int()>;  // one of OpenSSL's functions, called until it is through

  static BIO_METHOD* WireMethod();
  static int ReadWire(BIO* bio, char* bytes, int size);
  static int WriteWire(BIO* bio, const char* bytes, int size);
  void Try(Step step, Done done);

  Socket socket_;
  std::unique_ptr<Wire> wire_;
  std::unique_ptr<SSL, decltype(&SSL_free)> tls_;
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_TLS_SERVER_STREAM_H_
