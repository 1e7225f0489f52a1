// The report of a run over the link. Any thread.
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

// How late a packet may be: 5 ms, or a twentieth of the round trip if that is more.
int64_t LateBoundNs(double rttMs);

// Why the figures cannot be trusted, because the program could not deliver packets in time; empty if they
// can.
std::string WhyStarved(const RunFigures& figures);

// The report as lines for people, and as one JSON object.
std::string ReportText(const LinkOptions& options, const RunFigures& figures);
std::string ReportJson(const LinkOptions& options, const RunFigures& figures, int clientStatus);

}  // namespace live_link

#endif  // LIVE_LINK_REPORT_H_
