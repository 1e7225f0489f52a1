#include "live/cache/cache_key.h"

#include <algorithm>

#include "net/http/header_text.h"
#include "url/gurl.h"

namespace live {
namespace {

// "http://a.test:80" of "http://a.test:80/path"; empty when there is no authority.
std::string_view OriginText(std::string_view url) {
  const size_t scheme = url.find("://");
  if (scheme == std::string_view::npos) return {};
  return url.substr(0, url.find_first_of("/?#", scheme + 3));
}

bool HasScheme(std::string_view reference) {
  const size_t end = reference.find_first_of(":/?#");
  return end != std::string_view::npos && end > 0 && reference[end] == ':';
}

bool SameOrigin(const std::string& a, const std::string& b) {
  const GURL left(a), right(b);
  return left.is_valid() && right.is_valid() && left.host() == right.host() &&
         left.EffectiveIntPort() == right.EffectiveIntPort() &&
         net::EqualsIgnoringCase(a.substr(0, a.find(':')), b.substr(0, b.find(':')));
}

// Takes "." and ".." out of a path that begins with a slash. What "?" introduces is kept as it is.
std::string WithoutDots(std::string_view path) {
  const std::string_view query = path.substr(std::min(path.find('?'), path.size()));
  path.remove_suffix(query.size());
  std::string clean;
  while (!path.empty()) {
    const size_t end = std::min(path.find('/', 1), path.size());
    const std::string_view segment = path.substr(0, end);  // with the slash before it
    path.remove_prefix(end);
    if (segment == "/..") clean.resize(std::min(clean.rfind('/'), clean.size()));
    if (segment != "/." && segment != "/..") {
      clean += segment;
    } else if (path.empty()) {
      clean += '/';
    }
  }
  return clean.append(query);
}

}  // namespace

std::string WithoutFragment(std::string_view url) {
  return std::string(url.substr(0, url.find('#')));
}

std::optional<std::string> SameOriginTarget(const std::string& base, std::string_view reference) {
  const std::string origin(OriginText(base));
  if (origin.empty()) return std::nullopt;
  reference = reference.substr(0, reference.find('#'));
  if (reference.starts_with("//") || HasScheme(reference)) {
    const std::string scheme = reference.starts_with("//") ? base.substr(0, base.find(':') + 1) : "";
    const std::string absolute = scheme + std::string(reference);
    if (!SameOrigin(base, absolute)) return std::nullopt;
    reference = reference.substr(OriginText(absolute).size() - scheme.size());
    if (!reference.starts_with('/')) return origin + "/" + std::string(reference);
  }
  if (reference.starts_with('/')) return origin + WithoutDots(reference);
  std::string_view path = std::string_view(base).substr(origin.size());
  path = path.substr(0, path.find('#'));
  if (reference.empty()) return origin + std::string(path);
  path = path.substr(0, path.find('?'));
  if (!reference.starts_with('?')) path = path.substr(0, path.rfind('/') + 1);
  std::string target = path.empty() ? "/" : std::string(path);
  return origin + WithoutDots(target.append(reference));
}

}  // namespace live
