// What the fuzz targets share: reading choices from the input, caller images whose
// planes are separate heap blocks of exactly their size (so the sanitizer sees any
// access past them) with their row padding checked, and a textured scene to cut frames
// from so that tracking really happens.
#ifndef LUMIVEX_FUZZ_FUZZ_SUPPORT_H_
#define LUMIVEX_FUZZ_FUZZ_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "lumivex/lumivex.h"

namespace lumivex::fuzz {

// Stops the run with a message the fuzzer shows beside the input that caused it.
[[noreturn]] inline void Fail(const char* what) {
  std::fprintf(stderr, "fuzz check failed: %s\n", what);
  std::abort();
}
inline void Check(bool ok, const char* what) {
  if (!ok) Fail(what);
}

// Choices taken from the front of the input; zeros once it is used up.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : p_(data), n_(size) {}
  std::uint8_t Byte() {
    if (n_ == 0) return 0;
    --n_;
    return *p_++;
  }
  std::uint32_t U32() {
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = (v << 8) | Byte();
    return v;
  }
  std::int32_t I32() { return static_cast<std::int32_t>(U32()); }
  // Uniform enough in [lo, hi].
  std::int32_t Range(std::int32_t lo, std::int32_t hi) {
    const std::uint64_t span = static_cast<std::uint64_t>(std::int64_t{hi} - lo) + 1;
    const std::uint32_t r = span <= 256 ? Byte() : span <= 65536 ? (Byte() << 8 | Byte()) : U32();
    return static_cast<std::int32_t>(lo + static_cast<std::int64_t>(r % span));
  }
  bool Bool() { return Byte() & 1; }
  template <typename T, std::size_t N>
  T Pick(const T (&options)[N]) {
    return options[Byte() % N];
  }
  // A small number or, now and then, an extreme one.
  std::int32_t Edgy(std::int32_t lo, std::int32_t hi) {
    static constexpr std::int32_t kExtremes[] = {INT32_MIN, INT32_MIN + 1, -65536,   -1, 0, 1,
                                                 65536,     INT32_MAX - 1, INT32_MAX};
    return Byte() < 16 ? Pick(kExtremes) : Range(lo, hi);
  }
  std::size_t left() const { return n_; }
  const std::uint8_t* rest() const { return p_; }
  void Skip(std::size_t k) {
    k = k < n_ ? k : n_;
    p_ += k;
    n_ -= k;
  }

 private:
  const std::uint8_t* p_;
  std::size_t n_;
};

// The formats the library knows, and a few it does not.
inline constexpr std::uint32_t kFormats[] = {0x802, 0x802, 0x601, 0x601, 0x801, 0x803, 0x602, 0x603,
                                             0x604, 0x605, 0x701, 0x501, 0x502, 0x503, 0x504, 0x505,
                                             0x301, 0x302, 0x401, 0x404, 0x000, 0x999};

// Rows and meaningful bytes per row of each plane of a format (0 planes: unknown).
struct Layout {
  int planes = 0;
  std::int64_t rows[3] = {0, 0, 0};
  std::int64_t row_bytes[3] = {0, 0, 0};
};
Layout LayoutOf(std::uint32_t format, std::int32_t width, std::int32_t height);

// A caller's image: each plane its own heap block of rows x pitch bytes, so the
// sanitizer catches reads and writes past it; bytes between a row's end and the pitch
// keep a pattern that must survive every call.
class CallerImage {
 public:
  CallerImage(std::uint32_t format, std::int32_t width, std::int32_t height, std::int32_t pad,
              Input& in);
  ZMOSIMAGE* get() { return &image_; }
  bool ok() const { return ok_; }
  // Writes landed only on pixels.
  void CheckPadding(const char* what) const;
  // Nothing changed at all (for images the library only reads).
  void Snapshot();
  void CheckUnchanged(const char* what) const;
  // Fills the luma with a window of the shared scene at (x, y).
  void CutFromScene(std::int64_t x, std::int64_t y);
  // Reads every pixel, so uninitialised or stale bytes reach the sanitizer.
  std::uint32_t Touch() const;

 private:
  ZMOSIMAGE image_{};
  Layout layout_{};
  bool ok_ = false;
  std::vector<std::unique_ptr<std::uint8_t[]>> planes_;
  std::vector<std::size_t> sizes_;
  std::vector<std::vector<std::uint8_t>> snapshot_;
};

// Reads every pixel of an image the library handed out, so stale, uninitialised or
// out-of-bounds bytes reach the sanitizer. Null is ignored.
void TouchImage(const ZMOSIMAGE* image);

// A heap block with guard zones on both sides that must survive every call.
class GuardedBuffer {
 public:
  explicit GuardedBuffer(std::size_t size);
  std::uint8_t* data() { return storage_.get() + kGuard; }
  std::size_t size() const { return size_; }
  void CheckGuards(const char* what) const;

 private:
  static constexpr std::size_t kGuard = 64;
  static constexpr std::uint8_t kPattern = 0xC3;
  std::size_t size_;
  std::unique_ptr<std::uint8_t[]> storage_;
};

// A textured grey scene (smooth blobs over noise), made once.
struct Scene {
  static constexpr std::int32_t kWidth = 1536, kHeight = 768;
  std::vector<std::uint8_t> luma;
};
const Scene& TheScene();

// The camera handler's work-buffer size for frames of w x h (30 frames), or -1 when it
// does not fit 32 bits.
std::int64_t HandlerBufferSize(std::int32_t w, std::int32_t h);

}  // namespace lumivex::fuzz

#endif  // LUMIVEX_FUZZ_FUZZ_SUPPORT_H_
