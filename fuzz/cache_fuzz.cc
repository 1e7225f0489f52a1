// The browser's HTTP cache against a slow model of the rules: a list of what is stored, of which every
// decision is worked out anew from what the two sides said. The model takes requests and responses as records
// and never reads a header; the cache gets them as text.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/fuzz_input.h"
#include "host/http/dates.h"
#include "host/http/header_block.h"
#include "live/cache/http_cache.h"
#include "net/http/http_response_headers.h"

namespace {

constexpr int64_t kStart = 784111777;  // times are whole seconds since 1970
constexpr int64_t kAbsent = -1;
constexpr int64_t kAny = 1 << 20;
constexpr size_t kMostEntries = 4;
constexpr size_t kBodySize = 5;
constexpr live::CacheLimits kLimits = {.bytes = 20000, .responseBytes = 3000, .entries = kMostEntries};

const char* const kTags[] = {"", "\"a\"", "\"b\"", "W/\"a\""};
const char kOpaque[] = {'\0', 'a', 'b', 'a'};
constexpr int kWeakTag = 3;
const char* const kUrls[] = {"http://a.test/0", "http://a.test/1?x"};

struct Ask {
  std::string method;
  int url = 0, partition = 0;
  int a = 0, b = 0;  // headers that responses vary by; 0 is none
  bool noStore = false, noCache = false, onlyIfCached = false, range = false;
  int64_t maxAge = kAbsent, minFresh = kAbsent, maxStale = kAbsent;
  int tag = 0;  // If-None-Match
  int64_t since = kAbsent;
};

struct Control {
  bool noStore = false, noCache = false, mustRevalidate = false, immutable = false, isPublic = false;
  bool mustUnderstand = false;
  int64_t maxAge = kAbsent;
  bool operator==(const Control&) const = default;
};

struct Vary {
  bool a = false, b = false, all = false;
  bool operator==(const Vary&) const = default;
};

struct Answer {
  int status = 200;
  Control control;
  Vary vary;
  int tag = 0;
  int64_t age = kAbsent, date = kAbsent, expires = kAbsent, modified = kAbsent, length = kAbsent;
  bool setsCookie = false, namesOther = false;  // in Location
};

struct Record {
  Ask ask;
  Answer answer;
  int64_t requested, received;
  std::string body;
  uint64_t used = 0;
};

// --- What the fuzzer chooses.

int64_t Seconds(FuzzInput& input) {
  constexpr int64_t kSeconds[] = {kAbsent, 0, 1, 10, 60, kAbsent};
  return input.OneOf(kSeconds);
}

// Multiples of ten seconds and five before: a tenth of the time since is never whole.
int64_t Modified(FuzzInput& input) {
  return kStart - 10 * (input.Byte() % 16) - 5;
}

Ask MakeAsk(FuzzInput& input) {
  constexpr const char* kMethods[] = {"GET", "GET", "GET", "HEAD", "POST"};
  Ask ask{.method = input.OneOf(kMethods)};
  const uint8_t key = input.Byte(), kind = input.Byte();
  ask.url = key & 1;
  ask.partition = (key & 14) == 2;
  ask.a = (key >> 4 & 3) % 3;
  ask.b = key >> 6 & 1;
  ask.noStore = kind % 16 == 1;
  ask.noCache = kind % 16 == 2;
  ask.onlyIfCached = kind % 16 == 3;
  ask.range = kind % 16 == 4;
  if (kind % 16 == 5) ask.tag = 1 + input.Byte() % 3;
  if (kind % 16 == 6) ask.since = Modified(input);
  if ((kind & 48) != 48) return ask;
  ask.maxAge = Seconds(input);
  ask.minFresh = Seconds(input);
  ask.maxStale = input.Flag() ? kAny : Seconds(input);
  return ask;
}

Answer MakeAnswer(FuzzInput& input, int64_t now) {
  constexpr int kStatuses[] = {200, 200, 200, 304, 304, 302, 404, 500, 206};
  Answer answer{.status = input.OneOf(kStatuses)};
  const uint8_t control = input.Byte(), kind = input.Byte(), dates = input.Byte();
  answer.control = {control % 8 == 1, control % 8 == 2,     (control & 8) != 0, (control & 16) != 0,
                    control % 8 == 3, (control & 96) == 96, Seconds(input)};
  answer.vary = {(kind & 3) == 1, (kind & 4) != 0, (kind & 31) == 31};
  answer.tag = kind >> 6;
  answer.setsCookie = (kind & 8) != 0;
  answer.namesOther = (kind & 16) != 0;
  if ((dates & 3) == 3) answer.age = input.Byte();
  if ((dates & 4) != 0) answer.date = now + 1 - input.Byte() % 64;
  if ((dates & 8) != 0) answer.expires = now - 1 + input.Byte() % 64;
  if ((dates & 16) != 0) answer.modified = Modified(input);
  if ((dates & 96) == 96) answer.length = kBodySize + (dates >> 7);
  return answer;
}

// --- As text.

std::string Date(int64_t seconds) {
  return http::FormatHttpDate(static_cast<double>(seconds) * 1e3);
}

std::string Directive(const char* name, int64_t seconds) {
  if (seconds == kAbsent) return "";
  return std::string(name) + (seconds == kAny ? "" : "=\"" + std::to_string(seconds) + "\"") + ", ";
}

live::CacheRequest Text(const Ask& ask) {
  std::string headers;
  const auto add = [&headers](bool there, const char* name, const std::string& value) {
    if (there) headers.append(name).append(": ").append(value).append("\r\n");
  };
  const std::string seconds = Directive("max-age", ask.maxAge) + Directive("Min-Fresh", ask.minFresh) +
                              Directive("max-stale", ask.maxStale);
  add(ask.noStore, "Cache-Control", "no-store");
  add(ask.noCache, "Cache-Control", "a=\"b,c\",no-cache");
  add(ask.onlyIfCached, "cache-control", "ONLY-IF-CACHED");
  add(!seconds.empty(), "Cache-Control", seconds);
  add(ask.a != 0, "A", std::to_string(ask.a));
  add(ask.b != 0, "b", "x, y");
  add(ask.range, "Range", "bytes=0-1");
  add(ask.tag != 0, "If-None-Match", std::string("\"c,d\",") + kTags[ask.tag]);
  add(ask.since != kAbsent, "If-Modified-Since", Date(ask.since));
  return {ask.method, std::string(kUrls[ask.url]) + "#f", headers, std::to_string(ask.partition)};
}

std::string Text(const Answer& answer, const Ask& ask) {
  std::string block = "HTTP/1.1 " + std::to_string(answer.status) + '\0';
  const auto add = [&block](bool there, const char* name, const std::string& value) {
    if (there) block.append(name).append(":").append(value).push_back('\0');
  };
  const Control& control = answer.control;
  add(control.noStore, "Cache-Control", "no-store");
  add(control.noCache, "CACHE-CONTROL", "no-cache=\"x, y\"");
  add(control.mustRevalidate, "Cache-Control", "must-revalidate, ,");
  add(control.immutable, "Cache-Control", "immutable");
  add(control.isPublic, "Cache-Control", "public");
  add(control.mustUnderstand, "Cache-Control", "must-understand");
  add(control.maxAge != kAbsent, "Cache-Control", Directive("max-age", control.maxAge) + "max-age=7");
  add(answer.vary.a, "Vary", "c, a");
  add(answer.vary.b, "vary", "B");
  add(answer.vary.all, "Vary", " *");
  add(answer.tag != 0, "ETag", kTags[answer.tag]);
  add(answer.age != kAbsent, "Age", std::to_string(answer.age));
  add(answer.date != kAbsent, "Date", Date(answer.date));
  add(answer.expires != kAbsent, "Expires", Date(answer.expires));
  add(answer.modified != kAbsent, "Last-Modified", Date(answer.modified));
  add(answer.length != kAbsent, "Content-Length", std::to_string(answer.length));
  add(answer.setsCookie, "Set-Cookie", "a=b");
  add(answer.namesOther, "Location", std::string(kUrls[1 - ask.url]).substr(sizeof("http://a.test/") - 1));
  return block + '\0';
}

// --- The rules.

int64_t Made(const Record& record) {
  return record.answer.date != kAbsent ? record.answer.date : record.received;
}

int64_t AgeAt(const Record& record, int64_t now) {
  const int64_t apparent = std::max<int64_t>(0, record.received - Made(record));
  const int64_t corrected = std::max<int64_t>(record.answer.age, 0) + (record.received - record.requested);
  return std::max(apparent, corrected) + (now - record.received);
}

double Lifetime(const Record& record) {
  const Answer& answer = record.answer;
  if (answer.control.maxAge != kAbsent) return static_cast<double>(answer.control.maxAge);
  if (answer.expires != kAbsent) return static_cast<double>(answer.expires - Made(record));
  const bool mayGuess = answer.status == 200 || answer.status == 404;
  if (!mayGuess || answer.modified == kAbsent) return 0;
  return static_cast<double>(Made(record) - answer.modified) / 10;
}

bool MayKeep(const Ask& ask, const Answer& answer) {
  const bool mayGuess = answer.status == 200 || answer.status == 404;
  if (ask.method != "GET" || answer.status == 206 || answer.status == 304 || ask.noStore) return false;
  if (answer.vary.all || (ask.range && answer.status != 200)) return false;
  if (answer.control.mustUnderstand ? !(mayGuess || answer.status == 302) : answer.control.noStore)
    return false;
  return mayGuess || answer.control.isPublic || answer.control.maxAge != kAbsent || answer.expires != kAbsent;
}

bool MayHave(const Ask& ask, const Record& record) {
  return ask.url == record.ask.url && ask.partition == record.ask.partition &&
         (!record.answer.vary.a || ask.a == record.ask.a) && (!record.answer.vary.b || ask.b == record.ask.b);
}

bool IsUsable(const Ask& ask, const Record& record, int64_t now) {
  if (ask.noCache || record.answer.control.noCache) return false;
  const auto age = static_cast<double>(AgeAt(record, now));
  const double left = Lifetime(record) - age;
  if (ask.minFresh != kAbsent && left < static_cast<double>(ask.minFresh)) return false;
  const bool reloaded = left > 0 && record.answer.control.immutable;
  if (ask.maxAge != kAbsent && age > static_cast<double>(ask.maxAge) && !reloaded) return false;
  const bool staleIsFine = ask.maxStale != kAbsent && !record.answer.control.mustRevalidate;
  return left > 0 ||
         (staleIsFine && -left <= static_cast<double>(ask.maxStale == kAny ? INT32_MAX : ask.maxStale));
}

bool ClientHas(const Ask& ask, const Answer& answer) {
  if (answer.status != 200) return false;
  if (ask.tag != 0) return kOpaque[ask.tag] == kOpaque[answer.tag];
  return ask.since != kAbsent && answer.modified != kAbsent && answer.modified <= ask.since;
}

// Whether a 304 means this response, the validators of which were the only ones in the request, if it
// `wasAsked`.
bool Means(const Answer& notModified, const Answer& stored, bool wasAsked) {
  if (notModified.tag != 0 && stored.tag != 0) {
    const bool weakly = notModified.tag == kWeakTag && kOpaque[stored.tag] == kOpaque[kWeakTag];
    return weakly || notModified.tag == stored.tag;
  }
  if (notModified.modified != kAbsent && stored.modified != kAbsent)
    return notModified.modified == stored.modified;
  return wasAsked && notModified.tag == 0 && notModified.modified == kAbsent;
}

Answer Updated(Answer answer, const Answer& by, int64_t received) {
  if (by.control != Control()) answer.control = by.control;
  if (by.vary != Vary()) answer.vary = by.vary;
  if (by.tag != 0) answer.tag = by.tag;
  if (by.expires != kAbsent) answer.expires = by.expires;
  if (by.modified != kAbsent) answer.modified = by.modified;
  answer.age = by.age;
  answer.date = by.date != kAbsent ? by.date : received;
  return answer;
}

// --- Both, side by side.

class Session {
 public:
  explicit Session(FuzzInput& input)
      : input_(input), cache_(kLimits, [this](const std::string& url, bool held) {
          FUZZ_CHECK(held ? heldUrls_.insert(url).second : heldUrls_.erase(url) == 1);
        }) {}

  void Step() {
    const uint8_t what = input_.Byte() % 16;
    if (what < 3) {
      now_ += input_.Byte();
    } else if (what < 5 && !writing_.empty()) {
      Finish(input_.Byte() % writing_.size(), input_.Byte());
    } else if (what == 5) {
      const int url = input_.Byte() & 1;
      cache_.Remove(kUrls[url]);
      DropUrl(url);
    } else if (what == 6 && input_.Byte() == 0) {
      cache_.Clear();
      for (int url : {0, 1}) DropUrl(url);
    } else {
      Exchange();
    }
    CheckHeld();
  }

 private:
  struct Writing {
    Record record;
    std::unique_ptr<live::CacheWriter> writer;
    bool dropped = false;
  };

  void Exchange() {
    const Ask ask = MakeAsk(input_);
    const live::CacheRequest request = Text(ask);
    const live::CacheLookup found = cache_.Lookup(request, now_ * 1000000);
    Record* const chosen = ask.method == "POST" || ask.range ? nullptr : Choose(ask);
    const bool usable = chosen != nullptr && IsUsable(ask, *chosen, now_);
    const bool ownCondition = ask.tag != 0 || ask.since != kAbsent;
    const bool canAsk = chosen != nullptr &&
                        (chosen->answer.tag != 0 || chosen->answer.modified != kAbsent) &&
                        ask.method == "GET" && !ownCondition;
    if (usable) {
      FUZZ_CHECK(found.verdict == live::CacheVerdict::Fresh);
      chosen->used = ++uses_;
      const bool notModified = ClientHas(ask, chosen->answer);
      CheckServed(found.response, *chosen, notModified ? 304 : chosen->answer.status, false);
      FUZZ_CHECK(*found.response.body == (notModified || ask.method == "HEAD" ? "" : chosen->body));
      return;
    }
    if (ask.onlyIfCached && ask.method != "POST") {
      FUZZ_CHECK(found.verdict == live::CacheVerdict::NotAvailable);
      return;
    }
    FUZZ_CHECK(found.verdict == (canAsk ? live::CacheVerdict::Stale : live::CacheVerdict::Miss));
    if (canAsk) {
      chosen->used = ++uses_;
      FUZZ_CHECK(http::FindHeader(found.validators, "If-None-Match").value_or("") ==
                 kTags[chosen->answer.tag]);
      FUZZ_CHECK(http::HasHeader(found.validators, "If-Modified-Since") ==
                 (chosen->answer.modified != kAbsent));
    }
    const Record record{ask, {}, now_, now_ += input_.Byte() % 4, std::to_string(10000 + ++bodies_)};
    Respond(request, record, found.stored, canAsk ? chosen : nullptr);
  }

  void Respond(const live::CacheRequest& request, Record record, const live::StoredPtr& asked,
               Record* chosen) {
    const Answer& answer = record.answer = MakeAnswer(input_, now_);
    const std::string block = Text(answer, record.ask);
    const live::ExchangeTimes times{record.requested * 1000000, record.received * 1000000};
    if (asked != nullptr && answer.status == 304) {
      const auto served = cache_.Renew(request, asked, block, times);
      FUZZ_CHECK(served.has_value() == Means(answer, chosen->answer, true));
      if (!served) {
        Drop(*chosen);
        return;
      }
      record.body = chosen->body;
      const bool setsCookie = answer.setsCookie;
      Renewed(record, *chosen);
      CheckServed(*served, record, record.answer.status, setsCookie);
      FUZZ_CHECK(*served->body == record.body);
      return;
    }
    auto writer = cache_.OnResponse(request, block, times);
    FUZZ_CHECK((writer != nullptr) == MayKeep(record.ask, answer));
    Note(record);
    if (writer == nullptr) return;
    writing_.push_back({std::move(record), std::move(writer)});
    if (input_.Byte() % 4 != 0) Finish(writing_.size() - 1, input_.Byte());
  }

  // What an answer that is not stored right away changes.
  void Note(const Record& record) {
    const Answer& answer = record.answer;
    if (record.ask.method == "POST") {
      if (answer.status < 400) DropUrl(record.ask.url);
      if (answer.status < 400 && answer.namesOther) DropUrl(1 - record.ask.url);
      return;
    }
    Record* const chosen = Choose(record.ask);
    if (chosen == nullptr) return;
    const Answer& held = chosen->answer;
    if (record.ask.method == "HEAD") {
      const bool differs = (answer.tag != 0 && answer.tag != held.tag) ||
                           (answer.modified != kAbsent && answer.modified != held.modified) ||
                           (answer.length != kAbsent && answer.length != kBodySize);
      if (answer.status == 200 && differs) Drop(*chosen);
    } else if (answer.status == 304) {
      if (Means(answer, held, false)) {
        Record renewed = record;
        renewed.body = chosen->body;
        Renewed(renewed, *chosen);
      } else if (answer.tag != 0) {
        Drop(*chosen);
      }
    } else if (!MayKeep(record.ask, answer) && answer.status < 500 && answer.status != 206 &&
               !record.ask.range) {
      DropMatching(record.ask);
    }
  }

  void Finish(size_t index, uint8_t how) {
    Writing writing = std::move(writing_[index]);
    writing_.erase(writing_.begin() + static_cast<std::ptrdiff_t>(index));
    const Record& record = writing.record;
    if (how % 8 == 0) return;
    if (how % 8 == 1) {
      FUZZ_CHECK(!writing.writer->Append(std::string(kLimits.responseBytes + 1, 'x')));
      if (!writing.dropped) DropMatching(record.ask);
      return;
    }
    const size_t part = how % (kBodySize + 1);
    writing.writer->Append(record.body.substr(0, part));
    FUZZ_CHECK(writing.writer->Append(record.body.substr(part)) == !writing.dropped);
    const bool whole = record.answer.length == kAbsent || record.answer.length == kBodySize;
    FUZZ_CHECK(writing.writer->Commit() == (whole && !writing.dropped));
    if (whole && !writing.dropped) Store(record);
  }

  // The latest of those that the request may have, of two that were made at the same time the one stored
  // last.
  Record* Choose(const Ask& ask) {
    Record* chosen = nullptr;
    for (Record& record : records_) {
      if (MayHave(ask, record) && (chosen == nullptr || Made(record) >= Made(*chosen))) chosen = &record;
    }
    return chosen;
  }

  void Store(Record record) {
    DropMatching(record.ask);
    if (!MayKeep(record.ask, record.answer)) return;
    record.used = ++uses_;
    records_.push_back(std::move(record));
    if (records_.size() > kMostEntries) {
      Drop(*std::min_element(records_.begin(), records_.end(),
                             [](const Record& a, const Record& b) { return a.used < b.used; }));
    }
  }

  // Makes `record`, which holds the 304, what is stored of it.
  void Renewed(Record& record, const Record& stored) {
    record.answer = Updated(stored.answer, record.answer, record.received);
    Store(record);
  }

  void Drop(const Record& record) { records_.erase(records_.begin() + (&record - records_.data())); }
  void DropMatching(const Ask& ask) {
    std::erase_if(records_, [&ask](const Record& record) { return MayHave(ask, record); });
  }
  void DropUrl(int url) {
    std::erase_if(records_, [url](const Record& record) { return record.ask.url == url; });
    for (Writing& writing : writing_) writing.dropped |= writing.record.ask.url == url;
  }

  void CheckServed(const live::ServedResponse& served, const Record& record, int status,
                   bool setsCookie) const {
    FUZZ_CHECK(net::HttpResponseHeaders(served.block).response_code() == status);
    FUZZ_CHECK(http::CombinedHeader(served.block, "Age") == std::to_string(AgeAt(record, now_)));
    FUZZ_CHECK(http::CombinedHeader(served.block, "Date") == Date(Made(record)));
    FUZZ_CHECK(http::FindHeader(served.block, "ETag").value_or("") == kTags[record.answer.tag]);
    FUZZ_CHECK(http::HasHeader(served.block, "Set-Cookie") == setsCookie);
  }

  void CheckHeld() const {
    FUZZ_CHECK(cache_.Entries() == records_.size());
    FUZZ_CHECK(cache_.Bytes() <= kLimits.bytes);
    for (int url : {0, 1}) {
      const bool held = std::any_of(records_.begin(), records_.end(),
                                    [url](const Record& record) { return record.ask.url == url; });
      FUZZ_CHECK(cache_.Holds(kUrls[url]) == held);
      FUZZ_CHECK(heldUrls_.contains(kUrls[url]) == held);
    }
  }

  FuzzInput& input_;
  std::set<std::string> heldUrls_;  // as the observer was told
  live::HttpCache cache_;
  int64_t now_ = kStart;
  int bodies_ = 0;
  uint64_t uses_ = 0;
  std::vector<Record> records_;
  std::vector<Writing> writing_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  Session session(input);
  while (!input.Empty()) session.Step();
  return 0;
}
