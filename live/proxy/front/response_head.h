// The head of a response for the browser, and how its body is framed. Pure functions; any thread.
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
  bool keepAlive = false;  // the connection stays open after the response
};

// `keepAlive` says whether the request and the state of the connection permit keeping it open.
ResponseHead MakeResponseHead(const net::HttpResponseHeaders& headers, const std::string& method, bool http10,
                              bool keepAlive);

// A response with a status of 1xx, as it is passed on; empty if it must not be passed on.
std::string MakeInformationalHead(const net::HttpResponseHeaders& headers);

// A response by the proxy itself that says what is wrong, as a sentence.
std::string MakeErrorPage(int status, const std::string& what, const std::string& method, bool keepAlive,
                          const std::string& headerLines = "");

}  // namespace live

#endif  // LIVE_PROXY_FRONT_RESPONSE_HEAD_H_
