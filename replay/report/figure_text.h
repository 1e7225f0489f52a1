// How the reports write numbers. Plain functions; any thread.
#ifndef REPLAY_REPORT_FIGURE_TEXT_H_
#define REPLAY_REPORT_FIGURE_TEXT_H_

#include <cstdint>
#include <optional>
#include <string>

namespace replay {

std::string MillisecondsText(double microseconds);            // "1234"
std::string SignedMillisecondsText(double microseconds);      // "+1234", "-3", "0"
std::string PercentText(const std::optional<double>& share);  // "42%", "-0.4%"; "–" when there is none
std::string BytesText(uint64_t bytes);                        // "812 B", "13.4 kB", "2.1 MB", powers of 1000
std::string DurationText(double milliseconds);                // "1 h", "90 s", "1.5 s", "500 ms"

}  // namespace replay

#endif  // REPLAY_REPORT_FIGURE_TEXT_H_
