// What a recording shows of the network on which it was made: for each group of connections the protocol, the
// round trip and the connection set-up. Made once, then only read.
#ifndef REPLAY_MODEL_RECORDED_NETWORK_H_
#define REPLAY_MODEL_RECORDED_NETWORK_H_

#include <cstdint>
#include <map>
#include <string>

#include "replay/recording/recording.h"

namespace replay {

struct RecordedGroup {
  Protocol protocol = Protocol::Http1;  // the protocol that most of its requests used
  bool secure = false;
  double rttMs = 0;      // the TCP part of its fastest connection, or else of the recording
  double connectMs = 0;  // as recorded, with name lookup; else estimated from rttMs
};

// The key is host::ConnectionGroup.
using RecordedNetwork = std::map<std::string, RecordedGroup>;

RecordedNetwork MeasureNetwork(const Recording& recording);

// How many round trips a new connection takes before the first request can be sent.
int ConnectRoundTrips(const RecordedGroup& group);

}  // namespace replay

#endif  // REPLAY_MODEL_RECORDED_NETWORK_H_
