#include "live/cache/cache_key.h"

#include <algorithm>

#include "net/http/header_text.h"
#include "url/gurl.h"

namespace live {
namespace {

std::string_view SchemeOf(std::string_view url) {
  return url.substr(0, url.find(':'));
}

bool HaveSameOrigin(const GURL& a, const GURL& b) {
  return !a.host().empty() && a.host() == b.host() && a.EffectiveIntPort() == b.EffectiveIntPort() &&
         net::EqualsIgnoringCase(SchemeOf(a.spec()), SchemeOf(b.spec()));
}

}  // namespace

std::string WithoutFragment(std::string_view url) {
  return std::string(url.substr(0, url.find('#')));
}

std::optional<std::string> SameOriginTarget(const std::string& base, std::string_view reference) {
  const GURL from(base);
  const GURL target = from.Resolve(std::string(reference));
  if (!HaveSameOrigin(from, target)) return std::nullopt;
  // Resolving the path once more spells the origin as in `base`, and removes dots from an absolute reference.
  const std::string& url = target.spec();
  const size_t pathBegin = std::min(url.find_first_of("/?", url.find("://") + 3), url.size());
  const std::string path = url.substr(pathBegin);
  return from.Resolve(path.starts_with('/') ? path : "/" + path).spec();
}

}  // namespace live
