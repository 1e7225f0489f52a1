// The head of a response as the browser gets it, and how its body is framed. Decides only; any thread.
#ifndef LIVE_PROXY_FRONT_RESPONSE_HEAD_H_
#define LIVE_PROXY_FRONT_RESPONSE_HEAD_H_

#include <cstdint>
#include <string>

#include "net/http/http_response_headers.h"

namespace live {

enum class Framing { NoBody, Length, Chunked, UntilClose };

struct ResponseHead {
  std::string text;  // with the empty line at its end
  Framing framing = Framing::NoBody;
  int64_t length = 0;      // of the body, for Framing::Length
  bool keepAlive = false;  // the connection lives on after the response
};

// `keepAlive`: what the request and the connection's state allow.
ResponseHead MakeResponseHead(const net::HttpResponseHeaders& headers, const std::string& method, bool http10,
                              bool keepAlive);

// A response with a status of 1xx, as it is passed on; empty for those that must not be.
std::string MakeInformationalHead(const net::HttpResponseHeaders& headers);

// A response of the proxy's own that says what is wrong: "What" is a sentence.
std::string MakeErrorPage(int status, const std::string& what, const std::string& method, bool keepAlive,
                          const std::string& headerLines = "");

}  // namespace live

#endif  // LIVE_PROXY_FRONT_RESPONSE_HEAD_H_
