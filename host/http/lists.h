// Parses the values of headers that are lists of items, of directives ("name" or "name=value") or of entity
// tags, separated by commas. Views point into the list. Any thread.
#ifndef HOST_HTTP_LISTS_H_
#define HOST_HTTP_LISTS_H_

#include <optional>
#include <string_view>

namespace http {

// Removes the next item and its separator from a list that is not empty, and returns the item without
// surrounding blanks; it may be empty. A separator inside a quoted string belongs to the item. In a quoted
// string, a backslash escapes the next character. A quotation mark that is never closed quotes the rest of
// the list.
std::string_view TakeItem(std::string_view& list, char separator = ',');

// Calls onItem(item) for every item that is not empty.
template <typename OnItem>
void ForEachItem(std::string_view list, const OnItem& onItem) {
  while (!list.empty()) {
    if (const std::string_view item = TakeItem(list); !item.empty()) onItem(item);
  }
}

// Whether one of the items equals this one, ignoring case.
bool ListHas(std::string_view list, std::string_view token);

// A directive like "max-age=60" or "no-store". The value has no quotes around it, and is absent without a
// "=".
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

// The value of an ETag header. A tag without quotes, which some servers send, is kept as it is, and is not
// equal to any tag with quotes.
struct EntityTag {
  bool weak = false;
  std::string_view opaque;  // with its quotes
};

// Returns nothing unless the text is exactly one entity tag.
std::optional<EntityTag> ParseEntityTag(std::string_view text);

// The strong comparison requires equal tags of which neither is weak, the weak comparison only equal tags.
bool MatchesStrongly(const EntityTag& a, const EntityTag& b);
bool MatchesWeakly(const EntityTag& a, const EntityTag& b);

// Removes the next item from a list of entity tags that is not empty. Returns nothing if the item is not a
// tag. Tags have no escapes.
std::optional<EntityTag> TakeEntityTag(std::string_view& list);

}  // namespace http

#endif  // HOST_HTTP_LISTS_H_
