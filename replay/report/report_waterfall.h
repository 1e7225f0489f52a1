// The data of the waterfalls in the HTML report: the requests of a recording, and each visit's times in all
// ways, as JSON that page/visit_data.js reads. Plain functions; any thread.
#ifndef REPLAY_REPORT_REPORT_WATERFALL_H_
#define REPLAY_REPORT_REPORT_WATERFALL_H_

#include <string>

#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

// Returns a JSON object that can be put into a script element, because no tag or comment can begin or end in
// it. Times are in microseconds, lists are read by position, and most texts are named by their place in
// `texts`:
//   texts    URLs, kinds, reasons and other words, each once
//   pages    per load of a page its requests: [url, kind, method, status, protocol, bytes, initiator,
//            beacon]; an unknown initiator is -1
//   visits   in order:
//     page   its URL
//     load   place in `pages`
//     ways   [name, first paint, DOMContentLoaded, load event, place of the request that it came after]; the
//            name is a text itself
//     lines  of the waterfall: [place of the request or null, why it was not served, preload or null,
//            answers...], with an answer or null for each way of `ways`
//     log    what the plugin's log says of known URLs, if it was kept: [time, text before, URL, text after]
//     An answer is [source, wanted, connect, sent, first byte, end].
//     A preload is [url, kind, fate, bytes, ordered, launched, connect, sent, first byte, end].
//     In both, the times from `connect` on are counted from the time before them in the list.
std::string WaterfallData(const Recording& recording, const RecordingResult& result);

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_WATERFALL_H_
