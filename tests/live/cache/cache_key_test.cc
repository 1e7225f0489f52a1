// The URLs that an answer may make outdated.
#include "live/cache/cache_key.h"

#include <gtest/gtest.h>

namespace live {
namespace {

TEST(SameOriginTarget, ResolvesReferences) {
  constexpr const char* kNone = "none";
  const struct {
    const char* base;
    const char* reference;
    const char* target;
    const char* why;
  } rows[] = {
      {"http://a.test/b/c?d/", "e?f#g", "http://a.test/b/e?f", "beside the base; a fragment stays behind"},
      {"http://a.test/b/c", "/e", "http://a.test/e", "from the root"},
      {"http://a.test/b/c?d", "?e", "http://a.test/b/c?e", "another query"},
      {"http://a.test/b?c#d", "", "http://a.test/b?c", "itself"},
      {"http://a.test?x", "e", "http://a.test/e", "a base without a path"},
      {"http://a.test/b/c/d", "../e/./f/..", "http://a.test/b/e/", "dots"},
      {"http://a.test/b/c", "../../../e/.", "http://a.test/e/", "no further up than the root"},
      {"http://a.test/b/c", "/e/..f/...?/../g", "http://a.test/e/..f/...?/../g", "dots that are none"},
      {"http://a.test/b", "//a.test/c:d", "http://a.test/c:d", "with the host"},
      {"http://a.test/b", "HTTP://A.test:80/../c", "http://a.test/c", "whole, spelled otherwise"},
      {"http://a.test/b", "http://a.test?c:d", "http://a.test/?c:d", "whole, without a path"},
      {"http://a.test/b", "https://a.test:80/b", kNone, "another scheme"},
      {"http://a.test/b", "//a.test:81/b", kNone, "another port"},
      {"http://a.test/b", "//b.test/b", kNone, "another host"},
      {"http://a.test/b", "http:c", kNone, "no URL"},
      {"a.test/b", "c", kNone, "a base that is no URL"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(SameOriginTarget(row.base, row.reference).value_or(kNone), row.target) << row.why;
  }
}

}  // namespace
}  // namespace live
