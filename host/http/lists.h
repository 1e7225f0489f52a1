// The values of headers that are lists: items between commas, directives ("name" or "name=value"), entity
// tags. Views point into the list. Any thread.
#ifndef HOST_HTTP_LISTS_H_
#define HOST_HTTP_LISTS_H_

#include <optional>
#include <string_view>

namespace http {

// Takes the next item off a list that is not empty, with its separator; what is left of the item without the
// blanks around it may be empty. A separator inside a quoted string belongs to the item; in there a backslash
// takes away the meaning of the character that follows. A quote that is never closed takes the rest of the
// list.
std::string_view TakeItem(std::string_view& list, char separator = ',');

// Calls onItem(item) for every item that is not empty.
template <typename OnItem>
void ForEachItem(std::string_view list, const OnItem& onItem) {
  while (!list.empty()) {
    if (const std::string_view item = TakeItem(list); !item.empty()) onItem(item);
  }
}

// Whether one of the items is this one, without regard to case.
bool ListHas(std::string_view list, std::string_view token);

// "max-age=60" or "no-store". The value stands without the quotes around it; nothing when there is no "=".
struct Directive {
  std::string_view name;
  std::optional<std::string_view> value;
};
Directive ParseDirective(std::string_view item);

// Calls onDirective(name, value) for each item, as ParseDirective reads it.
template <typename OnDirective>
void ForEachDirective(std::string_view list, const OnDirective& onDirective) {
  ForEachItem(list, [&onDirective](std::string_view item) {
    const Directive directive = ParseDirective(item);
    onDirective(directive.name, directive.value);
  });
}

// The value of an ETag header. A tag without quotes, which some servers send, is kept as it is and does not
// equal any tag with quotes.
struct EntityTag {
  bool weak = false;
  std::string_view opaque;  // with its quotes
};

// Nothing when the text is not exactly one entity tag.
std::optional<EntityTag> ParseEntityTag(std::string_view text);

// Strong comparison: the same, and neither is weak. Weak comparison: the same.
bool MatchesStrongly(const EntityTag& a, const EntityTag& b);
bool MatchesWeakly(const EntityTag& a, const EntityTag& b);

// Takes the next item off a list of entity tags that is not empty; nothing when it is not a tag. Tags know no
// backslashes.
std::optional<EntityTag> TakeEntityTag(std::string_view& list);

}  // namespace http

#endif  // HOST_HTTP_LISTS_H_
