// When a page first paints, when DOMContentLoaded and the load event come, and what they wait for. The events
// of the recording say what was waited for; the simulated load says when that was there. docs/replay-model.md
// has the rules. Plain functions; any thread.
#ifndef REPLAY_MODEL_PAGE_EVENTS_H_
#define REPLAY_MODEL_PAGE_EVENTS_H_

#include "replay/model/beacons.h"
#include "replay/model/page_plan.h"
#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

PageEvents PlanEvents(const Page& page, const PagePlan& plan, const BeaconList& list);

// Fills in the times of a load, the request that its load event came after, and which rows are beacons, from
// its rows, whose times count from the page's request. The plan must have its events.
void TimeEvents(const PagePlan& plan, WayResult& way);

}  // namespace replay

#endif  // REPLAY_MODEL_PAGE_EVENTS_H_
