#include "replay/report/recording_report.h"

#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

#include "replay/report/advice_json.h"
#include "replay/report/summary_json.h"

namespace replay {

// Without the parts, which may be large and are copied once only.
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(RecordingReport, index, status, error, recordingWarnings, summary, further,
                                   advised, suggested, advice, logLines)

namespace {

void Append(std::string& bytes, std::string_view text) {
  const uint64_t size = text.size();
  bytes.append(reinterpret_cast<const char*>(&size), sizeof size);
  bytes += text;
}

// Throws std::runtime_error when there is less.
std::string_view Take(std::string_view& bytes) {
  uint64_t size = 0;
  if (bytes.size() < sizeof size) throw std::runtime_error("the report of a replay is not whole");
  std::memcpy(&size, bytes.data(), sizeof size);
  bytes.remove_prefix(sizeof size);
  if (bytes.size() < size) throw std::runtime_error("the report of a replay is not whole");
  const std::string_view text = bytes.substr(0, size);
  bytes.remove_prefix(size);
  return text;
}

}  // namespace

std::string Pack(const RecordingReport& report) {
  std::string figures;
  nlohmann::json::to_cbor(report, figures);
  size_t size = sizeof(uint64_t) + figures.size();
  for (const auto& [option, part] : report.parts) size += 2 * sizeof(uint64_t) + option.size() + part.size();
  std::string bytes;
  bytes.reserve(size);
  Append(bytes, figures);
  for (const auto& [option, part] : report.parts) {
    Append(bytes, option);
    Append(bytes, part);
  }
  return bytes;
}

RecordingReport Unpack(const std::string& bytes) try {
  std::string_view rest = bytes;
  RecordingReport report = nlohmann::json::from_cbor(Take(rest)).get<RecordingReport>();
  while (!rest.empty()) {
    const std::string option(Take(rest));
    report.parts[option] = Take(rest);
  }
  return report;
} catch (const nlohmann::json::exception& error) {
  throw std::runtime_error(std::string("the report of a replay is not whole: ") + error.what());
}

}  // namespace replay
