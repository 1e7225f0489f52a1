// What recordings are called, and what is said of them before their figures are.
#include "replay/recording/recording_check.h"

#include <gtest/gtest.h>

#include "replay/recording/recording_names.h"

namespace replay {
namespace {

using Names = std::vector<std::string>;

TEST(RecordingNames, TellEqualNamesApart) {
  const struct {
    Names paths, names;
  } cases[] = {
      {{"/data/a.har", "b.har", "-"}, {"a.har", "b.har", "standard input"}},
      {{"x/home.har", "y/home.har", "z/other.har"}, {"x/home.har", "y/home.har", "other.har"}},
      {{"1/x/home.har", "2/x/home.har", "2/y/home.har"}, {"1/x/home.har", "2/x/home.har", "y/home.har"}},
      {{"home.har", "x/home.har"}, {"home.har", "x/home.har"}},
      {{"/home.har", "/x/home.har"}, {"/home.har", "x/home.har"}},
      {{"a.har", "a.har", "a.har"}, {"a.har", "a.har (2)", "a.har (3)"}},
      {{"x/a.har", "x/a.har", "y/a.har"}, {"x/a.har", "x/a.har (2)", "y/a.har"}},
      {{"x//a.har", "y/a.har", "x/a.har"}, {"x//a.har", "y/a.har", "x/a.har"}},
  };
  for (const auto& row : cases) EXPECT_EQ(DistinctNames(row.paths), row.names);
}

TEST(RecordingCheck, SaysWhyNothingCanBeReplayed) {
  EXPECT_EQ(WhyNothingToReplay({.pages = {{.requests = {{}}}}}), "");
  EXPECT_EQ(WhyNothingToReplay({}), "nothing to replay: log.entries is empty");
  EXPECT_EQ(WhyNothingToReplay({.skipped = {{"data: URL", 2}, {"websocket", 1}}}),
            "nothing to replay: none of its entries can be used: 2 (data: URL), 1 (websocket)");
}

TEST(RecordingCheck, WarnsOfSeveralNavigationsInOnePage) {
  const auto document = [](const std::string& server, double startMs, const std::string& destination,
                           const std::string& initiator = "") {
    Request request = {.url = "http://" + server + "/", .method = "GET", .startMs = startMs, .status = 200};
    request.endMs = startMs + 100;
    request.kind = host::ResourceKind::Document;
    request.initiatorUrl = initiator;
    if (!destination.empty())
      request.requestHeaders = "Accept: */*\r\nSec-Fetch-Dest: " + destination + "\r\n";
    return request;
  };
  Request late = document("a.test", 4000, "");
  late.status = 404;
  const struct {
    Request second;
    bool warned;
    const char* why;
  } cases[] = {
      {document("a.test", 50, "document"), true, "the browser says so"},
      {document("a.test", 5000, "iframe"), false, "a frame"},
      {document("a.test", 5000, ""), true, "after the load, from the page's server"},
      {document("a.test", 1500, ""), false, "before the load event"},
      {document("ads.test", 5000, ""), false, "of another server"},
      {document("a.test", 5000, "", "http://a.test/x.js"), false, "a script asked for it"},
      {late, false, "an error"},
  };
  for (const auto& row : cases) {
    Page page = {.id = "p", .onLoadMs = 2000, .requests = {document("a.test", 0, ""), row.second}};
    EXPECT_EQ(WarningsOf({.pages = {page}}).size(), row.warned ? 1U : 0U) << row.why;
  }
  Page three = {.id = "p7", .requests = {3, document("a.test", 0, "document")}};
  EXPECT_EQ(
      WarningsOf({.pages = {three}}).at(0),
      "page 'p7' contains 3 navigations but is replayed as one visit; record each load as a separate page");
}

}  // namespace
}  // namespace replay
