// Bytes from anywhere into the text of a recording: what gzip or zstd compressed is decompressed on the way,
// which is told by the bytes and not by the name. Any thread.
#ifndef REPLAY_RECORDING_INPUT_TEXT_H_
#define REPLAY_RECORDING_INPUT_TEXT_H_

#include <cstddef>
#include <functional>
#include <string>

namespace replay {

// Puts the next bytes into the buffer, as many as fit or fewer, and returns their number; 0 at the end. May
// throw.
using ByteSource = std::function<size_t(char* buffer, size_t size)>;

// A text may not be larger: the parser takes no more.
inline constexpr size_t kMostTextBytes = 4'000'000'000;

// Everything that the source gives, decompressed when the first bytes say that it is compressed; several gzip
// members or zstd frames behind one another make one text. Holds the text once, compressed data never as a
// whole. The string has at least kJsonPadding bytes of spare capacity. `expectedBytes` is room to begin with.
// Throws std::runtime_error with one line that opens with `name` when compressed data is damaged or ends
// early, and when the text is too large.
std::string ReadText(const ByteSource& source, const std::string& name, size_t expectedBytes,
                     size_t mostBytes = kMostTextBytes);

}  // namespace replay

#endif  // REPLAY_RECORDING_INPUT_TEXT_H_
