#include "host/http/header_block.h"

namespace http {

HeaderLines HeaderLinesOf(std::string_view block) {
  const size_t statusEnd = block.find('\0');
  if (statusEnd == std::string_view::npos) return {block, net::kRequestLineEnd};
  return {block.substr(statusEnd + 1), net::kResponseLineEnd};
}

std::string_view StatusLine(std::string_view block) {
  const size_t end = block.find('\0');
  return end == std::string_view::npos ? std::string_view() : block.substr(0, end);
}

std::optional<std::string_view> FindHeader(std::string_view block, std::string_view name) {
  auto [text, lineEnd] = HeaderLinesOf(block);
  std::string_view found, value;
  while (net::TakeHeader(text, lineEnd, found, value)) {
    if (net::EqualsIgnoringCase(found, name)) return value;
  }
  return std::nullopt;
}

std::optional<std::string> CombinedHeader(std::string_view block, std::string_view name) {
  std::optional<std::string> combined;
  ForEachHeader(block, [&](std::string_view found, std::string_view value) {
    if (!net::EqualsIgnoringCase(found, name)) return;
    if (combined) {
      combined->append(", ").append(value);
    } else {
      combined = value;
    }
  });
  return combined;
}

bool HasHeader(std::string_view block, std::string_view name) {
  return FindHeader(block, name).has_value();
}

}  // namespace http
