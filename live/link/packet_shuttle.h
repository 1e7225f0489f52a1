// Carries packets between the two TUN devices at the times that the model of the link computes, and records
// how punctual it was. One thread.
#ifndef LIVE_LINK_PACKET_SHUTTLE_H_
#define LIVE_LINK_PACKET_SHUTTLE_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "live/link/link_queue.h"

namespace live_link {

struct DirectionCounts {
  uint64_t packets = 0;  // delivered
  uint64_t bytes = 0;    // with the headers of IP
  uint64_t droppedPackets = 0;
  uint64_t droppedBytes = 0;
};

// How late packets were delivered. The lateness of a packet is the time for which this program was ready to
// read it but had no processor, plus the time from its due time to its delivery.
struct Lateness {
  int64_t boundNs = 0;
  int64_t latestNs = 0;
  uint64_t latePackets = 0;  // more than boundNs late
  uint64_t packets = 0;
};

// A packet on its way.
struct PacketInFlight {
  int64_t dueNs = 0;
  int64_t readLateNs = 0;
  std::vector<std::byte> bytes;
};

struct Direction {
  int fromTun = -1;
  int toTun = -1;
  LinkQueue queue;
  std::deque<PacketInFlight> inFlight = {};  // in the order of their due times; the queue's settings bound it
  DirectionCounts counts = {};
};

struct Link {
  Direction down;  // from the servers to the client
  Direction up;
  Lateness lateness;
  int timer = -1;      // a timerfd
  int schedstat = -1;  // of this thread; -1 where the kernel keeps none
};

// Nanoseconds of the clock that all times here are of.
int64_t NowNs();

// A link between two TUN devices. Its descriptors stay open until the program ends. Throws std::system_error.
Link MakeLink(int serverTun, int clientTun, const LinkSettings& down, const LinkSettings& up,
              int64_t lateBoundNs);

// Carries packets until `wakeFd` can be read or the deadline has passed. Throws std::system_error.
void CarryPackets(Link& link, int wakeFd, std::optional<int64_t> deadlineNs);

}  // namespace live_link

#endif  // LIVE_LINK_PACKET_SHUTTLE_H_
