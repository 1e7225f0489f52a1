// Files that are given for a HAR and are something else: what they look like, so that the error can say so.
// Any thread.
#ifndef REPLAY_RECORDING_WRONG_FORMAT_H_
#define REPLAY_RECORDING_WRONG_FORMAT_H_

#include <string>
#include <string_view>
#include <vector>

namespace replay {

// What the text looks like by its first bytes, and what to do about it: "it looks like a zip archive: unpack
// it". Null when it may be JSON.
const char* LooksLikeOtherBytes(std::string_view text);

// What a JSON document looks like by the keys of its outermost object, or of the first object of its
// outermost array. Null for keys that are not known.
const char* LooksLikeOtherJson(const std::vector<std::string>& keys);

}  // namespace replay

#endif  // REPLAY_RECORDING_WRONG_FORMAT_H_
