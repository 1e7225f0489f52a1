#include "learning/host_map.h"

#include "plugin/corvane.h"

namespace kiv {

std::string HostKey(const std::string& url) {
  std::string key;
  CorvaneGetHostPortFromUrl(url, key);
  return key;
}

HostEntry* FindHost(const std::string& key) {
  const auto found = HostMap.find(key);
  return found != HostMap.end() ? &found->second : nullptr;
}

}  // namespace kiv
