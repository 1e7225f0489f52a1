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

  // Replaces the value of the header of that name where it stands (keeping the spelling of the name that is
  // there), or appends the header.
  void SetHeader(base::StringPiece name, base::StringPiece value);

  // Sets every header of a block of CRLF-separated lines. Blanks around values are dropped; lines without a
  // colon or without a name are ignored.
  void AddHeadersFromString(base::StringPiece block);

  // Writes the value of the header to `out`; false, leaving `out` alone, when there is no such header.
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
