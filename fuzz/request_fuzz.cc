// Any bytes as what a browser sends: what is taken as a request means one thing only, and says nothing to the
// server that belongs to the connection.
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "fuzz/check.h"
#include "host/http/connection_headers.h"
#include "host/http/header_block.h"
#include "live/proxy/front/request_head.h"
#include "url/gurl.h"

namespace {

namespace beast = boost::beast;
using live::RequestHead;

// Nothing when the bytes are no whole head, or one that is refused.
std::optional<RequestHead> Read(const std::string& bytes, const live::HeadRules& rules) {
  beast::http::request_parser<beast::http::empty_body> parser;
  parser.body_limit(boost::none);
  beast::error_code error;
  size_t taken = 0;
  while (!error && !parser.is_header_done()) {
    taken += parser.put(boost::asio::buffer(bytes.data() + taken, bytes.size() - taken), error);
  }
  if (!parser.is_header_done()) return std::nullopt;
  const auto read = live::ReadRequestHead(parser.get().base(), rules);
  if (const auto* const refusal = std::get_if<live::Refusal>(&read)) {
    FUZZ_CHECK(refusal->status >= 400 && refusal->status < 600 && !refusal->why.empty());
    return std::nullopt;
  }
  return std::get<RequestHead>(read);
}

void CheckRequest(const RequestHead& request) {
  FUZZ_CHECK(live::ParseHostPort(live::ToText(request.target, 0), 0)->host == request.target.host);
  FUZZ_CHECK(request.hasBody || request.bodyLength == 0);
  http::ForEachHeader(request.headers, [](std::string_view name, std::string_view value) {
    FUZZ_CHECK(!http::IsOfOneConnection(name));
    FUZZ_CHECK(!net::EqualsIgnoringCase(name, "host") && !net::EqualsIgnoringCase(name, "content-length"));
    FUZZ_CHECK(value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos);
  });
  if (request.kind == RequestHead::Kind::Connect) {
    FUZZ_CHECK(request.target.port == 443 || request.target.port == 80);
    return;
  }
  const GURL url(request.url);
  FUZZ_CHECK(url.is_valid() && url.EffectiveIntPort() == request.target.port);
  FUZZ_CHECK(url.host() == live::ToText({.host = request.target.host}, 0));
}

// What goes on is read in the same way by the next one.
void CheckReadAgain(const RequestHead& request) {
  if (request.kind == RequestHead::Kind::Connect) return;
  std::string again = request.method + " " + request.url + " HTTP/1.1\r\nHost: x\r\n" + request.headers;
  if (request.hasBody) {
    again += request.bodyLength < 0 ? "Transfer-Encoding: chunked\r\n"
                                    : "Content-Length: " + std::to_string(request.bodyLength) + "\r\n";
  }
  const auto same = Read(again + "\r\n", {});
  FUZZ_CHECK(same.has_value());
  FUZZ_CHECK(same->method == request.method && same->url == request.url && same->headers == request.headers);
  FUZZ_CHECK(same->hasBody == request.hasBody && same->bodyLength == request.bodyLength);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(data, data + size);
  if (const auto request = Read(bytes, {})) {
    CheckRequest(*request);
    CheckReadAgain(*request);
  }
  if (const auto request = Read(bytes, {.secureOrigin = "https://a.test"})) {
    CheckRequest(*request);
    FUZZ_CHECK(request->url.starts_with("https://a.test/"));
  }
  return 0;
}
