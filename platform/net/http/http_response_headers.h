// The headers of a response, stored as the raw block that was received.
#ifndef NET_HTTP_HTTP_RESPONSE_HEADERS_H_
#define NET_HTTP_HTTP_RESPONSE_HEADERS_H_

#include <cstdint>
#include <string>

namespace net {

class HttpResponseHeaders {
 public:
  // `raw` is the status line and the header lines, each followed by a NUL byte, and one more NUL. It may have
  // any bytes; what cannot be parsed is not found.
  explicit HttpResponseHeaders(const std::string& raw);
  ~HttpResponseHeaders();

  // Returns the unchanged block.
  const std::string& raw_headers() const;

  // Returns the status code, or -1 if the first line is not a status line.
  int response_code() const;

  // Returns the declared body length in bytes, or -1 if there is none or it is not a plain decimal number
  // that fits (it has a sign, a blank or a comma). The first Content-Length line decides.
  int64_t GetContentLength() const;

 private:
  std::string raw_;
  int responseCode_;
};

}  // namespace net

#endif  // NET_HTTP_HTTP_RESPONSE_HEADERS_H_
