#include "host/http/lists.h"

#include <algorithm>

#include "net/http/header_text.h"

namespace http {
namespace {

std::string_view TakeUpTo(std::string_view& list, char separator, bool backslashes) {
  bool quoted = false;
  size_t end = 0;
  for (; end < list.size() && (quoted || list[end] != separator); ++end) {
    if (list[end] == '"') quoted = !quoted;
    if (list[end] == '\\' && quoted && backslashes) ++end;
  }
  const std::string_view item = list.substr(0, end);
  list.remove_prefix(std::min(end + 1, list.size()));
  return net::TrimBlanks(item);
}

bool IsQuoted(std::string_view text) {
  return text.size() >= 2 && text.front() == '"' && text.back() == '"';
}

}  // namespace

std::string_view TakeItem(std::string_view& list, char separator) {
  return TakeUpTo(list, separator, true);
}

bool ListHas(std::string_view list, std::string_view token) {
  while (!list.empty()) {
    if (net::EqualsIgnoringCase(TakeItem(list), token)) return true;
  }
  return false;
}

Directive ParseDirective(std::string_view item) {
  const size_t equals = item.find('=');
  if (equals == std::string_view::npos) return {item, std::nullopt};
  std::string_view value = net::TrimBlanks(item.substr(equals + 1));
  if (IsQuoted(value)) value = value.substr(1, value.size() - 2);
  return {net::TrimBlanks(item.substr(0, equals)), value};
}

std::optional<EntityTag> ParseEntityTag(std::string_view text) {
  EntityTag tag{.opaque = net::TrimBlanks(text)};
  if (tag.opaque.starts_with("W/")) {
    tag.weak = true;
    tag.opaque.remove_prefix(2);
  }
  if (IsQuoted(tag.opaque)) {
    if (tag.opaque.find('"', 1) != tag.opaque.size() - 1) return std::nullopt;
  } else if (tag.opaque.empty() || tag.opaque == "*" ||
             tag.opaque.find_first_of("\", \t") != std::string_view::npos) {
    return std::nullopt;
  }
  return tag;
}

bool MatchesStrongly(const EntityTag& a, const EntityTag& b) {
  return !a.weak && !b.weak && a.opaque == b.opaque;
}

bool MatchesWeakly(const EntityTag& a, const EntityTag& b) {
  return a.opaque == b.opaque;
}

std::optional<EntityTag> TakeEntityTag(std::string_view& list) {
  return ParseEntityTag(TakeUpTo(list, ',', false));
}

}  // namespace http
