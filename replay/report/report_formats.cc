#include "replay/report/report_formats.h"

#include <array>

#include "replay/report/har_writer.h"
#include "replay/report/report_csv.h"
#include "replay/report/report_html.h"
#include "replay/report/report_json.h"

namespace replay {

std::span<const ReportFormat* const> ReportFormats() {
  static constexpr std::array kFormats = {
      &kJsonFormat,
      &kCsvFormat,
      &kHtmlFormat,
      &kHarFormat,
  };
  return kFormats;
}

}  // namespace replay
