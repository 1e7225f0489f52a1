#include "replay/model/results.h"

#include <algorithm>

namespace replay {

const char* SourceText(Source source) {
  switch (source) {
    case Source::Network:
      return "network";
    case Source::DiskCache:
      return "disk cache";
    case Source::Served:
      return "served";
    case Source::Joined:
      return "joined";
    case Source::Memory:
      return "memory";
  }
  return "";
}

const char* FateText(PreloadFate fate) {
  switch (fate) {
    case PreloadFate::Served:
      return "served";
    case PreloadFate::Joined:
      return "joined";
    case PreloadFate::Unused:
      return "unused";
    case PreloadFate::Cancelled:
      return "cancelled";
    case PreloadFate::Failed:
      return "failed";
  }
  return "";
}

const WayResult& Of(const Visit& visit, Way way) {
  return visit.ways[Index(way)];
}

bool EndedByBeacon(const WayResult& way) {
  return std::any_of(way.requests.begin(), way.requests.end(),
                     [&way](const RequestRow& row) { return row.beacon && row.request == way.lastRequest; });
}

}  // namespace replay
