#include "replay/model/recorded_network.h"

#include <algorithm>
#include <array>
#include <vector>

#include "host/connection_group.h"

namespace replay {
namespace {

struct Samples {
  std::array<size_t, 3> protocols = {};
  double rttMs = -1;
  double connectMs = -1;
  double shortestWaitMs = -1;
  bool secure = false;
};

void KeepSmallest(double& smallest, double value) {
  if (value > 0 && (smallest < 0 || value < smallest)) smallest = value;
}

void Add(Samples& samples, const Request& request) {
  ++samples.protocols[static_cast<size_t>(request.protocol)];
  samples.secure = host::ConnectionGroup(request.url).starts_with("https:");
  KeepSmallest(samples.rttMs, request.connectMs - request.sslMs);
  KeepSmallest(samples.connectMs, request.connectMs + request.dnsMs);
  KeepSmallest(samples.shortestWaitMs, request.waitMs);
}

// The round trip of the whole recording: the median of the fastest connections of its groups, or the shortest
// wait for a first byte if there are none.
double OverallRtt(const std::map<std::string, Samples>& groups) {
  std::vector<double> rtts;
  double shortestWait = -1;
  for (const auto& [key, samples] : groups) {
    if (samples.rttMs > 0) rtts.push_back(samples.rttMs);
    KeepSmallest(shortestWait, samples.shortestWaitMs);
  }
  if (rtts.empty()) return std::max(shortestWait, 0.0);
  std::nth_element(rtts.begin(), rtts.begin() + static_cast<ptrdiff_t>(rtts.size() / 2), rtts.end());
  return rtts[rtts.size() / 2];
}

}  // namespace

int ConnectRoundTrips(const RecordedGroup& group) {
  if (group.protocol == Protocol::Http3) return 1;
  return group.secure ? 2 : 1;
}

RecordedNetwork MeasureNetwork(const Recording& recording) {
  std::map<std::string, Samples> groups;
  for (const Page& page : recording.pages) {
    for (const Request& request : page.requests) Add(groups[host::ConnectionGroup(request.url)], request);
  }
  const double overallRtt = OverallRtt(groups);
  RecordedNetwork network;
  for (const auto& [key, samples] : groups) {
    const auto most = std::max_element(samples.protocols.begin(), samples.protocols.end());
    RecordedGroup& group = network[key];
    group.protocol = static_cast<Protocol>(most - samples.protocols.begin());
    group.secure = samples.secure;
    group.rttMs = samples.rttMs > 0 ? samples.rttMs : overallRtt;
    group.connectMs = samples.connectMs > 0 ? samples.connectMs : group.rttMs * ConnectRoundTrips(group);
  }
  return network;
}

}  // namespace replay
