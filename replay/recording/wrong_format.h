// Recognises files of other formats that are given instead of a HAR, so that the error can name the format.
// Any thread.
#ifndef REPLAY_RECORDING_WRONG_FORMAT_H_
#define REPLAY_RECORDING_WRONG_FORMAT_H_

#include <string>
#include <string_view>
#include <vector>

namespace replay {

// What the text looks like judging by its first bytes, and what to do: "it looks like a zip archive: unpack
// it". Null if it may be JSON.
const char* LooksLikeOtherBytes(std::string_view text);

// What a JSON document looks like judging by the keys of its outermost object, or of the first object in its
// outermost array. Null if the keys are not known.
const char* LooksLikeOtherJson(const std::vector<std::string>& keys);

}  // namespace replay

#endif  // REPLAY_RECORDING_WRONG_FORMAT_H_
