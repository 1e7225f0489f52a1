#include "replay/model/page_events.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace replay {
namespace {

using host::ResourceKind;

double FirstByteMs(const Request& request) {
  return std::max(request.startMs, request.endMs - request.receiveMs);
}

// Whether each request belongs to a frame inside the page. The events of the page do not wait for those of
// frames.
std::vector<bool> FindFramed(const Page& page, const PagePlan& plan) {
  std::vector<bool> framed(page.requests.size());
  for (size_t index = page.document + 1; index < page.requests.size(); ++index) {
    const size_t parent = plan.requests[index].parent;
    framed[index] =
        page.requests[index].kind == ResourceKind::Document || (parent != kPageStart && framed[parent]);
  }
  return framed;
}

// The requests of these kinds that had begun before an event and were complete when it came.
AwaitedEvent Await(const Page& page, const std::vector<bool>& framed, double eventMs,
                   const std::function<bool(const Request&)>& counts) {
  AwaitedEvent event;
  double lastMs = FirstByteMs(page.requests[page.document]);
  for (size_t index = page.document; index < page.requests.size(); ++index) {
    const Request& request = page.requests[index];
    if (framed[index] || !counts(request)) continue;
    if (request.startMs >= eventMs || request.endMs > eventMs + kEventSlackMs) continue;
    event.requests.push_back(index);
    lastMs = std::max(lastMs, request.endMs);
  }
  event.restUs = static_cast<int64_t>(std::max(0.0, eventMs - lastMs) * 1000);
  return event;
}

bool DelaysContentLoaded(const Request& request) {
  return request.kind == ResourceKind::Document || request.kind == ResourceKind::Stylesheet ||
         request.kind == ResourceKind::Script;
}

// Browsers fetch scripts that do not block rendering (async, defer) with a low priority.
bool DelaysPaint(const Request& request) {
  return request.kind == ResourceKind::Stylesheet || request.kind == ResourceKind::Font ||
         (request.kind == ResourceKind::Script && !request.lowPriority);
}

// When an event comes in a load, and after which request. `rows` is indexed like Page::requests.
struct Moment {
  int64_t us = 0;
  size_t after = 0;
};
Moment MomentOf(const AwaitedEvent& event, const std::vector<const RequestRow*>& rows, size_t document) {
  Moment moment = {rows[document]->firstByteUs, document};
  for (const size_t index : event.requests) {
    if (rows[index]->endUs > moment.us) moment = {rows[index]->endUs, index};
  }
  moment.us += event.restUs;
  return moment;
}

}  // namespace

PageEvents PlanEvents(const Page& page, const PagePlan& plan, const BeaconList& list) {
  PageEvents events;
  events.beacons = FindBeacons(page, plan, list);
  for (AwaitedEvent* const event : {&events.load, &events.loadWithoutBeacons}) event->restUs = plan.restUs;
  for (size_t index = 0; index < plan.requests.size(); ++index) {
    if (!plan.requests[index].blocksLoad) continue;
    events.load.requests.push_back(index);
    if (!events.beacons[index]) events.loadWithoutBeacons.requests.push_back(index);
  }

  const Request& document = page.requests[page.document];
  const std::vector<bool> framed = FindFramed(page, plan);
  const bool hasContentLoaded = page.onContentLoadMs >= document.endMs - kEventSlackMs;
  events.contentLoaded = hasContentLoaded ? Await(page, framed, page.onContentLoadMs, DelaysContentLoaded)
                                          : events.loadWithoutBeacons;
  if (page.firstPaintMs >= FirstByteMs(document)) {
    events.firstPaint = Await(page, framed, page.firstPaintMs, DelaysPaint);
  } else {
    events.firstPaint = events.contentLoaded;
    events.paintSource = hasContentLoaded ? PaintSource::ContentLoaded : PaintSource::Load;
  }
  return events;
}

void TimeEvents(const PagePlan& plan, WayResult& way) {
  const size_t document = plan.document;
  std::vector<const RequestRow*> rows(way.requests.size());
  double sumUs = 0, count = 0;
  for (RequestRow& row : way.requests) {
    rows[row.request] = &row;
    row.beacon = plan.events.beacons[row.request];
    if (row.request <= document || !row.blocksLoad || row.beacon) continue;
    sumUs += static_cast<double>(row.endUs);
    ++count;
  }
  const Moment contentLoaded = MomentOf(plan.events.contentLoaded, rows, document);
  const Moment load = MomentOf(plan.events.load, rows, document);
  way.lastRequest = (load.us >= contentLoaded.us ? load : contentLoaded).after;
  way.times.firstPaintUs = MomentOf(plan.events.firstPaint, rows, document).us;
  way.times.contentLoadedUs = contentLoaded.us;
  way.times.pageLoadUs = std::max(load.us, contentLoaded.us);
  way.times.loadWithoutBeaconsUs =
      std::max(MomentOf(plan.events.loadWithoutBeacons, rows, document).us, contentLoaded.us);
  way.times.objectIndexUs = count > 0 ? std::llround(sumUs / count) : rows[document]->endUs;
}

}  // namespace replay
