#include "host/http/vary.h"

#include <optional>
#include <string>

#include "host/http/header_block.h"
#include "host/http/lists.h"

namespace http {
namespace {

// All items of the header, each followed by a comma; nothing if there is no such header.
std::optional<std::string> NormalizedHeader(std::string_view headers, std::string_view name) {
  const std::optional<std::string> combined = CombinedHeader(headers, name);
  if (!combined) return std::nullopt;
  std::string normalized;
  ForEachItem(*combined, [&normalized](std::string_view item) { normalized.append(item).push_back(','); });
  return normalized;
}

}  // namespace

bool VaryAllows(std::string_view responseBlock, std::string_view requestHeaders,
                std::string_view sentHeaders) {
  bool allowed = true;
  ForEachItem(CombinedHeader(responseBlock, "Vary").value_or(""), [&](std::string_view name) {
    allowed = allowed && name != "*" &&
              NormalizedHeader(requestHeaders, name) == NormalizedHeader(sentHeaders, name);
  });
  return allowed;
}

}  // namespace http
