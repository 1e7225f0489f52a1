#include "live/cache/renewal.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "host/http/freshness.h"
#include "host/http/header_block.h"
#include "host/http/lists.h"

namespace live {
namespace {

constexpr std::array<std::string_view, 3> kOfTheBody = {"Content-Encoding", "Content-Length",
                                                        "Content-Range"};

bool IsOfTheBody(std::string_view name) {
  return std::any_of(kOfTheBody.begin(), kOfTheBody.end(),
                     [name](std::string_view header) { return net::EqualsIgnoringCase(name, header); });
}

std::optional<http::EntityTag> TagOf(std::string_view block) {
  return http::ParseEntityTag(http::FindHeader(block, "ETag").value_or(""));
}

// The stored block with the headers of `update` in it, which is a kept block of its own.
std::string Merged(const std::string& block, const std::string& update) {
  std::string merged(http::StatusLine(block));
  merged.push_back('\0');
  const auto append = [&merged](std::string_view name, std::string_view value) {
    merged.append(name).append(": ").append(value).push_back('\0');
  };
  http::ForEachHeader(block, [&](std::string_view name, std::string_view value) {
    if (IsOfTheBody(name) || !http::HasHeader(update, name)) append(name, value);
  });
  http::ForEachHeader(update, [&](std::string_view name, std::string_view value) {
    if (!IsOfTheBody(name)) append(name, value);
  });
  merged.push_back('\0');
  return merged;
}

}  // namespace

bool Renews(const StoredResponse& stored, const std::string& notModifiedBlock, bool wasAsked) {
  const std::optional<http::EntityTag> tag = TagOf(notModifiedBlock);
  const std::optional<http::EntityTag> storedTag = TagOf(stored.block);
  if (tag && storedTag) {
    return tag->weak ? http::MatchesWeakly(*tag, *storedTag) : http::MatchesStrongly(*tag, *storedTag);
  }
  const auto modified = http::FindHeader(notModifiedBlock, "Last-Modified");
  const auto storedModified = http::FindHeader(stored.block, "Last-Modified");
  if (modified && storedModified) return *modified == *storedModified;
  return wasAsked && !tag && !modified;
}

StoredResponse Renewed(const StoredResponse& stored, const CacheRequest& request,
                       const std::string& notModifiedBlock, const ExchangeTimes& times) {
  const std::string merged = Merged(stored.block, KeptBlock(notModifiedBlock, ToMs(times.receivedUs)));
  StoredResponse renewed = MakeStored(request, stored.status, merged, stored.body, times);
  // Of the stored block nothing tells how long the 304 was under way.
  renewed.initialAgeMs =
      http::InitialAgeMs(notModifiedBlock, ToMs(times.requestedUs), ToMs(times.receivedUs));
  return renewed;
}

}  // namespace live
