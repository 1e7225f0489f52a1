// Advice as JSON with everything in it, as it travels from one process to another and to a later merge.
#ifndef REPLAY_REPORT_ADVICE_JSON_H_
#define REPLAY_REPORT_ADVICE_JSON_H_

#include <nlohmann/json.hpp>

#include "replay/report/advice.h"

namespace replay {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Change, kind, server, count, urls, setting)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Saving, median, total, betterVisits, worseVisits)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Advice, change, copies, visits, load, firstPaint, totalWithoutPlugin)

}  // namespace replay

#endif  // REPLAY_REPORT_ADVICE_JSON_H_
