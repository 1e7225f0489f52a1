// The list of the output formats of kiv_replay. Any thread.
#ifndef REPLAY_REPORT_REPORT_FORMATS_H_
#define REPLAY_REPORT_REPORT_FORMATS_H_

#include <span>

#include "replay/report/report_format.h"

namespace replay {

std::span<const ReportFormat* const> ReportFormats();

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_FORMATS_H_
