// Bytes into text: plain, compressed, damaged, too large; and what files look like that are no HAR.
#include "replay/recording/input_text.h"

#include <gtest/gtest.h>
#define ZLIB_CONST
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <stdexcept>

#include "replay/recording/har_parser.h"
#include "replay/recording/wrong_format.h"
#include "tests/support/text.h"

namespace replay {
namespace {

// Hands the bytes out in chunks of one size.
ByteSource SourceOf(const std::string& bytes, size_t chunk) {
  return [&bytes, chunk, at = size_t{0}](char* buffer, size_t size) mutable {
    const size_t got = std::min({chunk, size, bytes.size() - at});
    std::copy_n(bytes.data() + at, got, buffer);
    at += got;
    return got;
  };
}

std::string Gzip(const std::string& text) {
  z_stream stream{};
  deflateInit2(&stream, 6, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string bytes(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<const Bytef*>(text.data());
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(bytes.data());
  stream.avail_out = static_cast<uInt>(bytes.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  bytes.resize(stream.total_out);
  deflateEnd(&stream);
  return bytes;
}

std::string Zstd(const std::string& text) {
  std::string bytes(ZSTD_compressBound(text.size()), '\0');
  bytes.resize(ZSTD_compress(bytes.data(), bytes.size(), text.data(), text.size(), 3));
  return bytes;
}

std::string TextOf(const std::string& bytes, size_t chunk, size_t expected = 0,
                   size_t most = kMostTextBytes) try {
  std::string text = ReadText(SourceOf(bytes, chunk), "file", expected, most);
  EXPECT_GE(text.capacity() - text.size(), kJsonPadding);
  return text;
} catch (const std::runtime_error& error) {
  return error.what();
}

// More than one buffer long, and not the same all over.
std::string LongText() {
  std::string text;
  for (size_t number = 0; text.size() < 3'000'000; ++number) text += std::to_string(number * number) + ",";
  return text;
}

TEST(InputText, DecompressesWhatIsCompressed) {
  const std::string text = LongText(), gzip = Gzip(text), zstd = Zstd(text);
  for (const std::string& bytes : {text, gzip, zstd}) {
    for (const size_t chunk : {size_t{777}, size_t{1} << 30}) {
      for (const size_t expected : {size_t{0}, bytes.size(), size_t{10'000'000}}) {
        EXPECT_TRUE(TextOf(bytes, chunk, expected) == text) << chunk << " " << expected;
      }
    }
    EXPECT_TRUE(TextOf(bytes, 1 << 16, 0, text.size()) == text) << "just fits";
    EXPECT_EQ(
        TextOf(bytes, 1 << 16, 0, text.size() - 1),
        "file: the file is too large: its text has more than " + std::to_string(text.size() - 1) + " bytes");
  }
  EXPECT_EQ(TextOf("", 1), "");
  EXPECT_EQ(TextOf("\x1f", 1), "\x1f");
  EXPECT_EQ(TextOf(Gzip(""), 1), "");
  EXPECT_EQ(TextOf(Zstd(""), 1), "");
  EXPECT_EQ(TextOf(Gzip("one ") + Gzip("two"), 1), "one two");
  EXPECT_EQ(TextOf(Gzip("padded") + std::string(512, '\0'), 7), "padded");
  EXPECT_EQ(TextOf(Zstd("one ") + Zstd("two"), 1), "one two");
}

TEST(InputText, DamagedAndCutOffDataIsAnError) {
  const std::string text = LongText().substr(0, 20'000);
  for (const std::string& whole : {Gzip(text), Zstd(text)}) {
    for (size_t length = 4; length < whole.size(); length += 97) {
      const std::string error = TextOf(whole.substr(0, length), 1000);
      EXPECT_TRUE(error.starts_with("file: the ") && error.ends_with(" data ends early")) << length << error;
    }
  }
  std::string damaged = Gzip(text);
  damaged[damaged.size() / 2] ^= 0x10;
  EXPECT_TRUE(TextOf(damaged, 1000).starts_with("file: the gzip data is damaged: "));
  damaged = Zstd(text);
  damaged[5] = '\xff';
  damaged[9] = '\xff';
  EXPECT_TRUE(TextOf(damaged, 1000).starts_with("file: the zstd data is damaged: ")) << TextOf(damaged, 1000);
}

TEST(WrongFormat, IsNamed) {
  const struct {
    std::string bytes, part;
  } cases[] = {
      {std::string("PK\x03\x04...", 7), "zip archive"},
      {"\xff\xfe{", "UTF-16"},
      {"  <!DOCTYPE HTML><title>x", "HTML page"},
      {"\xef\xbb\xbf<?xml version='1.0'?>", "XML"},
      {"onInputData({\"log\": {}});", "JSONP"},
      {"{\"constants\":{\"a\":1},\"events\":[{", "netlog"},
      {"{\"events\": [], \"constants\": {}}", "netlog"},
      {"{\"traceEvents\": []}", "performance trace"},
      {"[{\"cat\": \"x\", \"ph\": \"X\"}]", "performance trace"},
      {"{\"entries\": [], \"pages\": []}", "log of a HAR"},
      {"[{\"request\": {}, \"startedDateTime\": \"\"}]", "one entry of a HAR"},
      {"{\"a\\\"b\": 1}", "log is missing"},
      {"[]", "not an object"},
      {"[[{\"ph\": 1}]]", "not an object"},
      {std::string(257, '{') + "ustar", "tar archive"},
  };
  for (const auto& row : cases) {
    std::string padded = row.bytes;
    padded.reserve(padded.size() + kJsonPadding);
    const std::string error = tests::ErrorOf([&] { ParseHar(padded, "file", [](const HarEntry&) {}); });
    EXPECT_TRUE(error.starts_with("file: not a HAR file: ") && error.find(row.part) != std::string::npos)
        << error;
  }
}

}  // namespace
}  // namespace replay
