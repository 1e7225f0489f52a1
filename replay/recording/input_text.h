// Reads the text of a recording from any source, and decompresses gzip and zstd data, which it recognises by
// the bytes and not by the name. Any thread.
#ifndef REPLAY_RECORDING_INPUT_TEXT_H_
#define REPLAY_RECORDING_INPUT_TEXT_H_

#include <cstddef>
#include <functional>
#include <string>

namespace replay {

// Puts the next bytes into the buffer, at most as many as fit, and returns their number; 0 at the end. May
// throw.
using ByteSource = std::function<size_t(char* buffer, size_t size)>;

// The maximum size of a text, which is the limit of the parser.
inline constexpr size_t kMostTextBytes = 4'000'000'000;

// Returns everything that the source gives, decompressed if the first bytes show that it is compressed.
// Several gzip members or zstd frames in a row make one text. The text is in memory only once, and compressed
// data is never in memory as a whole. The string has at least kJsonPadding bytes of spare capacity.
// `expectedBytes` is the capacity to start with. Throws std::runtime_error with one line that starts with
// `name` if compressed data is damaged or ends early, or if the text is too large.
std::string ReadText(const ByteSource& source, const std::string& name, size_t expectedBytes,
                     size_t mostBytes = kMostTextBytes);

}  // namespace replay

#endif  // REPLAY_RECORDING_INPUT_TEXT_H_
