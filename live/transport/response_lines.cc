#include "live/transport/response_lines.h"

#include <charconv>
#include <utility>

#include "host/http/connection_headers.h"
#include "host/http/lists.h"
#include "net/http/header_text.h"

namespace live {

bool ResponseLines::Add(std::string_view line) {
  bytes_ += line.size();
  if (bytes_ > maxBytes_ || line.find('\0') != std::string_view::npos) return false;
  while (line.ends_with('\n') || line.ends_with('\r')) line.remove_suffix(1);
  if (final_) return true;
  if (!inBlock_) return AddStatusLine(line);
  if (line.empty()) {
    EndBlock();
    return true;
  }
  if (line.front() == ' ' || line.front() == '\t') {  // goes on with the line before
    if (lastIsKept_) headers_.back().append(" ").append(net::TrimBlanks(line));
    return true;
  }
  const size_t colon = line.find(':');
  lastIsKept_ = false;
  const std::string_view name = line.substr(0, colon);
  // A name with a blank is no name, and must not become one ("Content-Length : 5") where somebody trims it.
  if (colon == std::string_view::npos || name.empty() || name.find_first_of(" \t") != name.npos) return true;
  return AddHeader(name, net::TrimBlanks(line.substr(colon + 1)));
}

bool ResponseLines::AddStatusLine(std::string_view line) {
  const size_t blank = line.find(' ');
  if (!line.starts_with("HTTP/") || blank == std::string_view::npos) return false;
  const std::string_view rest = net::TrimBlanks(line.substr(blank));
  const std::string_view code = rest.substr(0, rest.find(' '));
  const auto [end, error] = std::from_chars(code.data(), code.data() + code.size(), status_);
  if (error != std::errc() || end != code.data() + code.size() || status_ < 100 || status_ > 999)
    return false;
  lines_ = "HTTP/1.1 ";
  lines_.append(rest).push_back('\0');
  headers_.clear();
  connection_.clear();
  inBlock_ = true;
  lastIsKept_ = false;
  chunked_ = false;
  length_.reset();
  return true;
}

bool ResponseLines::AddHeader(std::string_view name, std::string_view value) {
  if (net::EqualsIgnoringCase(name, "transfer-encoding")) chunked_ = true;
  if (net::EqualsIgnoringCase(name, "content-length")) {
    const bool same = !length_ || *length_ == value;
    length_ = value;
    return same;
  }
  if (net::EqualsIgnoringCase(name, "connection")) connection_.append(value).push_back(',');
  lastIsKept_ = !http::IsOfOneConnection(name);
  if (lastIsKept_) headers_.push_back(std::string(name).append(": ").append(value));
  return true;
}

void ResponseLines::EndBlock() {
  for (const std::string& header : headers_) {
    const std::string_view name = std::string_view(header).substr(0, header.find(':'));
    if (!http::ListHas(connection_, name)) lines_.append(header).push_back('\0');
  }
  if (length_ && !chunked_) lines_.append("Content-Length: ").append(*length_).push_back('\0');
  lines_.push_back('\0');
  inBlock_ = false;
  complete_ = true;
  final_ = status_ >= 200;
}

std::optional<std::string> ResponseLines::TakeBlock() {
  if (!std::exchange(complete_, false)) return std::nullopt;
  return std::exchange(lines_, {});
}

}  // namespace live
