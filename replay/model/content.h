// The content of simulated bodies. The bytes are not real but depend on the URL and the visit, so that it is
// noticed if one body is served instead of another. Any thread.
#ifndef REPLAY_MODEL_CONTENT_H_
#define REPLAY_MODEL_CONTENT_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace replay {

// Identifies a body by its URL and by whatever else distinguishes it.
uint64_t ContentSeed(std::string_view url, uint64_t version);

// Calls `take` with `size` bytes of the body piece by piece, in order, until `take` returns false. The pieces
// stay valid.
void GenerateContent(uint64_t seed, int64_t size, const std::function<bool(std::string_view)>& take);

// Whether these are the bytes of the body.
bool IsContent(uint64_t seed, std::string_view body);

}  // namespace replay

#endif  // REPLAY_MODEL_CONTENT_H_
