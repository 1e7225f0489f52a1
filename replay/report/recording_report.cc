#include "replay/report/recording_report.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "replay/report/summary_json.h"

namespace replay {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(HtmlSection, number, text)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(HarPart, pages, entries)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(RecordingReport, status, error, recordingWarnings, summary, html, har,
                                   logLines)

std::string Pack(const RecordingReport& report) {
  std::string bytes;
  nlohmann::json::to_cbor(report, bytes);
  return bytes;
}

RecordingReport Unpack(const std::string& bytes) try {
  return nlohmann::json::from_cbor(bytes).get<RecordingReport>();
} catch (const nlohmann::json::exception& error) {
  throw std::runtime_error(std::string("the report of a replay is not whole: ") + error.what());
}

}  // namespace replay
