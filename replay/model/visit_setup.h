// What all ways of one visit have in common. It is only read while they run.
#ifndef REPLAY_MODEL_VISIT_SETUP_H_
#define REPLAY_MODEL_VISIT_SETUP_H_

#include <cstdint>
#include <string_view>
#include <unordered_map>

#include "host/settings.h"
#include "host/transport.h"
#include "replay/model/page_plan.h"
#include "replay/model/recorded_network.h"
#include "replay/model/replay_options.h"
#include "replay/recording/recording.h"

namespace replay {

// The request that answers a GET, for each URL: the first one. The texts belong to the recording.
using RequestIndex = std::unordered_map<std::string_view, const Request*>;
void AddToIndex(const Page& page, RequestIndex& index);

struct VisitSetup {
  const Page& page;
  const RequestIndex& pageIndex;       // of this page
  const RequestIndex& recordingIndex;  // of all pages
  const PagePlan& plan;
  const RecordedNetwork& recordedNetwork;
  const ReplayOptions& options;
  const host::HostSettings& settings;
  int64_t nowUs;  // when the visit begins, as the disk caches count
};

// The recorded request that answers a transaction of the page or a preload: one of this page, else one of
// another load. Null if none was recorded.
const Request* FindRecorded(const VisitSetup& setup, const host::TransferRequest& request);

}  // namespace replay

#endif  // REPLAY_MODEL_VISIT_SETUP_H_
