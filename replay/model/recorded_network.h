// What a recording tells of the network that it was made on: per group of sockets (scheme, host and port) the
// protocol, the round trip and the connection set-up. Made once, then only read.
#ifndef REPLAY_MODEL_RECORDED_NETWORK_H_
#define REPLAY_MODEL_RECORDED_NETWORK_H_

#include <cstdint>
#include <map>
#include <string>

#include "replay/recording/recording.h"

namespace replay {

struct RecordedGroup {
  Protocol protocol = Protocol::Http1;  // the one that most of its requests used
  bool secure = false;
  double rttMs = 0;      // the TCP part of its fastest connection; else that of the recording
  double connectMs = 0;  // as recorded, with name lookup; else estimated from rttMs
};

// By host::ConnectionGroup.
using RecordedNetwork = std::map<std::string, RecordedGroup>;

RecordedNetwork MeasureNetwork(const Recording& recording);

// Round trips that a new connection costs before the first request can go out.
int ConnectRoundTrips(const RecordedGroup& group);

}  // namespace replay

#endif  // REPLAY_MODEL_RECORDED_NETWORK_H_
