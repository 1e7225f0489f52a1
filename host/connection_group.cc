#include "host/connection_group.h"

#include <algorithm>

#include "net/http/header_text.h"
#include "url/gurl.h"

namespace host {

std::string ConnectionGroup(const std::string& url) {
  const GURL parsed(url);
  std::string scheme = url.substr(0, url.find(':'));
  std::transform(scheme.begin(), scheme.end(), scheme.begin(), net::ToLowerAscii);
  return scheme + "://" + parsed.host() + ":" + std::to_string(parsed.EffectiveIntPort());
}

}  // namespace host
