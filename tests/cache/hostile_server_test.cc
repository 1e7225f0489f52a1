// Servers that lie and fetchers that stumble, through the exported functions: what is refused, what is
// served, and that no more memory is held than was received or than the limit allows to reserve.
#include <climits>

#include "tests/support/watched_host.h"

namespace tests {
namespace {

using Lines = std::vector<std::string>;

// A preload's record, URL and request headers, with what the containers add.
constexpr size_t kRecord = 2000;

size_t Held() {
  return watchedMemory.bytes;
}

std::string Line(size_t size, char fill) {
  return "X: " + std::string(size - 3, fill);
}

// The declared length alone decides whether a body may be held, whatever the limit and however it is
// declared.
TEST(HostileServerTest, NoMoreIsHeldThanWasReceivedOrMayBeDeclared) {
  constexpr const char* kOk = "HTTP/1.1 200 OK";
  const auto declaring = [](const std::string& length) { return Lines{kOk, "Content-Length: " + length}; };
  const Lines manyLines(10'000, Line(100, 'm'));
  Lines manyLinesOk = declaring("1");
  manyLinesOk.insert(manyLinesOk.end(), manyLines.begin(), manyLines.end());
  const Lines shortThenLong = {kOk, "Content-Length: 3", "Content-Length: 3000000"};
  const Lines longThenShort = {kOk, "Content-Length: 3000000", "Content-Length: 3"};
  constexpr const char* kHeld = nullptr;
  const struct {
    Lines headers;
    size_t chunk, chunks;
    const char* refused;  // the length in the line of the refusal
    size_t reserved;      // room made for the declared length
    bool served;
    const char* why;
    const char* limit = "2097152";
  } rows[] = {
      {declaring("2097152"), 1, 1, kHeld, 2097152, true, "exactly the limit, and one byte comes"},
      {declaring("2097152"), 1, 0, kHeld, 0, false, "exactly the limit, and nothing comes"},
      {declaring("2097153"), 1, 1, "2097153", 0, false, "one more"},
      {declaring("4294967297"), 1, 1, "1", 0, false, "1 in 32 bits"},
      {declaring("6442450944"), 1, 1, "-2147483648", 0, false,
       "the line shows the low 32 bits with their sign"},
      {declaring("18446744073709551617"), 1, 1, "-1", 0, false, "1 in 64 bits"},
      {declaring(std::string(100'000, '9')), 1, 1, "-1", 0, false, "digits without end"},
      {declaring("10"), 1000, 1000, kHeld, 10, true, "a body without end"},
      {declaring("0"), 1000, 1000, kHeld, 0, true, "a body where none was declared"},
      {declaring("-1"), 1, 1, "-1", 0, false, "negative"},
      {declaring("ten"), 1, 1, "-1", 0, false, "none declared"},
      {declaring("1, 1"), 1, 1, "-1", 0, false, "a list"},
      {{kOk, "Content-Length : 1"}, 1, 1, kHeld, 1, true, "a blank before the colon"},
      {shortThenLong, 9, 1, kHeld, 3, true, "twice: the first counts"},
      {longThenShort, 9, 1, "3000000", 0, false, "the other way round"},
      {{kOk, "Content-Length: 1", Line(1'000'000, 'x')}, 1, 1, kHeld, 1, true, "a line of a megabyte"},
      {manyLinesOk, 1, 1, kHeld, 1, true, "a megabyte of lines"},
      {manyLines, 1, 1, "-1", 0, false, "neither status nor length"},
      {{}, 1, 1, "-1", 0, false, "nothing at all"},
      {{"", "Content-Length: 1"}, 1, 1, kHeld, 1, false, "an empty status line"},
      {{"HTTP/1.1", "Content-Length: 1"}, 1, 1, kHeld, 1, false, "no status"},
      {{"HTTP/1.1 4294967496 OK", "Content-Length: 1"}, 1, 1, kHeld, 1, false, "200 in 32 bits"},
      {{"Content-Length: 1", kOk}, 1, 1, kHeld, 1, false, "a status line that is not the first"},
      {declaring("0"), 1, 1, kHeld, 0, true, "nothing in nothing", "0"},
      {declaring("1"), 1, 1, "1", 0, false, "a limit of 0", "0"},
      {declaring("4294967295"), 1, 0, kHeld, 0, false, "a negative limit is read without sign", "-1"},
      {declaring("4294967296"), 1, 1, "0", 0, false, "one more than that", "-1"},
      {declaring("ten"), 1, 1, "-1", 0, false, "no limit is high enough for an undeclared length", "-1"},
      {declaring("2147483647"), 1, 0, kHeld, 0, false, "the largest limit", "2147483647"},
      {declaring("2147483648"), 1, 1, "-2147483648", 0, false, "one more than that", "2147483647"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const bool refused = row.refused != nullptr;
    const std::string headers = RawHeaders(row.headers);
    WatchedHost host;
    host.Start({{"cslimit", row.limit}, {"cacheen", "0"}});
    host.verbosity = 0;  // not the gate of this line
    host.Launch(kUrl);
    EXPECT_EQ(host.StartComplete(kUrl, headers), refused ? 0 : 1) << "with the cache off as well";
    EXPECT_EQ(host.Read(kUrl, "x"), 0);
    host.plugin.OnFlushDb(0);

    host.Start({{"cacheen", "1"}});
    host.Launch(kUrl);
    const size_t before = Held();
    watchedMemory.peakBytes = before;
    EXPECT_EQ(host.StartComplete(kUrl, headers), refused ? 0 : 1);
    const std::string line =
        refused ? std::string("D Cancel uncacheable ") + kUrl + " (" + row.refused + ")\n" : "";
    EXPECT_EQ(host.Take(), line);
    host.verboseEnabled = false;
    host.verbosity = 99;
    host.StartComplete(kUrl, headers);
    EXPECT_EQ(host.Take(), "");
    const std::string chunk(row.chunk, 'c');
    for (size_t i = 0; i < row.chunks; ++i) EXPECT_EQ(host.Read(kUrl, chunk), refused ? 0 : 1);
    const size_t received = refused ? 0 : row.chunk * row.chunks;
    const size_t body = std::max(received, row.reserved) + 10;
    EXPECT_LE(Held() - before, headers.size() + body + kRecord);
    EXPECT_LE(watchedMemory.peakBytes - before, headers.size() + body + received + kRecord)
        << "a body that grows is there twice for a moment";
    EXPECT_EQ(host.Done(kUrl), 1);
    EXPECT_EQ(host.Done(kUrl), 1);
    EXPECT_EQ(host.Ask(kUrl).body(), std::string(row.served ? received : 0, 'c'));
    host.plugin.ReleasePreloaded(kUrl);
    const size_t removed = Held();
    EXPECT_EQ(host.Done(kUrl), 0);
    EXPECT_EQ(host.Read(kUrl, std::string(100'000, 'l')), 0);
    EXPECT_EQ(host.RequestInfo(kUrl), nullptr);
    EXPECT_EQ(host.StartComplete(kUrl, OkHeaders(1)), 0);
    EXPECT_EQ(Held(), removed) << "nothing is kept for a preload that is gone";
    host.plugin.OnFlushDb(0);
    EXPECT_LE(Held(), before);
  }
}

// The bytes are fewer than their count says: whoever read them would be caught by the sanitizer.
TEST(HostileServerTest, CountsThatNobodyCanMeanAreRefusedUnread) {
  const struct {
    int64_t declared;
    const char *cacheSwitch, *url, *why;
  } rows[] = {
      {4, "1", "http://a.test/unknown", "a bad cookie"},
      {2097153, "1", kUrl, "declared above the limit"},
      {-1, "1", kUrl, "undeclared"},
      {4, "0", kUrl, "the cache is off"},
      {4, "1", kUrl, "no memory for it"},
  };
  for (const auto& row : rows) {
    WatchedHost host;
    host.Start({{"cacheen", row.cacheSwitch}});
    host.Launch(kUrl);
    host.StartComplete(kUrl, OkHeaders(row.declared));
    host.Read(kUrl, "bo");
    const size_t before = Held();
    watchedMemory.largestBlock = 1 << 20;
    for (const int32_t count : {INT_MAX, INT_MAX - 10, 0x70000000, 0, -1, INT_MIN}) {
      EXPECT_EQ(host.plugin.FetchReadComplete(host.Cookie(row.url), "x", count), 0)
          << row.why << " " << count;
    }
    watchedMemory.largestBlock = SIZE_MAX;
    EXPECT_EQ(Held(), before) << row.why;
  }
}
// With a limit that lets everything pass, the width of a size decides, and then the memory that there is.
TEST(HostileServerTest, LengthsAtTheEndOf32BitsAreRefusedAndLeaveTheBodyAsItWas) {
  const struct {
    int64_t declared;
    size_t asked;  // allocations for the buffer
    const char* why;
  } rows[] = {
      {2147483647, 1, "there is no memory for that"},
      {4294967285, 1, "with its slack the largest size"},
      {4294967286, 0, "one more does not fit"},
      {4294967295, 0, "the limit itself"},
      {4294967296, 0, "above the limit"},
  };
  WatchedHost host;
  host.Start({{"cslimit", "-1"}});
  for (const auto& row : rows) {
    host.Launch(kUrl);
    EXPECT_EQ(host.Read(kUrl, "early "), 1);
    host.StartComplete(kUrl, OkHeaders(row.declared));
    watchedMemory.largestBlock = 1 << 20;
    watchedMemory.allocations = 0;
    EXPECT_EQ(host.Read(kUrl, "longer than its slack"), 0) << row.why;
    // Where a size is no size at all, the compiler refuses it ahead of operator new.
    EXPECT_LE(watchedMemory.allocations, row.asked) << row.why;
    watchedMemory.largestBlock = SIZE_MAX;
    host.StartComplete(kUrl, OkHeaders(4));
    EXPECT_EQ(host.Read(kUrl, "longer than its slack"), 1) << "offered again, and now there is room";
    host.Done(kUrl);
    EXPECT_EQ(host.Ask(kUrl).body(), "early longer than its slack") << row.why;
    host.plugin.ReleasePreloaded(kUrl);
  }
}

}  // namespace
}  // namespace tests
