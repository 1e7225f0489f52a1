// What the parts of a transfer take on a profile's network, for the simulated network and for the bounds.
// Plain functions; any thread.
#ifndef REPLAY_MODEL_NETWORK_TIMES_H_
#define REPLAY_MODEL_NETWORK_TIMES_H_

#include <cstdint>

#include "replay/model/network_costs.h"
#include "replay/model/network_profiles.h"
#include "replay/model/recorded_network.h"
#include "replay/recording/recording.h"

namespace replay {

// Of a group of connections. A set-up waits for the address, then for round trips, then for certificates.
struct GroupTimes {
  int64_t rttUs = 0;
  int64_t lookUpUs = 0;  // of the host's address, once per visit
  int64_t connectUs = 0;
  int64_t certificateBytes = 0;  // of the first connection
};
GroupTimes TimesOf(const RecordedGroup& group, const NetworkProfile& profile, const NetworkCosts& costs);

// Whether the times that bytes take are the model's throughout, not the recording's.
bool HasModelledBytes(const NetworkProfile& profile);

// The server's own time for an answer.
int64_t ServerUs(const Request& recorded, const RecordedGroup& group);

// What the link carries for a response: header block and body.
int64_t BytesOf(const Request& recorded);

// Of the link; only where the profile has a bandwidth.
double BytesPerUs(const NetworkProfile& profile);

}  // namespace replay

#endif  // REPLAY_MODEL_NETWORK_TIMES_H_
