// Lists of items, directives and entity tags.
#include "host/http/lists.h"

#include <gtest/gtest.h>

#include <string>

namespace http {
namespace {

struct ListCase {
  const char* list;
  const char* parts;
  const char* why;
};

TEST(Lists, SplitIntoItemsAndDirectives) {
  const ListCase rows[] = {
      {"a, b ,c", "a|b|c|", "blanks around items are no part of them"},
      {",, a,\t,b,", "a|b|", "empty items count for nothing"},
      {"a = \"1\" , b=,c", "a=1|b=|c|", "quotes and blanks around values; an empty one"},
      {"a=\"b, c=d\",e=f=g", "a=b, c=d|e=f=g|", "a comma in quotes; the first equals sign divides"},
      {R"(a="b\",c",d)", R"(a=b\",c|d|)", "an escaped quote ends nothing"},
      {R"(a="b\\",c)", R"(a=b\\|c|)", "an escaped backslash escapes nothing"},
      {R"(a\,b)", R"(a\|b|)", "outside quotes a backslash is a character"},
      {R"(a="b,c\)", R"(a="b,c\|)", "an open quote takes the rest"},
  };
  for (const auto& [list, parts, why] : rows) {
    std::string directives;
    ForEachDirective(list, [&](std::string_view name, std::optional<std::string_view> value) {
      directives.append(name).append(value ? "=" : "").append(value.value_or("")).append("|");
    });
    EXPECT_EQ(directives, parts) << why;
  }
  EXPECT_TRUE(ListHas("a, No-Cache", "no-cache"));
  EXPECT_FALSE(ListHas("a=\"x, no-cache, y\", no-cache=b, no-cach", "no-cache"));
}

TEST(Lists, SplitIntoEntityTags) {
  const ListCase rows[] = {
      {R"("a", W/"b","")", R"("a"|W/"b"|""|)", "strong, weak, empty"},
      {R"("a,b","c\",d)", R"("a,b"|"c\"|d|)", "a comma belongs to a tag, a backslash escapes nothing"},
      {R"(abc, W/abc, w/x)", "abc|W/abc|w/x|", "without quotes"},
      {R"(w/"a", "a"b, "a, *, W/, a b, a"b)", "", "none of these is a tag"},
  };
  for (const auto& [text, parts, why] : rows) {
    std::string tags;
    for (std::string_view list = text; !list.empty();) {
      if (const auto tag = TakeEntityTag(list)) tags.append(tag->weak ? "W/" : "").append(tag->opaque) += '|';
    }
    EXPECT_EQ(tags, parts) << why;
  }
}

}  // namespace
}  // namespace http
