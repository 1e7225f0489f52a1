#include "replay/report/report_formats.h"

#include <array>

#include "replay/report/report_csv.h"
#include "replay/report/report_json.h"

namespace replay {
namespace {

std::vector<Summary> SummariesOf(const std::vector<RecordingReport>& reports) {
  std::vector<Summary> summaries;
  for (const RecordingReport& report : reports) summaries.push_back(report.summary);
  return summaries;
}

std::string JsonLines(const RecordingReport& report, const ReplayOptions& options) {
  const bool done = report.status == ReplayStatus::Done;
  return (done ? JsonLine(report.summary, options) : JsonErrorLine(report.summary.name, report.error)) + "\n";
}

std::string JsonLastLines(const std::vector<RecordingReport>& reports, const ReplayOptions& options) {
  return JsonSummaryLine(SummariesOf(reports), options) + "\n";
}

std::string CsvLines(const RecordingReport& report, const ReplayOptions& options) {
  const bool done = report.status == ReplayStatus::Done;
  return done ? CsvRow(report.summary, options) : CsvErrorRow(report.summary.name, report.error);
}

void CollectHtml(size_t index, const Recording& recording, const RecordingResult& result,
                 const ReplayOptions&, RecordingReport& report) {
  report.html = HtmlSectionOf(index, recording, result);
}

std::string HtmlText(const std::vector<RecordingReport>& reports, const ReplayOptions& options) {
  std::vector<HtmlSection> sections;
  for (const RecordingReport& report : reports) sections.push_back(report.html);
  return HtmlReport(SummariesOf(reports), sections, options);
}

void CollectHar(size_t index, const Recording& recording, const RecordingResult& result,
                const ReplayOptions& options, RecordingReport& report) {
  report.har = HarPartOf(index, recording, result, options);
}

std::string HarText(const std::vector<RecordingReport>& reports, const ReplayOptions&) {
  std::vector<HarPart> parts;
  for (const RecordingReport& report : reports) parts.push_back(report.har);
  return HarFile(parts);
}

constexpr std::array kFormats = {
    ReportFormat{.option = "--json",
                 .what = "write one JSON object per recording and line, as soon as it is ready",
                 .signature = "{\"recording\":",
                 .lines = JsonLines,
                 .lastLines = JsonLastLines},
    ReportFormat{.option = "--csv",
                 .what = "write the same figures as CSV, a row per recording",
                 .signature = "recording,profile,",
                 .firstLines = CsvHeading,
                 .lines = CsvLines},
    ReportFormat{.option = "--html",
                 .what = "write a report with waterfalls",
                 .signature = "<meta name=\"generator\" content=\"kiv_replay\">",
                 .collect = CollectHtml,
                 .file = HtmlText},
    ReportFormat{.option = "--har-out",
                 .what = "write the simulated loads with the plugin",
                 .signature = "\"creator\": {\"name\":\"kiv_replay\"",
                 .needsReplay = true,
                 .collect = CollectHar,
                 .file = HarText},
};

}  // namespace

std::span<const ReportFormat> ReportFormats() {
  return kFormats;
}

}  // namespace replay
