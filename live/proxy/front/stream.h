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

// One read and one write may be under way at a time. What they are given as `done` must keep the stream and
// the buffer alive; it is called exactly once, never from inside.
class Stream {
 public:
  using Done = std::function<void(const Error& error, size_t count)>;

  virtual ~Stream() = default;

  virtual void ReadSome(boost::asio::mutable_buffer buffer, Done done) = 0;
  virtual void Write(boost::asio::const_buffer buffer, Done done) = 0;  // all of it
  // Tells the peer that nothing more will be sent. Reading goes on. Nothing may be under way to be written.
  virtual void EndSending(Done done) = 0;
  virtual Socket& Tcp() = 0;

  // Ends both directions, and what is under way. With `reset` the peer sees an error and no orderly end.
  void Close(bool reset);
};

std::unique_ptr<Stream> MakePlainStream(Socket socket);

}  // namespace live

#endif  // LIVE_PROXY_FRONT_STREAM_H_
