// How early an access link and a connection's window let responses be complete at best. Times are
// microseconds, sizes the time that the link takes for them. Pure functions; any thread.
#ifndef REPLAY_MODEL_LINK_BOUNDS_H_
#define REPLAY_MODEL_LINK_BOUNDS_H_

#include <vector>

namespace replay {

struct LinkTransfer {
  double fromUs;  // at the earliest
  double linkUs;  // with the link for itself
  double tailUs;  // from its end to an event that waits for it, at the least
};

// The earliest that the last of all tails can end: with the longest tail first, no order is better.
double LastTailUs(const std::vector<LinkTransfer>& transfers);

// The smallest sum of all ends: with the shortest rest first, no order is better.
double SumOfEndsUs(const std::vector<LinkTransfer>& transfers);

// A connection's window begins with `initialUs`, grows by what the connection has carried since `firstUs`,
// and allows so much per round trip. Once the link is full for a round trip, it is no bound.
struct Window {
  double initialUs;
  double rttUs;  // more than 0
  double firstUs;
};

// Of a response that begins to come at `fromUs` or later (a wider window may be worth a wait): its end, if
// the connection has carried, besides, all that the link could.
double EndOnBusyConnection(const Window& window, double fromUs, double linkUs);

// Likewise, if the connection's responses come one after the other, so that the window doubles once per round
// trip at most. The request goes out at `sentUs`.
double EndOnHttp1(const Window& window, double sentUs, double fromUs, double linkUs);

}  // namespace replay

#endif  // REPLAY_MODEL_LINK_BOUNDS_H_
