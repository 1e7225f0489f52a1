// Why a load was not answered from a preload: every reason of the host, with its key and its texts in
// reports. Any thread.
#ifndef HOST_NOT_SERVED_H_
#define HOST_NOT_SERVED_H_

#include <array>
#include <cstddef>

namespace host {

enum class NotServed {
  None,  // it was answered, or not requested

  // The resource was not ordered.
  NotKnownYet,
  SeenTooSeldom,
  Volatile,
  AfterLoad,
  FreshInDiskCache,
  WentStale,
  NotGet,
  StatusNot200,
  Html,
  NoDeclaredLength,
  OverSizeLimit,
  EmptyBody,
  NoContext,
  SharesHash,
  OtherPage,
  CookiesUnknown,
  SwitchedOff,

  // It was ordered, but not available when it was requested.
  BrowserAskedFirst,
  LimitReached,
  Failed,
  StillRunning,
  Stalled,
  UsedUp,
  Invalidated,
  Dropped,

  // It was available, but not for this request.
  HasRequestBody,
  Range,
  Precondition,
  Authorization,
  AsksForNewCopy,
  OtherCredentials,
  OtherCookies,
  OtherVariant,
  CodingNotAccepted,
};

struct NotServedWords {
  NotServed reason;
  const char* key;          // in JSON and other machine-readable output
  const char* text;         // in tables
  const char* explanation;  // a full sentence
};

// In the order of the enumerators.
inline constexpr std::array kNotServedWords = {
    NotServedWords{NotServed::None, "none", "no reason", "The load was served, or it is not a resource."},
    NotServedWords{NotServed::NotKnownYet, "not_known_yet", "not known yet",
                   "No earlier visit to the page has asked for it."},
    NotServedWords{NotServed::SeenTooSeldom, "seen_too_seldom", "seen too seldom",
                   "Too few of the page's earlier visits have asked for it."},
    NotServedWords{NotServed::Volatile, "volatile", "address changes",
                   "Its address holds a long number and was seen on one visit only."},
    NotServedWords{NotServed::AfterLoad, "after_load", "asked for after the load event",
                   "Earlier visits asked for it only after the page's load event."},
    NotServedWords{NotServed::FreshInDiskCache, "fresh_in_disk_cache", "fresh in the disk cache",
                   "The browser's own cache answers it without the network."},
    NotServedWords{
        NotServed::WentStale, "went_stale", "went stale during the load",
        "It was fresh in the browser's cache when the page was requested, and no longer when it was "
        "asked for."},
    NotServedWords{NotServed::NotGet, "not_get", "not a GET", "Only responses to GET requests can be held."},
    NotServedWords{NotServed::StatusNot200, "status_not_200", "status other than 200",
                   "Only responses with status 200 can be held."},
    NotServedWords{NotServed::Html, "html", "HTML", "The plugin does not serve HTML."},
    NotServedWords{NotServed::NoDeclaredLength, "no_declared_length", "no declared length",
                   "The response does not declare the length of its body, so it cannot be held."},
    NotServedWords{NotServed::OverSizeLimit, "over_size_limit", "over the size limit",
                   "The body is larger than the plugin may hold."},
    NotServedWords{NotServed::EmptyBody, "empty_body", "empty body",
                   "The plugin holds nothing without a body."},
    NotServedWords{NotServed::NoContext, "no_context", "no request context",
                   "The page was requested without a context that its preloads could be sent with."},
    NotServedWords{
        NotServed::SharesHash, "shares_hash", "its hash is another URL's",
        "Another URL that was ordered has the same 32-bit hash, and the plugin cannot tell them apart."},
    NotServedWords{NotServed::OtherPage, "other_page", "ordered by another page",
                   "Another open page has ordered the same URL, and a preload is used by one page only."},
    NotServedWords{NotServed::CookiesUnknown, "cookies_unknown", "cookies not known",
                   "It is not known which cookies the browser would send with it."},
    NotServedWords{NotServed::SwitchedOff, "switched_off", "switched off",
                   "A property has switched the plugin, its cache or the preloader off."},
    NotServedWords{NotServed::BrowserAskedFirst, "browser_asked_first", "the browser asked first",
                   "The preload was queued, and the page asked before it was launched."},
    NotServedWords{
        NotServed::LimitReached, "limit_reached", "limit reached",
        "The preload was queued behind others: all sockets or preloads of its server were in use."},
    NotServedWords{NotServed::Failed, "failed", "fetch failed",
                   "The preload ended with an error, or the plugin did not take its response."},
    NotServedWords{NotServed::StillRunning, "still_running", "preload still running",
                   "The preload was under way; the load joined it, or was sent again where joining is off."},
    NotServedWords{NotServed::Stalled, "stalled", "preload made no progress",
                   "The load had joined a preload that stopped, and went to the network itself."},
    NotServedWords{NotServed::UsedUp, "used_up", "used before on this page",
                   "The page had asked for it before, and a preload is used once."},
    NotServedWords{NotServed::Invalidated, "invalidated", "changed by a request",
                   "A request that changes things, such as a POST, has made the preload out of date."},
    NotServedWords{NotServed::Dropped, "dropped", "dropped as idle",
                   "The page had asked for nothing for so long that its preloads were dropped."},
    NotServedWords{NotServed::HasRequestBody, "has_request_body", "request with a body",
                   "A request with a body is always sent."},
    NotServedWords{NotServed::Range, "range", "request for a range",
                   "A request for a part of the resource is always sent."},
    NotServedWords{NotServed::Precondition, "precondition", "request with a precondition",
                   "A request with If-Match, If-Unmodified-Since or If-Range is always sent."},
    NotServedWords{NotServed::Authorization, "authorization", "request with Authorization",
                   "A request that carries credentials of its own is always sent."},
    NotServedWords{NotServed::AsksForNewCopy, "asks_for_new_copy", "request for a new copy",
                   "The request forbids an answer from a cache, as a reload does."},
    NotServedWords{NotServed::OtherCredentials, "other_credentials", "other credentials",
                   "The preload was sent with credentials and the request without, or the other way round."},
    NotServedWords{NotServed::OtherCookies, "other_cookies", "other cookies",
                   "The cookies have changed since the preload was sent."},
    NotServedWords{
        NotServed::OtherVariant, "other_variant", "another variant",
        "The response varies by a request header that the preload was sent with another value of."},
    NotServedWords{NotServed::CodingNotAccepted, "coding_not_accepted", "coding not accepted",
                   "The request does not accept the content coding of the preloaded response."},
};

constexpr const NotServedWords& WordsFor(NotServed reason) {
  return kNotServedWords[static_cast<size_t>(reason)];
}

namespace internal {
constexpr bool WordsAreInOrder() {
  for (size_t index = 0; index < kNotServedWords.size(); ++index) {
    if (static_cast<size_t>(kNotServedWords[index].reason) != index) return false;
  }
  return kNotServedWords.size() == static_cast<size_t>(NotServed::CodingNotAccepted) + 1;
}
}  // namespace internal
static_assert(internal::WordsAreInOrder());

}  // namespace host

#endif  // HOST_NOT_SERVED_H_
