// One end of a connection: bytes over TCP, with TLS or without. Loop's thread.
#ifndef LIVE_PROXY_FRONT_STREAM_H_
#define LIVE_PROXY_FRONT_STREAM_H_

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <cstddef>
#include <functional>
#include <memory>

namespace live {

using Socket = boost::asio::ip::tcp::socket;
using Error = boost::system::error_code;

// One read and one write may be running at the same time. Their `done` must keep the stream and the buffer
// alive. It is called exactly once, never from inside these functions.
class Stream {
 public:
  using Done = std::function<void(const Error& error, size_t count)>;

  virtual ~Stream() = default;

  virtual void ReadSome(boost::asio::mutable_buffer buffer, Done done) = 0;
  virtual void Write(boost::asio::const_buffer buffer, Done done) = 0;  // all of it
  // Tells the peer that nothing more will be sent. Reading continues. No write may be running.
  virtual void EndSending(Done done) = 0;
  virtual Socket& Tcp() = 0;

  // Ends both directions and running operations. With `reset` the peer sees an error instead of an orderly
  // end.
  void Close(bool reset);
};

std::unique_ptr<Stream> MakePlainStream(Socket socket);

}  // namespace live

#endif  // LIVE_PROXY_FRONT_STREAM_H_
