#include "live/proxy/front/tls_server_stream.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <sys/socket.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/error.hpp>
#include <cerrno>
#include <climits>
#include <new>
#include <utility>

namespace live {
namespace {

namespace asio = boost::asio;

int SizeOf(size_t size) {
  return static_cast<int>(std::min<size_t>(size, INT_MAX));
}

}  // namespace

// Where OpenSSL reads and writes.
struct TlsServerStream::Wire {
  int socket;
  std::string read;  // before what comes from the socket
};

BIO_METHOD* TlsServerStream::WireMethod() {
  static BIO_METHOD* const method = [] {
    BIO_METHOD* const made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "browser");
    if (made == nullptr) throw std::bad_alloc();
    BIO_meth_set_read(made, ReadWire);
    BIO_meth_set_write(made, WriteWire);
    BIO_meth_set_ctrl(
        made, +[](BIO*, int what, long, void*) -> long { return what == BIO_CTRL_FLUSH ? 1 : 0; });
    return made;
  }();
  return method;
}

int TlsServerStream::ReadWire(BIO* bio, char* bytes, int size) {
  auto& wire = *static_cast<Wire*>(BIO_get_data(bio));
  BIO_clear_retry_flags(bio);
  if (size <= 0) return 0;
  if (!wire.read.empty()) {
    const size_t count = wire.read.copy(bytes, static_cast<size_t>(size));
    wire.read.erase(0, count);
    if (wire.read.empty()) wire.read.shrink_to_fit();
    return static_cast<int>(count);
  }
  const ssize_t count = recv(wire.socket, bytes, static_cast<size_t>(size), 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_read(bio);
  return static_cast<int>(count);
}

int TlsServerStream::WriteWire(BIO* bio, const char* bytes, int size) {
  const auto& wire = *static_cast<const Wire*>(BIO_get_data(bio));
  BIO_clear_retry_flags(bio);
  if (size <= 0) return 0;
  const ssize_t count = send(wire.socket, bytes, static_cast<size_t>(size), MSG_NOSIGNAL);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_write(bio);
  return static_cast<int>(count);
}

TlsServerStream::TlsServerStream(Socket socket, SSL_CTX* context, std::string read)
    : socket_(std::move(socket)),
      wire_(std::make_unique<Wire>(Wire{socket_.native_handle(), std::move(read)})),
      tls_(SSL_new(context), SSL_free) {
  Error ignored;
  socket_.native_non_blocking(true, ignored);
  BIO* const bio = BIO_new(WireMethod());
  if (tls_ == nullptr || bio == nullptr) {
    BIO_free(bio);
    throw std::bad_alloc();
  }
  BIO_set_data(bio, wire_.get());
  BIO_set_init(bio, 1);
  SSL_set_bio(tls_.get(), bio, bio);
  SSL_set_accept_state(tls_.get());
}

TlsServerStream::~TlsServerStream() = default;

void TlsServerStream::Accept(std::function<void(const Error& error)> done) {
  Try([this] { return SSL_do_handshake(tls_.get()); },
      [done = std::move(done)](const Error& error, size_t) { done(error); });
}

void TlsServerStream::ReadSome(asio::mutable_buffer buffer, Done done) {
  Try([this, buffer] { return SSL_read(tls_.get(), buffer.data(), SizeOf(buffer.size())); }, std::move(done));
}

void TlsServerStream::Write(asio::const_buffer buffer, Done done) {
  if (buffer.size() == 0) {
    asio::post(socket_.get_executor(), [done = std::move(done)] { done({}, 0); });
    return;
  }
  const auto whole = [this, buffer, done = std::move(done)](const Error& error, size_t count) {
    if (error || count == buffer.size()) return done(error, count);
    Write(buffer + count, done);
  };
  Try([this, buffer] { return SSL_write(tls_.get(), buffer.data(), SizeOf(buffer.size())); }, whole);
}

void TlsServerStream::EndSending(Done done) {
  const auto shutDown = [this] {
    const int result = SSL_shutdown(tls_.get());
    return result == 0 ? 1 : result;  // the peer has not ended yet
  };
  Try(shutDown, std::move(done));
}

// What OpenSSL says is final, or it is asked again when the socket is ready.
void TlsServerStream::Try(Step step, Done done) {
  if (!socket_.is_open()) {
    asio::post(socket_.get_executor(), [done = std::move(done)] { done(asio::error::bad_descriptor, 0); });
    return;
  }
  ERR_clear_error();
  errno = 0;
  const int result = step();
  const int problem = result > 0 ? SSL_ERROR_NONE : SSL_get_error(tls_.get(), result);
  if (problem == SSL_ERROR_WANT_READ || problem == SSL_ERROR_WANT_WRITE) {
    socket_.async_wait(problem == SSL_ERROR_WANT_READ ? Socket::wait_read : Socket::wait_write,
                       [this, step = std::move(step), done = std::move(done)](const Error& error) mutable {
                         if (error) return done(error, 0);
                         Try(std::move(step), std::move(done));
                       });
    return;
  }
  Error error;
  if (problem == SSL_ERROR_ZERO_RETURN) {
    error = asio::error::eof;
  } else if (problem != SSL_ERROR_NONE) {
    const unsigned long code = ERR_get_error();
    error = code != 0    ? Error(static_cast<int>(code), asio::error::get_ssl_category())
            : errno != 0 ? Error(errno, boost::system::system_category())
                         : Error(asio::ssl::error::stream_truncated);
  }
  asio::post(socket_.get_executor(), [done = std::move(done), error, result] {
    done(error, static_cast<size_t>(std::max(result, 0)));
  });
}

}  // namespace live
