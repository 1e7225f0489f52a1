#include "replay/model/link_bounds.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <queue>

namespace replay {
namespace {

// Runs transfers one at a time, as the order of urgency has it, and calls `ended` with each and its end.
template <typename Urgency, typename Ended>
void RunOverLink(std::vector<LinkTransfer> transfers, const Urgency& urgency, const Ended& ended) {
  std::sort(transfers.begin(), transfers.end(),
            [](const LinkTransfer& a, const LinkTransfer& b) { return a.fromUs < b.fromUs; });
  const auto isLess = [&urgency](const LinkTransfer& a, const LinkTransfer& b) {
    return urgency(a) < urgency(b);
  };
  std::priority_queue<LinkTransfer, std::vector<LinkTransfer>, decltype(isLess)> waiting(isLess);
  double nowUs = 0;
  for (size_t next = 0; next < transfers.size() || !waiting.empty();) {
    if (waiting.empty()) nowUs = std::max(nowUs, transfers[next].fromUs);
    while (next < transfers.size() && transfers[next].fromUs <= nowUs) waiting.push(transfers[next++]);
    LinkTransfer running = waiting.top();
    waiting.pop();
    const double untilNextUs = next < transfers.size() ? transfers[next].fromUs - nowUs : running.linkUs;
    const double ranUs = std::min(running.linkUs, untilNextUs);
    nowUs += ranUs;
    running.linkUs -= ranUs;
    if (ranUs < untilNextUs || running.linkUs <= 0) {
      ended(running, nowUs);
    } else {
      waiting.push(running);
    }
  }
}

}  // namespace

double LastTailUs(const std::vector<LinkTransfer>& transfers) {
  double lastUs = 0;
  RunOverLink(
      transfers, [](const LinkTransfer& transfer) { return transfer.tailUs; },
      [&lastUs](const LinkTransfer& transfer, double endUs) {
        lastUs = std::max(lastUs, endUs + transfer.tailUs);
      });
  return lastUs;
}

double SumOfEndsUs(const std::vector<LinkTransfer>& transfers) {
  double sumUs = 0;
  RunOverLink(
      transfers, [](const LinkTransfer& transfer) { return -transfer.linkUs; },
      [&sumUs](const LinkTransfer& /*transfer*/, double endUs) { sumUs += endUs; });
  return sumUs;
}

double EndOnBusyConnection(const Window& window, double fromUs, double linkUs) {
  const double nowUs = window.initialUs + std::max(0.0, fromUs - window.firstUs);
  const double neededUs = std::min(linkUs, window.rttUs);
  if (nowUs >= neededUs) return fromUs + linkUs;
  const double inTwoUs = fromUs + window.rttUs + linkUs - nowUs;
  const double wideUs = window.firstUs + neededUs - window.initialUs;
  return std::min(inTwoUs, std::max(fromUs, wideUs) + linkUs);
}

double EndOnHttp1(const Window& window, double sentUs, double fromUs, double linkUs) {
  const double neededUs = std::min(linkUs, window.rttUs);
  double bestUs = std::numeric_limits<double>::infinity();
  double rounds = sentUs < window.firstUs ? 0 : std::floor((sentUs - window.firstUs) / window.rttUs) + 1;
  for (double waitUs = 0;; waitUs = window.firstUs + (rounds - 1) * window.rttUs - sentUs) {
    double atUs = fromUs + waitUs, leftUs = linkUs;
    double windowUs = window.initialUs * std::exp2(rounds++);
    if (windowUs >= neededUs) return std::min(bestUs, atUs + leftUs);
    for (; windowUs < std::min(leftUs, window.rttUs); windowUs *= 2) {
      leftUs -= windowUs;
      atUs += window.rttUs;
    }
    bestUs = std::min(bestUs, atUs + leftUs);
  }
}

}  // namespace replay
