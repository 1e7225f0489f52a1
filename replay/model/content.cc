#include "replay/model/content.h"

#include <algorithm>
#include <array>

namespace replay {
namespace {

// Bodies are windows into one block of noise, so that making and checking them takes no longer than reading.
constexpr size_t kPiece = size_t{32} * 1024;
constexpr size_t kStarts = size_t{1021} * 1024;  // where a window may begin
constexpr size_t kBlock = kStarts + kPiece;

uint64_t Mix(uint64_t value) {
  value = (value ^ value >> 30) * 0xbf58476d1ce4e5b9U;
  value = (value ^ value >> 27) * 0x94d049bb133111ebU;
  return value ^ value >> 31;
}

const std::string& Noise() {
  static const std::string block = [] {
    std::string noise(kBlock, '\0');
    for (size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<char>(Mix(i + 1) & 0xff);
    return noise;
  }();
  return block;
}

}  // namespace

uint64_t ContentSeed(std::string_view url, uint64_t version) {
  uint64_t seed = Mix(version + 1);
  for (const char c : url) seed = Mix(seed ^ static_cast<unsigned char>(c));
  return seed;
}

void GenerateContent(uint64_t seed, int64_t size, const std::function<bool(std::string_view)>& take) {
  const std::string_view noise = Noise();
  auto left = static_cast<uint64_t>(std::max<int64_t>(size, 0));
  for (uint64_t piece = 0; left > 0; ++piece) {
    const auto count = static_cast<size_t>(std::min<uint64_t>(left, kPiece));
    if (!take(noise.substr((seed + piece * kPiece) % kStarts, count))) return;
    left -= count;
  }
}

bool IsContent(uint64_t seed, std::string_view body) {
  bool same = true;
  size_t checked = 0;
  GenerateContent(seed, static_cast<int64_t>(body.size()), [&](std::string_view piece) {
    same = body.substr(checked, piece.size()) == piece;
    checked += piece.size();
    return same;
  });
  return same;
}

}  // namespace replay
