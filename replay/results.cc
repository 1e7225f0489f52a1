#include "replay/results.h"

namespace replay {
namespace {

struct WhyNotName {
  const char* key;
  const char* text;
};

WhyNotName NameOf(WhyNot why) {
  switch (why) {
    case WhyNot::None:
      return {"none", "no reason"};
    case WhyNot::NotKnownYet:
      return {"not_known_yet", "not known yet"};
    case WhyNot::SeenTooSeldom:
      return {"seen_too_seldom", "seen too seldom"};
    case WhyNot::FreshInDiskCache:
      return {"fresh_in_disk_cache", "fresh in the disk cache"};
    case WhyNot::NotGet:
      return {"not_get", "not a GET"};
    case WhyNot::NoDeclaredLength:
      return {"no_declared_length", "no declared length"};
    case WhyNot::OverSizeLimit:
      return {"over_size_limit", "over the size limit"};
    case WhyNot::EmptyBody:
      return {"empty_body", "empty body"};
    case WhyNot::WentStale:
      return {"went_stale", "went stale during the load"};
    case WhyNot::Html:
      return {"html", "HTML"};
    case WhyNot::StatusNot200:
      return {"status_not_200", "status other than 200"};
    case WhyNot::Failed:
      return {"failed", "fetch failed"};
    case WhyNot::BrowserAskedFirst:
      return {"browser_asked_first", "the browser asked first"};
    case WhyNot::LimitReached:
      return {"limit_reached", "limit reached"};
    case WhyNot::SharesHash:
      return {"shares_hash", "its hash is another URL's"};
    case WhyNot::NoContext:
      return {"no_context", "no request context"};
    case WhyNot::StillRunning:
      return {"still_running", "preload still running"};
    case WhyNot::UsedUp:
      return {"used_up", "used before on this page"};
    case WhyNot::SwitchedOff:
      return {"switched_off", "switched off"};
  }
  return {"unknown", "unknown"};
}

}  // namespace

const char* WhyNotText(WhyNot why) {
  return NameOf(why).text;
}

const char* WhyNotKey(WhyNot why) {
  return NameOf(why).key;
}

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
  return visit.ways[static_cast<size_t>(way)];
}

bool IsSlower(const Visit& visit) {
  return Of(visit, Way::Plugin).pageLoadUs * 100 > Of(visit, Way::Off).pageLoadUs * 101;
}

}  // namespace replay
