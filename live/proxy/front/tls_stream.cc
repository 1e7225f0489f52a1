#include "live/proxy/front/tls_stream.h"

#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <utility>

namespace live {
namespace {

namespace asio = boost::asio;

class TlsStream final : public Stream {
 public:
  explicit TlsStream(std::unique_ptr<TlsSocket> socket) : socket_(std::move(socket)) {}

  void ReadSome(asio::mutable_buffer buffer, Done done) override {
    socket_->async_read_some(buffer, std::move(done));
  }
  void Write(asio::const_buffer buffer, Done done) override {
    asio::async_write(*socket_, buffer, std::move(done));
  }
  // The peer's own end is not waited for: whoever reads will see it.
  void EndSending(Done done) override {
    socket_->async_shutdown([done](const Error&) {});
    asio::post(socket_->get_executor(), [done = std::move(done)] { done({}, 0); });
  }
  Socket& Tcp() override { return socket_->next_layer(); }

 private:
  const std::unique_ptr<TlsSocket> socket_;
};

}  // namespace

std::unique_ptr<Stream> MakeTlsStream(std::unique_ptr<TlsSocket> socket) {
  return std::make_unique<TlsStream>(std::move(socket));
}

}  // namespace live
