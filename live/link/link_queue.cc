#include "live/link/link_queue.h"

namespace live_link {
namespace {

void ForgetSent(LinkQueue& queue, int64_t nowNs) {
  while (!queue.unsent.empty() && queue.unsent.front().sentNs <= nowNs) {
    queue.unsent.pop_front();
    if (!queue.unsent.empty()) queue.waitingBytes -= queue.unsent.front().bytes;  // is being sent now
  }
}

}  // namespace

std::optional<int64_t> TakePacket(LinkQueue& queue, int64_t nowNs, size_t bytes) {
  ForgetSent(queue, nowNs);
  const LinkSettings& settings = queue.settings;
  int64_t startNs = nowNs;
  if (!queue.unsent.empty()) {
    if (queue.unsent.size() > settings.queuePackets) return std::nullopt;
    if (bytes > settings.queueBytes - queue.waitingBytes) return std::nullopt;
    startNs = queue.unsent.back().sentNs;
    queue.waitingBytes += bytes;
  }
  const int64_t sendingNs = static_cast<int64_t>(bytes) * 8'000'000'000 / settings.bitsPerSecond;
  queue.unsent.push_back({.sentNs = startNs + sendingNs, .bytes = bytes});
  return startNs + sendingNs + settings.delayNs;
}

}  // namespace live_link
