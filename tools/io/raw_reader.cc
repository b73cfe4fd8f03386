#include "tools/io/raw_reader.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace lumivex::tools {
namespace {

// Reads `need` bytes into `buffer`, growing it only as the data arrives, so a size that
// promises a huge frame costs nothing until the input really holds it. False when the
// input ends first (`*got` says how much came).
bool ReadExactly(std::FILE* f, std::size_t need, std::vector<std::uint8_t>* buffer,
                 std::size_t* got) {
  constexpr std::size_t kChunk = 1 << 20;
  buffer->clear();
  *got = 0;
  while (*got < need) {
    const std::size_t want = std::min(kChunk, need - *got);
    buffer->resize(*got + want);
    const std::size_t n = std::fread(buffer->data() + *got, 1, want, f);
    *got += n;
    if (n < want) {
      buffer->resize(*got);
      return false;
    }
  }
  return true;
}

class RawSource : public FrameSource {
 public:
  RawSource(std::FILE* f, bool owned, int w, int h, std::uint32_t format)
      : f_(f), owned_(owned), w_(w), h_(h), format_(format) {}
  ~RawSource() override {
    if (owned_) std::fclose(f_);
  }
  bool Next(Yuv420* frame) override {
    std::size_t got = 0;
    if (!ReadExactly(f_, Bytes(), &buffer_, &got)) {
      if (got > 0)
        warning_ = "the input ends in the middle of frame " + std::to_string(frames_ + 1) + " (" +
                   std::to_string(got) + " of " + std::to_string(Bytes()) +
                   " bytes); stitched the frames before it";
      return false;
    }
    *frame = Yuv420(w_, h_, format_);
    std::memcpy(frame->data(), buffer_.data(), Bytes());
    ++frames_;
    return true;
  }
  int SkipRest() override {
    std::vector<std::uint8_t> chunk(1 << 16);
    std::size_t total = 0;
    for (std::size_t n; (n = std::fread(chunk.data(), 1, chunk.size(), f_)) > 0;) total += n;
    return static_cast<int>(total / Bytes());
  }

 private:
  std::size_t Bytes() const { return static_cast<std::size_t>(w_) * h_ * 3 / 2; }
  std::FILE* f_;
  bool owned_;
  int w_, h_;
  std::uint32_t format_;
  int frames_ = 0;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace

std::unique_ptr<FrameSource> OpenRaw(std::FILE* f, bool owned, int w, int h,
                                     std::uint32_t format) {
  return std::make_unique<RawSource>(f, owned, w, h, format);
}

}  // namespace lumivex::tools
