// One page load in one line. Any thread.
#ifndef LIVE_JOURNAL_PAGE_LINES_H_
#define LIVE_JOURNAL_PAGE_LINES_H_

#include <cstdint>
#include <string>

#include "live/proxy/proxy_engine.h"

namespace live {

// For people, without the line's end:
// "https://a.test/  61 resources: 40 served, 5 joined, 16 fetched; 2 preloads unused; 1.2 MB in 0.83 s". A
// URL of more than 120 bytes is cut; what is not printable in it is escaped.
std::string PageLine(const PageRecord& page);

// For programs, with the line's end; docs/proxy.md lists the keys. `wallUs` is what the wall clock (since
// 1970) is ahead of the loop's.
std::string PageJson(const PageRecord& page, int64_t wallUs);

// "2026-01-31T12:30:05.123Z".
std::string IsoDate(int64_t usSince1970);

}  // namespace live

#endif  // LIVE_JOURNAL_PAGE_LINES_H_
