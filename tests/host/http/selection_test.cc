// Whether a stored response is one that another request may have: Vary and Accept-Encoding.
#include <gtest/gtest.h>

#include "host/http/content_coding.h"
#include "host/http/vary.h"
#include "tests/support/header_lines.h"

namespace http {
namespace {

TEST(Vary, ComparesTheHeadersThatItNames) {
  const struct {
    bool allowed;
    const char* response;
    const char* request;
    const char* sent;
    const char* why;
  } rows[] = {
      {true, "Vary: B\n", "A: 1\nB: x\n", "b: x\nA: 2\n", "another header differs"},
      {false, "Vary: B\n", "B: x\n", "B: X\n", "values have their case"},
      {false, "Vary: A, b\nVary: C , B\n", "B: x\n", "B: y\n", "the last of several names"},
      {false, "Vary: A\n", "A:\n", "", "empty is not missing"},
      {true, "Vary: A\n", "A: x,y\n", "A: x\nA:  y\n", "one line or two, blanks or none"},
      {false, "Vary: A\n", "A: x,y\n", "A: y,x\n", "the order counts"},
      {false, "Vary: A\n", "A: \"x,y\"\n", "A: \"x, y\"\n", "blanks in quotes count"},
      {false, "Vary: A\n", "A: x y\n", "A: x,y\n", "a blank is not a comma"},
      {false, "Vary: A\nVary: B, *\n", "A: 1\n", "A: 1\n", "nobody knows what it depends on"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(VaryAllows(tests::RawBlock(200, row.response), tests::HeaderText(row.request),
                         tests::HeaderText(row.sent)),
              row.allowed)
        << row.why;
  }
}

TEST(ContentCoding, IsAcceptedOrNot) {
  constexpr const char* kAbsent = nullptr;
  const struct {
    const char* accepted;
    const char* coding;
    bool accepts;
    const char* why;
  } rows[] = {
      {kAbsent, "br", true, "nothing said: anything"},
      {"", kAbsent, true, "an empty list has no codings"},
      {"", "gzip", false, "hence not this one"},
      {"gzip, br", "zstd", false, "not listed"},
      {"gzip, br", kAbsent, true, "uncoded needs no mention"},
      {"gzip, br", "identity", true, "nor when it is called by its name"},
      {"GZIP", "Gzip", true, "whatever the spelling"},
      {"gzip", "x-gzip", true, "the older name"},
      {"gzip, br", "gzip, br", true, "both are accepted"},
      {"gzip", "gzip, br", false, "one of two is not"},
      {"br;q=0", "br", false, "excluded"},
      {"br ; Q=0.001", "br", true, "the least there is"},
      {"br;q=0.0001", "br", false, "too many digits"},
      {"br;q=1.001", "br", false, "more than one"},
      {"br;level=9;q=0", "br", false, "after another parameter"},
      {"*", "zstd", true, "anything"},
      {"*;q=0, br", "br", true, "nothing but this"},
      {"*;q=0, br", "gzip", false, "hence not this"},
      {"*;q=0, br", kAbsent, false, "and not uncoded"},
      {"identity;q=0", kAbsent, false, "uncoded is excluded"},
      {"*;q=0, identity;q=0.5", kAbsent, true, "its own mention goes before the star"},
  };
  for (const auto& row : rows) {
    const auto header = [](const char* name, const char* value) {
      return value == nullptr ? std::string() : std::string(name) + ": " + value + "\n";
    };
    EXPECT_EQ(AcceptsCodingOf(tests::HeaderText(header("accept-encoding", row.accepted)),
                              tests::RawBlock(200, header("content-encoding", row.coding))),
              row.accepts)
        << row.why;
  }
}

}  // namespace
}  // namespace http
