// When a page first paints, when DOMContentLoaded and the load event come, and what they wait for. The
// recorded events show which requests they waited for, and the simulated load shows when these were complete.
// docs/replay-model.md describes the rules. Plain functions; any thread.
#ifndef REPLAY_MODEL_PAGE_EVENTS_H_
#define REPLAY_MODEL_PAGE_EVENTS_H_

#include "replay/model/beacons.h"
#include "replay/model/page_plan.h"
#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

PageEvents PlanEvents(const Page& page, const PagePlan& plan, const BeaconList& list);

// Computes from the rows of a load its times, the request that its load event came after, and which rows are
// beacons. The times of the rows count from the page's request. The plan must contain its events.
void TimeEvents(const PagePlan& plan, WayResult& way);

}  // namespace replay

#endif  // REPLAY_MODEL_PAGE_EVENTS_H_
