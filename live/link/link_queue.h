// A model of one direction of a link: it computes when a packet that arrives now comes out at the far end, or
// whether it is dropped. It uses no clock and no sockets. Any thread.
#ifndef LIVE_LINK_LINK_QUEUE_H_
#define LIVE_LINK_LINK_QUEUE_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <optional>

namespace live_link {

struct LinkSettings {
  int64_t bitsPerSecond = 0;  // 1 to 10^12
  int64_t delayNs = 0;        // from the last bit sent to the packet's arrival
  // The limits of what may wait behind the packet that is being sent. A packet that does not fit is dropped.
  size_t queuePackets = std::numeric_limits<size_t>::max();
  size_t queueBytes = std::numeric_limits<size_t>::max();
};

// A packet that has arrived and whose last bit has not been sent.
struct UnsentPacket {
  int64_t sentNs = 0;  // when the last bit will have been sent
  size_t bytes = 0;
};

struct LinkQueue {
  LinkSettings settings;
  std::deque<UnsentPacket> unsent = {};  // the first is being sent, the others wait; the settings bound it
  size_t waitingBytes = 0;               // of all but the first
};

// Takes a packet of `bytes` (at most 65535) that arrives at `nowNs`. Returns when it comes out at the far
// end, or nothing if the queue is full and the packet is dropped. Times may have any origin; `nowNs` must not
// decrease.
std::optional<int64_t> TakePacket(LinkQueue& queue, int64_t nowNs, size_t bytes);

}  // namespace live_link

#endif  // LIVE_LINK_LINK_QUEUE_H_
