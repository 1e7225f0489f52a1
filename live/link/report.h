// What a run over the link tells afterwards. Any thread.
#ifndef LIVE_LINK_REPORT_H_
#define LIVE_LINK_REPORT_H_

#include <cstdint>
#include <string>

#include "live/link/options.h"
#include "live/link/packet_shuttle.h"

namespace live_link {

struct RunFigures {
  DirectionCounts down, up;
  Lateness lateness;
  uint64_t droppedByDevices = 0;  // packets that the kernel dropped because nobody read or took them
  double seconds = 0;             // for which the client ran
  std::string scheduling;         // in words
};

// How late a packet may be: 5 ms, or a twentieth of the round trip when that is more.
int64_t LateBoundNs(double rttMs);

// Why the figures must not be trusted, since this program could not deliver in time; empty when they can be.
std::string WhyStarved(const RunFigures& figures);

// Some lines for people, and one JSON object.
std::string ReportText(const LinkOptions& options, const RunFigures& figures);
std::string ReportJson(const LinkOptions& options, const RunFigures& figures, int clientStatus);

}  // namespace live_link

#endif  // LIVE_LINK_REPORT_H_
