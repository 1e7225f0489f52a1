#include "live/proxy/cookie_view.h"

#include <algorithm>

#include "host/http/dates.h"
#include "host/http/header_block.h"
#include "net/http/header_text.h"
#include "url/gurl.h"

namespace live {
namespace {

using Cookie = std::pair<std::string, std::string>;

Cookie NameAndValue(std::string_view text) {
  const size_t equals = text.find('=');
  if (equals == std::string_view::npos) return {std::string(), std::string(net::TrimBlanks(text))};
  return {std::string(net::TrimBlanks(text.substr(0, equals))),
          std::string(net::TrimBlanks(text.substr(equals + 1)))};
}

template <typename OnPart>
void ForEachPart(std::string_view text, const OnPart& onPart) {
  while (!text.empty()) {
    const size_t end = std::min(text.find(';'), text.size());
    onPart(net::TrimBlanks(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

std::vector<Cookie> CookiesIn(std::string_view requestHeaders) {
  std::vector<Cookie> cookies;
  http::ForEachHeader(requestHeaders, [&cookies](std::string_view name, std::string_view value) {
    if (!net::EqualsIgnoringCase(name, "Cookie")) return;
    ForEachPart(value, [&cookies](std::string_view part) {
      if (!part.empty()) cookies.push_back(NameAndValue(part));
    });
  });
  return cookies;
}

// What cookies are kept by besides the page's site. Browsers send those of http over https as well, and the
// other way round unless they are secure; here each scheme learns from its own requests alone.
std::string HostOf(const std::string& url) {
  return url.substr(0, url.find(':')) + "://" + GURL(url).host();
}

// Browsers do not take such a cookie, and in a preload's request it would end the header.
bool HasControlCharacter(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return (c >= 0 && c < ' ' && c != '\t') || c == 0x7F; });
}

struct SetCookie {
  Cookie cookie;
  bool removes = false;    // it is over already
  bool everywhere = true;  // on the whole host, as far as its path tells
};

SetCookie ReadSetCookie(std::string_view value, double nowMs) {
  SetCookie set;
  std::optional<bool> isOverByAge;  // counts before the date
  bool first = true;
  ForEachPart(value, [&](std::string_view part) {
    if (std::exchange(first, false)) {
      set.cookie = NameAndValue(part);
      return;
    }
    const auto [name, text] = NameAndValue(part);
    if (net::EqualsIgnoringCase(name, "max-age")) isOverByAge = text.starts_with('-') || text == "0";
    if (net::EqualsIgnoringCase(name, "expires")) {
      set.removes = http::ParseHttpDate(text).value_or(nowMs + 1) <= nowMs;
    }
    if (net::EqualsIgnoringCase(name, "path")) set.everywhere = text == "/" || !text.starts_with('/');
  });
  set.removes = isOverByAge.value_or(set.removes);
  return set;
}

}  // namespace

void CookieView::Sent(const std::string& site, const std::string& url, std::string_view requestHeaders) {
  std::set<std::string>& names = urls_.Use({site, url});
  Host& host = hosts_.Use({site, HostOf(url)});
  names.clear();
  for (const Cookie& cookie : CookiesIn(requestHeaders)) {
    names.insert(cookie.first);
    host.added.erase(cookie.first);
    const auto known = std::find_if(host.cookies.begin(), host.cookies.end(),
                                    [&cookie](const Cookie& other) { return other.first == cookie.first; });
    if (known != host.cookies.end()) {
      known->second = cookie.second;
    } else {
      host.cookies.push_back(cookie);
    }
  }
  urls_.DropExcess();
  hosts_.DropExcess();
}

void CookieView::Answered(const std::string& site, const std::string& url, const std::string& responseBlock,
                          double nowMs) {
  http::ForEachHeader(responseBlock, [&](std::string_view name, std::string_view value) {
    if (!net::EqualsIgnoringCase(name, "Set-Cookie") || HasControlCharacter(value)) return;
    const SetCookie set = ReadSetCookie(value, nowMs);
    Host& host = hosts_.Use({site, HostOf(url)});
    const auto known = std::find_if(host.cookies.begin(), host.cookies.end(),
                                    [&set](const Cookie& other) { return other.first == set.cookie.first; });
    if (set.removes) {
      if (known != host.cookies.end()) host.cookies.erase(known);
      host.added.erase(set.cookie.first);
    } else if (known != host.cookies.end()) {
      known->second = set.cookie.second;
    } else {
      host.cookies.push_back(set.cookie);
      if (set.everywhere) host.added.insert(set.cookie.first);
    }
  });
  hosts_.DropExcess();
}

std::optional<std::string> CookieView::For(const std::string& site, const std::string& url,
                                           bool carriedCookies) const {
  const Host* const host = hosts_.Peek({site, HostOf(url)});
  const std::set<std::string>* const names = urls_.Peek({site, url});
  if (host == nullptr || (names == nullptr && host->cookies.empty())) {
    if (carriedCookies) return std::nullopt;
    return std::string();
  }
  if (names == nullptr && !carriedCookies)
    return std::string();  // its requests carry none, whatever the host's do
  std::string value;
  for (const auto& [name, text] : host->cookies) {
    // Which of a host's cookies go to a URL depends on their paths, which only its own requests show.
    if (names != nullptr && !names->contains(name) && !(host->added.contains(name) && !names->empty()))
      continue;
    value.append(value.empty() ? "" : "; ").append(name.empty() ? text : name + "=" + text);
  }
  return value;
}

}  // namespace live
