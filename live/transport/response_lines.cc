#include "live/transport/response_lines.h"

#include <charconv>
#include <cstdint>
#include <utility>

#include "host/http/connection_headers.h"
#include "host/http/lists.h"
#include "net/http/header_text.h"

namespace live {
namespace {

// Others were not asked for, and libcurl would take some of them off.
bool IsKnownTransferCoding(std::string_view list) {
  bool known = true;
  http::ForEachItem(list, [&known](std::string_view coding) {
    known =
        known && (net::EqualsIgnoringCase(coding, "chunked") || net::EqualsIgnoringCase(coding, "identity"));
  });
  return known;
}

// Digits alone, because others would read another number, or none, out of it.
bool IsLength(std::string_view text) {
  int64_t length = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  return error == std::errc() && end == text.data() + text.size() && length >= 0;
}

// The lines without those that belong to one connection because its Connection header names them.
std::string WithoutNamed(const std::string& lines, std::string_view connection) {
  std::string kept;
  for (size_t begin = 0; begin < lines.size();) {
    const size_t end = lines.find('\0', begin) + 1;
    const std::string_view line(lines.data() + begin, end - begin);
    const bool isHeader = begin > 0;
    if (!isHeader || !http::ListHas(connection, line.substr(0, line.find(':')))) kept += line;
    begin = end;
  }
  return kept;
}

}  // namespace

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
    if (!lastIsKept_) return true;
    lines_.pop_back();
    lines_.append(" ").append(net::TrimBlanks(line)).push_back('\0');
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
  inBlock_ = true;
  lastIsKept_ = false;
  chunked_ = false;
  connection_.clear();
  length_.reset();
  return true;
}

bool ResponseLines::AddHeader(std::string_view name, std::string_view value) {
  if (net::EqualsIgnoringCase(name, "transfer-encoding")) {
    chunked_ = true;
    if (!IsKnownTransferCoding(value)) return false;
  }
  if (net::EqualsIgnoringCase(name, "connection")) connection_.append(value).append(",");
  if (net::EqualsIgnoringCase(name, "content-length")) {
    const bool same = !length_ || *length_ == value;
    length_ = value;
    return same && IsLength(value);
  }
  lastIsKept_ = !http::IsOfOneConnection(name);
  if (lastIsKept_) lines_.append(name).append(": ").append(value).push_back('\0');
  return true;
}

void ResponseLines::EndBlock() {
  if (!connection_.empty()) lines_ = WithoutNamed(lines_, connection_);
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
