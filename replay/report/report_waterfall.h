// The data of the waterfalls in the HTML report: the requests of a recording, and each visit's times in all
// ways, as JSON that report.js reads. Plain functions; any thread.
#ifndef REPLAY_REPORT_REPORT_WATERFALL_H_
#define REPLAY_REPORT_REPORT_WATERFALL_H_

#include <string>

#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

// Returns a JSON object that can be put into a script element, because no tag or comment can begin or end in
// it. Times are in microseconds, and lists are read by position:
//   urls     texts, named below by their place; empty URLs are -1
//   pages    per load of a page its requests: [url, kind, method, status, protocol, bytes, initiator, beacon]
//   visits   in order:
//     page   its URL;   load: place in `pages`;   paint: what stands for the first paint, "" for itself
//     ways   [way, first paint, DOMContentLoaded, load event, place of the request that this came after]
//     lines  of the waterfall: [place of the request or null, off, plugin, source, why, preload, others] with
//            off, plugin  [wanted, connect, sent, first byte, end]
//            source, why  of the plugin's way
//            preload      null, or [url, kind, ordered, launched, connect, sent, first byte, end, bytes,
//            fate] others       per further way: [source, wanted, end]
std::string WaterfallData(const Recording& recording, const RecordingResult& result);

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_WATERFALL_H_
