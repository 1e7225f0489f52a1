// Which cookies the browser would send, against a slow model that keeps everything that happened and looks
// through all of it for each answer; and any bytes as cookies, which must not break out of their header.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/fuzz_input.h"
#include "live/proxy/cookie_view.h"

namespace {

constexpr double kNowMs = 784111777e3;  // Sun, 06 Nov 1994 08:49:37 GMT
const char* const kSites[] = {"https://a.test", "https://b.test"};
const char* const kUrls[] = {"https://a.test/1", "https://a.test/2", "https://b.test/1", "http://a.test/1"};
constexpr int kHostOfUrl[] = {0, 0, 1, 2};
const char* const kNames[] = {"a", "b", ""};

struct Event {
  bool sent;  // by the browser; else set or removed by an answer
  int site, url;
  std::string name, value;  // of an answer's cookie
  bool removes = false, everywhere = true;
  std::vector<std::pair<std::string, std::string>> cookies;  // that were sent
};

class Session {
 public:
  explicit Session(FuzzInput& input) : input_(input) {}

  void Step() {
    Event event{.sent = input_.Flag(), .site = input_.Byte() % 2, .url = input_.Byte() % 4};
    event.sent ? Send(event) : Answer(event);
    events_.push_back(event);
    for (int site = 0; site < 2; ++site) {
      for (int url = 0; url < 4; ++url) {
        for (const bool carried : {false, true}) {
          FUZZ_CHECK(view_.For(kSites[site], kUrls[url], carried) == Expected(site, url, carried));
        }
      }
    }
  }

 private:
  void Send(Event& event) {
    std::string header;
    for (const char* const name : kNames) {
      if (input_.Flag()) continue;
      event.cookies.emplace_back(name, std::to_string(input_.Byte() % 4));
      const auto& [last, value] = event.cookies.back();
      if (!header.empty()) header += input_.Flag() ? ";" : "\r\ncookie: ";
      header += last.empty() ? value : last + " = " + value;
    }
    view_.Sent(kSites[event.site], kUrls[event.url],
               header.empty() ? "A: b\r\n" : "Cookie:" + header + "\r\n");
  }

  void Answer(Event& event) {
    const char* const ends[] = {"",
                                "; Max-Age=0",
                                "; max-age=-1; expires=Sun, 06 Nov 2094 08:49:37 GMT",
                                "; expires=Sun, 06 Nov 1994 08:49:36 GMT",
                                "; expires=Sun, 06 Nov 1994 08:49:36 GMT; Max-Age=9",
                                "; expires=Sun, 06 Nov 1994 08:49:38 GMT",
                                "; expires=never"};
    constexpr bool kRemoves[] = {false, true, true, true, false, false, false};
    const uint8_t end = input_.Byte() % 7;
    event.name = input_.OneOf(kNames);
    event.value = std::to_string(input_.Byte() % 4);
    event.removes = kRemoves[end];
    event.everywhere = input_.Flag();
    const std::string text = (event.name.empty() ? "" : event.name + "=") + event.value + ends[end] +
                             (event.everywhere ? "; Path=/; Secure" : ";path=/deep");
    view_.Answered(kSites[event.site], kUrls[event.url],
                   std::string("HTTP/1.1 200 OK\0", 16) + "Set-Cookie: " + text + std::string(2, '\0'),
                   kNowMs);
  }

  std::optional<std::string> Expected(int site, int url, bool carried) const {
    std::vector<std::pair<std::string, std::string>> held;  // of the host, in their order
    std::vector<std::string> fresh;                         // of these, set by answers and not sent since
    std::optional<std::vector<std::string>> names;          // that the URL's last request carried
    bool isKnown = false;                                   // the host
    for (const Event& event : events_) {
      if (event.site != site || kHostOfUrl[event.url] != kHostOfUrl[url]) continue;
      isKnown = true;
      const auto place = [&held](const std::string& name) {
        return std::find_if(held.begin(), held.end(),
                            [&](const auto& cookie) { return cookie.first == name; });
      };
      if (event.sent && event.url == url) names.emplace();
      for (const auto& [name, value] : event.cookies) {
        if (event.url == url) names->push_back(name);
        std::erase(fresh, name);
        if (place(name) == held.end()) held.emplace_back(name, value);
        place(name)->second = value;
      }
      if (event.sent) continue;
      if (event.removes) {
        if (place(event.name) != held.end()) held.erase(place(event.name));
        std::erase(fresh, event.name);
      } else if (place(event.name) != held.end()) {
        place(event.name)->second = event.value;
      } else {
        held.emplace_back(event.name, event.value);
        if (event.everywhere) fresh.push_back(event.name);
      }
    }
    const auto has = [](const std::vector<std::string>& list, const std::string& name) {
      return std::find(list.begin(), list.end(), name) != list.end();
    };
    if (!names && carried && (!isKnown || held.empty())) return std::nullopt;
    std::string text;
    for (const auto& [name, value] : held) {
      const bool goes = names ? has(*names, name) || (!names->empty() && has(fresh, name)) : carried;
      if (goes) text += (text.empty() ? "" : "; ") + (name.empty() ? value : name + "=" + value);
    }
    return text;
  }

  FuzzInput& input_;
  live::CookieView view_{100, 100};
  std::vector<Event> events_;
};

void TryBytes(const std::string& bytes) {
  live::CookieView view(2, 2);
  view.Sent(kSites[0], kUrls[0], "Cookie: known=1\r\n");
  view.Answered(kSites[0], kUrls[0],
                std::string("HTTP/1.1 200 OK\0Set-Cookie: ", 28) + bytes + std::string(2, '\0'), kNowMs);
  const std::string cookies = view.For(kSites[0], kUrls[0], true).value();
  FUZZ_CHECK(std::all_of(cookies.begin(), cookies.end(),
                         [](char c) { return static_cast<uint8_t>(c) >= ' ' || c == '\t'; }));
  view.Sent(kSites[0], kUrls[0], "Cookie: " + cookies + "\r\n");
  FUZZ_CHECK(view.For(kSites[0], kUrls[0], true).has_value());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  if (input.Flag()) {
    TryBytes(input.Bytes(size));
  } else {
    Session session(input);
    for (int step = 0; step < 40 && !input.Empty(); ++step) session.Step();
  }
  return 0;
}
