#include "replay/recording/har_pages.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <set>

#include "host/http/dates.h"
#include "replay/recording/redirects.h"

namespace replay {
namespace {

constexpr double kOffMs = 24 * 3600e3;      // from the middle row; a date that is further away is wrong
constexpr double kMostShiftMs = 10 * 60e3;  // between a page's own start and its first row's

bool IsHtml(const Request& request) {
  if (request.mimeType.empty()) return request.kind == host::ResourceKind::Document;
  return request.mimeType == "text/html" || request.mimeType == "application/xhtml+xml";
}

// A page while its rows are being collected.
struct Draft {
  HarPage har;
  std::optional<double> startedMs;  // as the file says
  std::optional<double> fromMs;     // the earlier of that and of the first row that names it
  std::vector<double> namedMs;      // starts of the rows that name it and no other page, ascending
  std::vector<size_t> rows;         // in file order
};

void Earlier(std::optional<double>& least, std::optional<double> ms) {
  if (ms && (!least || *ms < *least)) least = ms;
}

// Removes the dates that are too far from the middle one.
struct Era {
  std::optional<double> middleMs;

  std::optional<double> Check(std::optional<double> ms) const {
    return ms && middleMs && std::abs(*ms - *middleMs) <= kOffMs ? ms : std::nullopt;
  }
};

Era FindEra(const std::vector<HarRow>& rows) {
  std::vector<double> dates;
  for (const HarRow& row : rows) {
    if (row.startedMs) dates.push_back(*row.startedMs);
  }
  if (dates.empty()) return {};
  const auto middle = dates.begin() + static_cast<std::ptrdiff_t>(dates.size() / 2);
  std::nth_element(dates.begin(), middle, dates.end());
  return {*middle};
}

std::vector<Draft> DraftPages(const std::vector<HarPage>& harPages, const std::vector<HarRow>& rows,
                              const Era& era) {
  std::vector<Draft> drafts;
  for (const HarPage& page : harPages) {
    const std::optional<double> started = era.Check(http::ParseIsoDate(page.startedDateTime));
    drafts.push_back({.har = page, .startedMs = started, .fromMs = started});
  }
  if (!drafts.empty()) return drafts;
  std::set<std::string_view> known;
  for (const HarRow& row : rows) {
    if (known.insert(row.pageref).second) drafts.push_back({.har = {.id = row.pageref}});
  }
  return drafts;
}

// Sorts pages by their starts. Those without a start come last.
std::vector<size_t> SortedByStart(const std::vector<Draft>& drafts, std::vector<size_t> pages) {
  std::stable_sort(pages.begin(), pages.end(), [&](size_t a, size_t b) {
    if (!drafts[a].fromMs || !drafts[b].fromMs) return drafts[a].fromMs.has_value() && !drafts[b].fromMs;
    return *drafts[a].fromMs < *drafts[b].fromMs;
  });
  return pages;
}

// When the last row that names the page and had begun by that time began; -1 if there is none.
double LastNamedMs(const Draft& draft, double ms) {
  const auto after = std::upper_bound(draft.namedMs.begin(), draft.namedMs.end(), ms);
  return after == draft.namedMs.begin() ? -1 : *(after - 1);
}

// The last page that had started when the row started, or the first page if the row has no time or is too
// early. Of several pages that started at the same time, it is the one whose own rows come closest before the
// row.
size_t PageAt(const std::vector<Draft>& drafts, const std::vector<size_t>& sorted, std::optional<double> ms) {
  if (!ms) return sorted.front();
  const auto after = std::partition_point(sorted.begin(), sorted.end(), [&](size_t page) {
    return drafts[page].fromMs && *drafts[page].fromMs <= *ms;
  });
  if (after == sorted.begin()) return sorted.front();
  const auto fromMs = drafts[*(after - 1)].fromMs;
  const auto first =
      std::find_if(sorted.begin(), after, [&](size_t page) { return drafts[page].fromMs == fromMs; });
  return *std::max_element(first, after, [&](size_t a, size_t b) {
    return LastNamedMs(drafts[a], *ms) < LastNamedMs(drafts[b], *ms);
  });
}

void AssignRows(const std::vector<HarRow>& rows, std::vector<Draft>& drafts) {
  std::map<std::string_view, std::vector<size_t>> pagesById;
  for (size_t page = 0; page < drafts.size(); ++page) pagesById[drafts[page].har.id].push_back(page);
  for (const HarRow& row : rows) {
    const auto named = pagesById.find(row.pageref);
    if (named != pagesById.end() && named->second.size() == 1) {
      Draft& draft = drafts[named->second.front()];
      Earlier(draft.fromMs, row.startedMs);
      if (row.startedMs) draft.namedMs.push_back(*row.startedMs);
    }
  }
  for (Draft& draft : drafts) std::sort(draft.namedMs.begin(), draft.namedMs.end());
  for (auto& [id, pages] : pagesById) pages = SortedByStart(drafts, std::move(pages));
  std::vector<size_t> all(drafts.size());
  std::iota(all.begin(), all.end(), size_t{0});
  all = SortedByStart(drafts, std::move(all));
  for (size_t row = 0; row < rows.size(); ++row) {
    const auto named = pagesById.find(rows[row].pageref);
    const std::vector<size_t>& candidates = named != pagesById.end() ? named->second : all;
    drafts[PageAt(drafts, candidates, rows[row].startedMs)].rows.push_back(row);
  }
}

// The times of a page count from its own start in the file, and from its first request here.
double ShiftedTiming(std::optional<double> ms, double shiftMs) {
  if (!ms || *ms <= 0 || *ms > kOffMs) return -1;
  return *ms + shiftMs < 0 ? -1 : *ms + shiftMs;
}

bool IsDocument(const Request& request) {
  return request.status >= 200 && request.status < 300 && IsHtml(request);
}

// Whether an earlier row of the page has initiated it, as pages do with frames.
bool IsCalledFor(const Page& page, size_t index) {
  const Request& request = page.requests[index];
  return std::any_of(page.requests.begin(), page.requests.begin() + static_cast<std::ptrdiff_t>(index),
                     [&request](const Request& before) {
                       const bool names = before.url == request.initiatorUrl || before.url == request.referer;
                       return names && !IsRedirect(before) && before.url != request.url;
                     });
}

// The row at which the redirects that begin with the first row end.
size_t EndOfRedirects(const Page& page) {
  size_t end = 0;
  for (size_t index = 1; index < page.requests.size(); ++index) {
    const Request& last = page.requests[end];
    if (!IsRedirect(last)) break;
    if (page.requests[index].url == RedirectTarget(last)) end = index;
  }
  return end;
}

// Finds the main document. A recorder may write a few other rows before it. An HTML row that comes much
// later, or that another row has initiated, is a frame of a page whose own document is not marked as HTML (it
// may have been answered with 304).
size_t FindDocument(const Page& page) {
  constexpr size_t kMostBefore = 10;
  const size_t end = EndOfRedirects(page);
  if (IsDocument(page.requests[end])) return end;
  for (size_t index = 0; index < page.requests.size() && index <= kMostBefore; ++index) {
    if (IsDocument(page.requests[index])) return IsCalledFor(page, index) ? end : index;
  }
  return end;
}

// Redirects that lead to the main document are part of the navigation, whatever their type is.
void MarkDocument(Page& page) {
  page.document = FindDocument(page);
  const auto document = page.requests.begin() + static_cast<std::ptrdiff_t>(page.document);
  if (IsDocument(*document)) document->kind = host::ResourceKind::Document;
  std::for_each(page.requests.begin(), document, [](Request& request) {
    if (IsRedirect(request) && request.kind == host::ResourceKind::Other) {
      request.kind = host::ResourceKind::Document;
    }
  });
}

Page MakePage(const Draft& draft, std::vector<HarRow>& rows) {
  Page page{.id = draft.har.id, .title = draft.har.title};
  std::optional<double> firstMs;
  for (const size_t row : draft.rows) Earlier(firstMs, rows[row].startedMs);
  double lastMs = firstMs.value_or(0);
  for (const size_t row : draft.rows) {
    lastMs = rows[row].startedMs.value_or(lastMs);
    Request& request = page.requests.emplace_back(std::move(rows[row].request));
    request.startMs = lastMs - firstMs.value_or(0);
    request.endMs = request.startMs + rows[row].durationMs;
  }
  std::stable_sort(page.requests.begin(), page.requests.end(),
                   [](const Request& a, const Request& b) { return a.startMs < b.startMs; });
  double shiftMs = draft.startedMs && firstMs ? *draft.startedMs - *firstMs : 0;
  if (std::abs(shiftMs) > kMostShiftMs) shiftMs = 0;
  page.firstPaintMs = ShiftedTiming(draft.har.firstPaintMs, shiftMs);
  page.onContentLoadMs = ShiftedTiming(draft.har.onContentLoadMs, shiftMs);
  page.onLoadMs = ShiftedTiming(draft.har.onLoadMs, shiftMs);
  MarkDocument(page);
  return page;
}

}  // namespace

std::vector<Page> MakePages(const std::vector<HarPage>& harPages, std::vector<HarRow> rows) {
  const Era era = FindEra(rows);
  for (HarRow& row : rows) row.startedMs = era.Check(row.startedMs);
  std::vector<Draft> drafts = DraftPages(harPages, rows, era);
  if (drafts.empty()) return {};
  AssignRows(rows, drafts);
  std::vector<Page> pages;
  std::vector<size_t> order(drafts.size());
  std::iota(order.begin(), order.end(), size_t{0});
  for (const size_t draft : SortedByStart(drafts, std::move(order))) {
    if (!drafts[draft].rows.empty()) pages.push_back(MakePage(drafts[draft], rows));
  }
  return pages;
}

}  // namespace replay
