// An ordered set of request headers whose names compare without regard to case.
#ifndef NET_HTTP_HTTP_REQUEST_HEADERS_H_
#define NET_HTTP_HTTP_REQUEST_HEADERS_H_

#include <string>
#include <vector>

#include "base/strings/string_piece.h"

namespace net {

class HttpRequestHeaders {
 public:
  // The method name "GET".
  static const char kGetMethod[];

  HttpRequestHeaders();
  ~HttpRequestHeaders();
  HttpRequestHeaders(const HttpRequestHeaders&);
  HttpRequestHeaders& operator=(const HttpRequestHeaders&);

  // Replaces the value of the header with that name, keeping its position and the spelling of its name, or
  // appends the header.
  void SetHeader(base::StringPiece name, base::StringPiece value);

  // Sets every header of a block of lines separated by CRLF. Removes blanks around values, and ignores lines
  // without a colon or a name.
  void AddHeadersFromString(base::StringPiece block);

  // Copies the value of the header to `out`. Returns false and leaves `out` unchanged if there is none.
  bool GetHeader(base::StringPiece name, std::string* out) const;

  // "Name: value" CRLF for each header ("Name:" CRLF for an empty value), then one empty CRLF line.
  std::string ToString() const;

 private:
  struct Header {
    std::string name;
    std::string value;
  };

  std::vector<Header> headers_;
};

}  // namespace net

#endif  // NET_HTTP_HTTP_REQUEST_HEADERS_H_
