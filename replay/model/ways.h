// The three ways of running a page that need no plugin: as it is, with server hints, and with everything
// known already there. Each runs on a clock and a network of its own. docs/replay-model.md says what each one
// means.
#ifndef REPLAY_MODEL_WAYS_H_
#define REPLAY_MODEL_WAYS_H_

#include <string_view>
#include <unordered_map>

#include "host/page_database.h"
#include "host/settings.h"
#include "host/transport.h"
#include "replay/model/disk_cache.h"
#include "replay/model/page_plan.h"
#include "replay/model/recorded_network.h"
#include "replay/model/replay_options.h"
#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

// The requests that a GET of a URL is answered with, the first one of each URL. Texts are the recording's.
using RequestIndex = std::unordered_map<std::string_view, const Request*>;
void AddToIndex(const Page& page, RequestIndex& index);

// All that the ways of one visit have in common.
struct VisitSetup {
  const Page& page;
  const RequestIndex& pageIndex;       // of this page
  const RequestIndex& recordingIndex;  // of all pages
  const PagePlan& plan;
  const RecordedNetwork& recordedNetwork;
  const ReplayOptions& options;
  const host::HostSettings& settings;
  const DiskCache& diskCache;  // as the visit finds it
  int64_t nowUs;               // when it begins, as the disk cache counts
};

// The request that a page's own transaction or a preload is answered with: this page's, else another load's.
// Null when nobody recorded one.
const Request* FindRecorded(const VisitSetup& setup, const host::TransferRequest& request);

WayResult RunOff(const VisitSetup& setup);
// `known` may be null: then nothing is.
WayResult RunHints(const VisitSetup& setup, const host::KnownPage* known);
WayResult RunOracle(const VisitSetup& setup, const host::KnownPage* known);

}  // namespace replay

#endif  // REPLAY_MODEL_WAYS_H_
