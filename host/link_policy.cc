#include "host/link_policy.h"

namespace host {

double PreloadsShareOfLink(const HostSettings& settings, size_t browserTransfers) {
  if (browserTransfers == 0) return 1;
  return settings.preloadShare / (static_cast<double>(browserTransfers) + settings.preloadShare);
}

std::vector<size_t> PreloadsToHurry(const HostSettings& settings, size_t waiting, size_t connecting,
                                    const std::vector<Urgency>& running) {
  std::vector<size_t> hurried;
  if (!settings.hurryBlockingPreloads || waiting <= connecting) return hurried;
  for (size_t index = 0; index < running.size() && hurried.size() < waiting - connecting; ++index) {
    if (running[index] == Urgency::Preload) hurried.push_back(index);
  }
  return hurried;
}

}  // namespace host
