#include "net/http/http_response_headers.h"

#include <charconv>
#include <optional>

#include "net/http/header_text.h"

namespace net {
namespace {

// Only decimal digits; from_chars alone would accept a minus sign.
template <typename Number>
std::optional<Number> PlainNumber(base::StringPiece text) {
  Number value = 0;
  if (text.empty() || text.front() < '0' || text.front() > '9') return std::nullopt;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

// "HTTP/1.1 200 OK" gives 200.
int StatusCode(base::StringPiece raw) {
  const base::StringPiece line = raw.substr(0, raw.find('\0'));
  const size_t blank = line.find(' ');
  if (blank == base::StringPiece::npos || !EqualsIgnoringCase(line.substr(0, 5), "HTTP/")) return -1;
  const base::StringPiece rest = TrimBlanks(line.substr(blank));
  return PlainNumber<int>(rest.substr(0, rest.find(' '))).value_or(-1);
}

}  // namespace

HttpResponseHeaders::HttpResponseHeaders(const std::string& raw)
    : raw_(raw), responseCode_(StatusCode(raw_)) {}
HttpResponseHeaders::~HttpResponseHeaders() = default;

const std::string& HttpResponseHeaders::raw_headers() const {
  return raw_;
}

int HttpResponseHeaders::response_code() const {
  return responseCode_;
}

int64_t HttpResponseHeaders::GetContentLength() const {
  base::StringPiece rest = raw_, name, value;
  while (TakeHeader(rest, kResponseLineEnd, name, value)) {
    if (EqualsIgnoringCase(name, "Content-Length")) return PlainNumber<int64_t>(value).value_or(-1);
  }
  return -1;
}

}  // namespace net
