// The headers of a response, held as the raw block that came in.
#ifndef NET_HTTP_HTTP_RESPONSE_HEADERS_H_
#define NET_HTTP_HTTP_RESPONSE_HEADERS_H_

#include <cstdint>
#include <string>

namespace net {

class HttpResponseHeaders {
 public:
  // `raw`: the status line and the header lines, each ended by a NUL byte, and one more NUL at the end. Any
  // bytes are taken; what does not parse is simply not found.
  explicit HttpResponseHeaders(const std::string& raw);
  ~HttpResponseHeaders();

  // The block byte for byte.
  const std::string& raw_headers() const;

  // The status code; -1 when the first line is no status line.
  int response_code() const;

  // The declared body length in bytes; -1 when there is none or it is no plain non-negative decimal number
  // that fits (a sign, a blank inside, a list). The first Content-Length line decides.
  int64_t GetContentLength() const;

 private:
  std::string raw_;
  int responseCode_;
};

}  // namespace net

#endif  // NET_HTTP_HTTP_RESPONSE_HEADERS_H_
