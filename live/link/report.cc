#include "live/link/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

namespace live_link {
namespace {

constexpr double kLeastBoundMs = 5;
constexpr double kBoundPerRtt = 0.05;
constexpr uint64_t kPacketsPerLateOne = 200;  // at most one packet in so many may be late

double Ms(int64_t ns) {
  return static_cast<double>(ns) / 1e6;
}

std::string QueueText(const LinkSettings& settings) {
  if (settings.queueBytes != std::numeric_limits<size_t>::max())
    return fmt::format("{} B", settings.queueBytes);
  return fmt::format("{} packets", settings.queuePackets);
}

std::string DirectionText(const char* name, const DirectionCounts& counts) {
  return fmt::format("  {:<5} {} packets, {:.1f} kB, dropped {} packets, {:.1f} kB\n", name, counts.packets,
                     static_cast<double>(counts.bytes) / 1e3, counts.droppedPackets,
                     static_cast<double>(counts.droppedBytes) / 1e3);
}

nlohmann::ordered_json DirectionJson(double mbit, const LinkSettings& settings,
                                     const DirectionCounts& counts) {
  return {{"mbit", mbit},
          {"queue", QueueText(settings)},
          {"packets", counts.packets},
          {"bytes", counts.bytes},
          {"dropped_packets", counts.droppedPackets},
          {"dropped_bytes", counts.droppedBytes}};
}

}  // namespace

int64_t LateBoundNs(double rttMs) {
  return std::llround(std::max(kLeastBoundMs, kBoundPerRtt * rttMs) * 1e6);
}

std::string WhyStarved(const RunFigures& figures) {
  const Lateness& lateness = figures.lateness;
  if (figures.droppedByDevices > 0) {
    return fmt::format("the kernel dropped {} packets that were not read in time", figures.droppedByDevices);
  }
  if (lateness.latePackets * kPacketsPerLateOne > lateness.packets) {
    return fmt::format("{} of {} packets were delivered more than {:.1f} ms late, the latest {:.1f} ms",
                       lateness.latePackets, lateness.packets, Ms(lateness.boundNs), Ms(lateness.latestNs));
  }
  return "";
}

std::string ReportText(const LinkOptions& options, const RunFigures& figures) {
  return fmt::format("kiv_link: {} ms round trip ({}), {:.1f} s, {}\n", options.rttMs, options.profile,
                     figures.seconds, figures.scheduling) +
         DirectionText("down", figures.down) + DirectionText("up", figures.up) +
         fmt::format("  latest packet {:.2f} ms late, {} of {} more than {:.1f} ms\n",
                     Ms(figures.lateness.latestNs), figures.lateness.latePackets, figures.lateness.packets,
                     Ms(figures.lateness.boundNs));
}

std::string ReportJson(const LinkOptions& options, const RunFigures& figures, int clientStatus) {
  const nlohmann::ordered_json json = {{"profile", options.profile},
                                       {"rtt_ms", options.rttMs},
                                       {"down", DirectionJson(options.downMbit, options.down, figures.down)},
                                       {"up", DirectionJson(options.upMbit, options.up, figures.up)},
                                       {"seconds", figures.seconds},
                                       {"latest_ms", Ms(figures.lateness.latestNs)},
                                       {"late_bound_ms", Ms(figures.lateness.boundNs)},
                                       {"late_packets", figures.lateness.latePackets},
                                       {"scheduling", figures.scheduling},
                                       {"client_status", clientStatus}};
  return json.dump() + "\n";
}

}  // namespace live_link
