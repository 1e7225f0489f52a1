// Describes one page load in one line. Any thread.
#ifndef LIVE_JOURNAL_PAGE_LINES_H_
#define LIVE_JOURNAL_PAGE_LINES_H_

#include <cstdint>
#include <string>

#include "live/proxy/proxy_engine.h"

namespace live {

// The line for people, without a line end:
// "https://a.test/  61 resources: 40 served, 5 joined, 16 fetched; 2 preloads unused; 1.2 MB in 0.83 s". A
// URL of more than 120 bytes is cut, and characters that are not printable are escaped.
std::string PageLine(const PageRecord& page);

// The line for programs, with a line end; docs/proxy.md lists the keys. `wallUs` says how far the wall clock
// (since 1970) is ahead of the loop's.
std::string PageJson(const PageRecord& page, int64_t wallUs);

// "2026-01-31T12:30:05.123Z".
std::string IsoDate(int64_t usSince1970);

}  // namespace live

#endif  // LIVE_JOURNAL_PAGE_LINES_H_
