// The content of simulated bodies: bytes that are not real but depend on URL and visit, so that a body served
// in place of another is noticed. Any thread.
#ifndef REPLAY_MODEL_CONTENT_H_
#define REPLAY_MODEL_CONTENT_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace replay {

// Which body is meant; from the URL and what else tells one from another.
uint64_t ContentSeed(std::string_view url, uint64_t version);

// Hands out `size` bytes of the body piece by piece, in order, until `take` answers false. The pieces stay
// valid.
void GenerateContent(uint64_t seed, int64_t size, const std::function<bool(std::string_view)>& take);

// Whether these are the bytes.
bool IsContent(uint64_t seed, std::string_view body);

}  // namespace replay

#endif  // REPLAY_MODEL_CONTENT_H_
