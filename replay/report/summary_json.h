// Converts summaries to and from JSON with all their figures, to hand them from a child process to its
// parent, or from a run to a later merge.
#ifndef REPLAY_REPORT_SUMMARY_JSON_H_
#define REPLAY_REPORT_SUMMARY_JSON_H_

#include <nlohmann/json.hpp>

#include "replay/report/summary.h"

namespace replay {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(LoadTimes, firstPaintUs, contentLoadedUs, pageLoadUs, loadWithoutBeaconsUs,
                                   objectIndexUs)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PluginCounts, served, joined, fetched, fromDiskCache, preloads,
                                   unusedPreloads, preloadedBytes, unusedBytes, connections,
                                   unusedConnections)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(VisitFigures, page, number, copy, paintSource, times, endedByBeacon,
                                   counts)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(StartErrors, recordedMs, inferredMs)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Summary, name, visits, requests, repeats, reasons, fetchedReasons,
                                   commands, unansweredCommands, warnings, skipped, recordedPages,
                                   inferredPages, startErrors)

}  // namespace replay

#endif  // REPLAY_REPORT_SUMMARY_JSON_H_
