#include "net/http/http_request_headers.h"

#include <algorithm>

#include "net/http/header_text.h"

namespace net {

const char HttpRequestHeaders::kGetMethod[] = "GET";

HttpRequestHeaders::HttpRequestHeaders() = default;
HttpRequestHeaders::~HttpRequestHeaders() = default;
HttpRequestHeaders::HttpRequestHeaders(const HttpRequestHeaders&) = default;
HttpRequestHeaders& HttpRequestHeaders::operator=(const HttpRequestHeaders&) = default;

void HttpRequestHeaders::SetHeader(base::StringPiece name, base::StringPiece value) {
  const auto header = std::find_if(headers_.begin(), headers_.end(),
                                   [name](const Header& h) { return EqualsIgnoringCase(h.name, name); });
  if (header != headers_.end()) {
    header->value = value;
  } else {
    headers_.push_back({std::string(name), std::string(value)});
  }
}

void HttpRequestHeaders::AddHeadersFromString(base::StringPiece block) {
  base::StringPiece name, value;
  while (TakeHeader(block, kRequestLineEnd, name, value)) SetHeader(name, value);
}

bool HttpRequestHeaders::GetHeader(base::StringPiece name, std::string* out) const {
  for (const Header& header : headers_) {
    if (!EqualsIgnoringCase(header.name, name)) continue;
    *out = header.value;
    return true;
  }
  return false;
}

std::string HttpRequestHeaders::ToString() const {
  std::string text;
  for (const Header& header : headers_) {
    text += header.name;
    text += header.value.empty() ? ":" : ": ";
    text += header.value;
    text += "\r\n";
  }
  text += "\r\n";
  return text;
}

}  // namespace net
