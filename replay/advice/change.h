// Changes to a site, or to the plugin's settings, that might make its pages faster: which ones a replay
// suggests, and the recording as it would be with one of them. Plain values; any thread.
#ifndef REPLAY_ADVICE_CHANGE_H_
#define REPLAY_ADVICE_CHANGE_H_

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "replay/model/replay_options.h"
#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

enum class ChangeKind {
  DeclareLength,   // the responses declare their length
  SendAsData,      // HTML that is no document has another type
  SkipRedirect,    // a browser that has followed the redirect once goes to its target at once
  RaiseSizeLimit,  // the plugin may hold the bodies
  KeepAddress,     // an address that is new on every load is always the same
  AllowStoring,    // a cache may keep the responses for a year instead of never
  LeaveOut,        // the resource is not preloaded: what that costs is what its preload is worth
};

struct ChangeWords {
  ChangeKind kind;
  const char* key;  // in JSON
  // A sentence without its end, with {n}, {server} and {setting}; for one resource and for several.
  const char* one;
  const char* many;
};

inline constexpr std::array kChangeWords = {
    ChangeWords{ChangeKind::DeclareLength, "declare_length",
                "One response of {server} declares no length, so it can never be held: declaring it",
                "{n} responses of {server} declare no length, so they can never be held: declaring it"},
    ChangeWords{
        ChangeKind::SendAsData, "send_as_data",
        "One resource of {server} is sent as HTML, which is never held: sending it as another type",
        "{n} resources of {server} are sent as HTML, which is never held: sending them as another type"},
    ChangeWords{ChangeKind::SkipRedirect, "skip_redirect",
                "One address of {server} redirects: asking for its target itself",
                "{n} addresses of {server} redirect: asking for their targets themselves"},
    ChangeWords{ChangeKind::RaiseSizeLimit, "raise_size_limit",
                "One response of {server} is larger than the plugin may hold: holding it ({setting})",
                "{n} responses of {server} are larger than the plugin may hold: holding them ({setting})"},
    ChangeWords{
        ChangeKind::KeepAddress, "keep_address",
        "One resource of {server} has another address on every load, so it cannot be known ahead: "
        "keeping its address",
        "{n} resources of {server} have other addresses on every load, so they cannot be known ahead: "
        "keeping their addresses"},
    ChangeWords{ChangeKind::AllowStoring, "allow_storing",
                "One response of {server} must not be stored (no-store): letting the browser keep it",
                "{n} responses of {server} must not be stored (no-store): letting the browser keep them"},
    ChangeWords{ChangeKind::LeaveOut, "preload", "Preloading one resource of {server}",
                "Preloading {n} resources of {server}"},
};

constexpr const ChangeWords& WordsFor(ChangeKind kind) {
  return kChangeWords[static_cast<size_t>(kind)];
}

struct Change {
  ChangeKind kind = ChangeKind::DeclareLength;
  std::string server;             // host name and, where it is not the scheme's, port
  size_t count = 0;               // resources; several addresses may be one resource
  std::vector<std::string> urls;  // that the change is about, sorted
  std::string setting;            // of RaiseSizeLimit: the property and its value
};

// The changes that the reasons in `result` suggest, one for each kind and server and one for each of the
// resources that a preload helped most; those that concern the longest waits, and no more than a dozen.
// `result` is that of replaying the recording.
std::vector<Change> SuggestChanges(const Recording& recording, const RecordingResult& result);

// Changes the recording, or the options, accordingly.
void Apply(const Change& change, Recording& recording, ReplayOptions& options);

}  // namespace replay

#endif  // REPLAY_ADVICE_CHANGE_H_
