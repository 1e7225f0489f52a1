// Writes the report as one HTML file that needs no other files: the figures as plain HTML, and the waterfalls
// of every visit, which are drawn when the visit is opened. The same results always give the same bytes.
#ifndef REPLAY_REPORT_REPORT_HTML_H_
#define REPLAY_REPORT_REPORT_HTML_H_

#include <string>
#include <vector>

#include "replay/report/report_format.h"

namespace replay {

extern const ReportFormat kHtmlFormat;

// Returns the part of one recording. `number` is unique in the report; links within the page use it.
struct HtmlSection {
  size_t number = 0;
  std::string text;
};
HtmlSection HtmlSectionOf(size_t number, const Recording& recording, const RecordingResult& result);
// The same without visits and waterfalls, for a recording of which only the summary exists.
HtmlSection HtmlSectionWithoutVisits(size_t number, const Summary& summary);

// Returns the whole file. `sections` are in the order of `summaries`. `sweep` is HTML that compares settings,
// `advice` is HTML about the recordings; both may be empty.
std::string HtmlReport(const std::vector<Summary>& summaries, const std::vector<HtmlSection>& sections,
                       const ReplayOptions& options, const std::string& sweep = "",
                       const std::string& advice = "");

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_HTML_H_
