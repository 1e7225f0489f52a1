// One page load as each recorder writes it. The files in dialects/ show what is peculiar to each recorder,
// cut down to two or three rows.
#include <gtest/gtest.h>

#include "replay/recording/har_reader.h"
#include "replay/recording/recording_check.h"

namespace replay {
namespace {

Recording Read(const std::string& name) {
  return ReadHarFile(KIV_SOURCE_DIR "/tests/replay/recording/dialects/" + name + ".har");
}

// Of each request: URL, start, kind, protocol, body and initiator.
std::string StoryOf(const Recording& recording) {
  std::string story;
  for (const Page& page : recording.pages) {
    for (const Request& request : page.requests) {
      story += (story.empty() ? "" : "; ") + request.url + " at " +
               std::to_string(static_cast<int>(request.startMs)) + " " + host::NameOfKind(request.kind) +
               " h" + std::to_string(static_cast<int>(request.protocol) + 1) + " " +
               std::to_string(request.bodyBytes) + " by " + request.initiatorUrl;
    }
  }
  return story;
}

TEST(Dialects, AreReadAsTheyAreMeant) {
  const std::string top = "https://a.test/", document = top + " at 0 document ";
  const struct {
    std::string recorder, story;
    size_t fromCache;
    const char* what;
  } rows[] = {
      {"devtools", document + "h3 700 by ; " + top + "i at 60 image h1 10 by " + top + "x.js", 1,
       "initiators are objects with stacks, and the cache is named"},
      {"firefox", document + "h2 70 by ", 0, "the recorder's time zone, refused rows, and no initiator"},
      {"safari", document + "h2 200 by ; " + top + "a.css at 80 stylesheet h1 9 by ", 1,
       "_fetchType says what fetched a row, and protocols are spelled its way"},
      {"webpagetest", document + "h2 800 by ; " + top + "a.js at 200 script h2 70 by " + top, 0,
       "initiators are addresses, sizes and protocol are fields of its own"},
      {"sitespeed", document + "h2 300 by ; " + top + "f.woff2 at 130 font h2 7 by " + top, 0,
       "the time in the browser's queue is apart, and a row starts after it"},
      {"fiddler", document + "h1 40 by ", 0, "a byte order mark, no pages, tunnels, 7 digits of a second"},
      {"charles", document + "h2 60 by ", 0, "no pages, tunnels, a zone without a colon, failed rows"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.recorder + ": " + row.what);
    const Recording recording = Read(row.recorder);
    EXPECT_EQ(StoryOf(recording), row.story);
    const std::vector<std::string> warnings = WarningsOf(recording);
    ASSERT_EQ(warnings.size(), row.fromCache);
    if (row.fromCache == 0) continue;
    EXPECT_TRUE(warnings[0].starts_with("1 of 2 responses came from the browser's cache")) << warnings[0];
  }
}

TEST(Dialects, FirefoxNamesWhatItsCacheAnswered) {
  const char* const har =
      R"({"log": {"entries": [{"request": {"url": "http://a.test/"}, "response": {"status": 200},
          "cache": {"afterRequest": {"eTag": "x"}}}]}})";
  EXPECT_EQ(ReadHar(har, "a.har").fromCache, 1U);
}

}  // namespace
}  // namespace replay
