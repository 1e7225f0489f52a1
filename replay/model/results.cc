#include "replay/model/results.h"

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
    case PreloadFate::Wasted:
      return "wasted";
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

bool IsSlower(const Visit& visit) {
  return Of(visit, Way::Plugin).pageLoadUs * 100 > Of(visit, Way::Off).pageLoadUs * 101;
}

}  // namespace replay
