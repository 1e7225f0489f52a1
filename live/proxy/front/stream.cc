#include "live/proxy/front/stream.h"

#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <utility>

namespace live {
namespace {

namespace asio = boost::asio;

class PlainStream final : public Stream {
 public:
  explicit PlainStream(Socket socket) : socket_(std::move(socket)) {}

  void ReadSome(asio::mutable_buffer buffer, Done done) override {
    socket_.async_read_some(buffer, std::move(done));
  }
  void Write(asio::const_buffer buffer, Done done) override {
    asio::async_write(socket_, buffer, std::move(done));
  }
  void EndSending(Done done) override {
    Error error;
    socket_.shutdown(Socket::shutdown_send, error);
    asio::post(socket_.get_executor(), [done = std::move(done), error] { done(error, 0); });
  }
  Socket& Tcp() override { return socket_; }

 private:
  Socket socket_;
};

}  // namespace

void Stream::Close(bool reset) {
  Error ignored;
  if (reset) Tcp().set_option(asio::socket_base::linger(true, 0), ignored);
  Tcp().close(ignored);
}

std::unique_ptr<Stream> MakePlainStream(Socket socket) {
  return std::make_unique<PlainStream>(std::move(socket));
}

}  // namespace live
