#include "replay/recording/input_text.h"

#define ZLIB_CONST  // the input is not changed
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "replay/recording/har_parser.h"

namespace replay {
namespace {

constexpr size_t kReadAtOnce = 1 << 20;

[[noreturn]] void Fail(const std::string& name, const std::string& what) {
  throw std::runtime_error(name + ": " + what);
}

// A text that grows at its end, up to a limit. It doubles its capacity, so that the time for growing is
// proportional to its size.
class GrowingText {
 public:
  GrowingText(const std::string& name, size_t expectedBytes, size_t mostBytes)
      : name_(name), most_(mostBytes) {
    text_.reserve(std::min(expectedBytes, mostBytes) + kJsonPadding + 1);
  }

  // Returns room for at least one and at most `wish` bytes. Call Grow() with the number of bytes that were
  // used.
  char* Room(size_t wish, size_t& size) {
    if (size_ == most_) {
      // One byte more than permitted shows whether the text is too large.
      size = 1;
      return &beyond_;
    }
    if (text_.capacity() - kJsonPadding <= size_) text_.reserve(text_.capacity() * 2);
    size = std::min({wish, text_.capacity() - kJsonPadding - size_, most_ - size_});
    text_.resize(size_ + size);
    return text_.data() + size_;
  }
  void Grow(size_t bytes) {
    if (bytes > 0 && size_ == most_) {
      Fail(name_, "the file is too large: its text has more than " + std::to_string(most_) + " bytes");
    }
    size_ += bytes;
  }
  std::string Take() {
    text_.resize(size_);
    return std::move(text_);
  }

 private:
  const std::string& name_;
  const size_t most_;
  std::string text_;
  size_t size_ = 0;  // of the text, without room that is not used yet
  char beyond_ = 0;
};

// Reads the source chunk by chunk, and permits looking at the first bytes before they are used.
class ChunkReader {
 public:
  explicit ChunkReader(const ByteSource& source) : source_(source), buffer_(kReadAtOnce, '\0') {}

  // Returns the bytes that are not used yet, after reading more if there are fewer than `least`. There are
  // fewer than that only at the end.
  std::string_view Peek(size_t least = 1) {
    while (end_ - begin_ < least && !ended_) {
      std::copy(buffer_.begin() + static_cast<ptrdiff_t>(begin_),
                buffer_.begin() + static_cast<ptrdiff_t>(end_), buffer_.begin());
      end_ -= begin_;
      begin_ = 0;
      const size_t got = source_(buffer_.data() + end_, buffer_.size() - end_);
      end_ += got;
      ended_ = got == 0;
    }
    return std::string_view(buffer_).substr(begin_, end_ - begin_);
  }
  void Use(size_t bytes) { begin_ += bytes; }

 private:
  const ByteSource& source_;
  std::string buffer_;
  size_t begin_ = 0, end_ = 0;
  bool ended_ = false;
};

void CopyPlain(const ByteSource& source, ChunkReader& reader, GrowingText& text) {
  for (std::string_view chunk = reader.Peek(0); !chunk.empty();) {
    size_t room = 0;
    char* const place = text.Room(chunk.size(), room);
    std::copy_n(chunk.data(), room, place);
    text.Grow(room);
    chunk.remove_prefix(room);
  }
  while (true) {
    size_t room = 0;
    char* const place = text.Room(kReadAtOnce, room);
    const size_t got = source(place, room);
    text.Grow(got);
    if (got == 0) return;
  }
}

constexpr std::string_view kGzipMagic = "\x1f\x8b";

void Inflate(const std::string& name, ChunkReader& reader, GrowingText& text) {
  z_stream stream{};
  if (inflateInit2(&stream, 16 + MAX_WBITS) != Z_OK)
    Fail(name, "there is not enough memory to decompress it");
  const std::unique_ptr<z_stream, int (*)(z_stream*)> ender(&stream, inflateEnd);
  while (true) {
    const std::string_view chunk = reader.Peek();
    if (chunk.empty()) Fail(name, "the gzip data ends early");
    size_t room = 0;
    stream.next_out = reinterpret_cast<Bytef*>(text.Room(kReadAtOnce, room));
    stream.avail_out = static_cast<uInt>(room);
    stream.next_in = reinterpret_cast<const Bytef*>(chunk.data());
    stream.avail_in = static_cast<uInt>(chunk.size());
    const int status = inflate(&stream, Z_NO_FLUSH);
    reader.Use(chunk.size() - stream.avail_in);
    text.Grow(room - stream.avail_out);
    if (status == Z_STREAM_END) {
      // Like most programs, this treats what follows the last member as padding.
      if (!reader.Peek(kGzipMagic.size()).starts_with(kGzipMagic)) return;
      inflateReset(&stream);
    } else if (status != Z_OK) {
      Fail(name, std::string("the gzip data is damaged") +
                     (stream.msg != nullptr ? ": " + std::string(stream.msg) : ""));
    }
  }
}

constexpr std::string_view kZstdMagic = "\x28\xb5\x2f\xfd";

void DecompressZstd(const std::string& name, ChunkReader& reader, GrowingText& text) {
  const std::unique_ptr<ZSTD_DStream, size_t (*)(ZSTD_DStream*)> stream(ZSTD_createDStream(),
                                                                        ZSTD_freeDStream);
  if (stream == nullptr) Fail(name, "there is not enough memory to decompress it");
  size_t wanted = 1;  // 0 between two frames
  while (true) {
    const std::string_view chunk = reader.Peek();
    if (chunk.empty() && wanted == 0) return;
    size_t room = 0;
    char* const place = text.Room(kReadAtOnce, room);
    ZSTD_inBuffer in = {chunk.data(), chunk.size(), 0};
    ZSTD_outBuffer out = {place, room, 0};
    wanted = ZSTD_decompressStream(stream.get(), &out, &in);
    if (ZSTD_isError(wanted) != 0)
      Fail(name, std::string("the zstd data is damaged: ") + ZSTD_getErrorName(wanted));
    reader.Use(in.pos);
    text.Grow(out.pos);
    if (chunk.empty() && out.pos == 0) Fail(name, "the zstd data ends early");
  }
}

}  // namespace

std::string ReadText(const ByteSource& source, const std::string& name, size_t expectedBytes,
                     size_t mostBytes) {
  ChunkReader reader(source);
  GrowingText text(name, expectedBytes, mostBytes);
  const std::string_view head = reader.Peek(kZstdMagic.size());
  if (head.starts_with(kGzipMagic)) {
    Inflate(name, reader, text);
  } else if (head.starts_with(kZstdMagic)) {
    DecompressZstd(name, reader, text);
  } else {
    CopyPlain(source, reader, text);
  }
  return text.Take();
}

}  // namespace replay
