// The queries of the network stack: what is served, what is refused, and what is logged. For how long a lent
// body can be read is checked by the model of the fuzz target.
#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using ServingTest = PluginTest;

TEST_F(ServingTest, AHeldResponseIsServedUntilItIsReleasedOrReportedAsInTheDiskCache) {
  host.Preload(kUrl, std::string("b\0dy", 4), {"Content-Type: image/png"});
  for (int i = 0; i < 2; ++i) {
    const Answer answer = host.Ask(kUrl);
    EXPECT_EQ(answer.result, 1);
    EXPECT_EQ(answer.headers,
              RawHeaders({"HTTP/1.1 200 OK", "Content-Type: image/png", "Content-Length: 4"}));
    EXPECT_EQ(answer.body(), std::string("b\0dy", 4));
  }
  EXPECT_EQ(host.plugin.ReleasePreloaded(kUrl), 1);
  EXPECT_EQ(host.plugin.ReleasePreloaded(kUrl), 0);
  EXPECT_EQ(host.Ask(kUrl).result, 0);
  EXPECT_EQ(host.Take(),
            "D Get preloaded URL: http://a.test/1 (4)\n"
            "D Get preloaded URL: http://a.test/1 (4)\n"
            "D Release preloaded URL: http://a.test/1\n");
  host.Preload(kUrl, "body");
  EXPECT_EQ(host.plugin.IsInDC("http://a.test/other"), 0);
  EXPECT_EQ(host.plugin.IsInDC(kUrl), 1);
  EXPECT_EQ(host.plugin.IsInDC(kUrl), 0);
  EXPECT_EQ(host.Ask(kUrl).result, 0);
  EXPECT_EQ(host.Take(), "D URL preloaded to DC: http://a.test/1\n");
}

TEST_F(ServingTest, AResponseThatMentionsHtmlIsRefusedAfterItsHeadersWereCopied) {
  const struct {
    const char* header;
    bool refused;
  } rows[] = {
      {"Content-Type: text/html; charset=utf-8", true},
      {"X-Anything: mentions text/html somewhere", true},
      {"X-text/html: in the name", true},
      {"Content-Type: TEXT/HTML", false},
      {"Content-Type: text /html", false},
  };
  host.verbosity = 0;
  for (const auto& row : rows) {
    host.Preload(kUrl, "body", {row.header});
    const Answer answer = host.Ask(kUrl);
    EXPECT_EQ(answer.result, row.refused ? 0 : 1) << row.header;
    EXPECT_EQ(answer.headers, RawHeaders({"HTTP/1.1 200 OK", row.header, "Content-Length: 4"}));
    EXPECT_EQ(host.Take(), row.refused ? "W ignoring HTML resource: http://a.test/1\n" : "") << row.header;
    EXPECT_EQ(answer.bytes == nullptr, row.refused);
    EXPECT_EQ(answer.length, row.refused ? -1 : 4);
    EXPECT_EQ(host.plugin.IsInDC(kUrl), 1) << "held all the same";
  }
}

}  // namespace
}  // namespace tests
