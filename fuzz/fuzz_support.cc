#include "fuzz/fuzz_support.h"

#include <algorithm>

namespace lumivex::fuzz {

Layout LayoutOf(std::uint32_t format, std::int32_t width, std::int32_t height) {
  Layout l;
  const std::int64_t w = width, h = height;
  const std::uint32_t family = format >> 8, member = format & 0xFF;
  switch (family) {
    case 3:
    case 4:
      if (member < 1 || member > 4) return l;
      l.planes = 1;
      l.row_bytes[0] = w * ((family == 3 && member % 2 == 0) ? 4 : 3);
      l.rows[0] = h;
      return l;
    case 5:
      if (member < 1 || member > 8) return l;
      l.planes = 1;
      l.row_bytes[0] = 2 * w;
      l.rows[0] = h;
      return l;
    case 6: {
      if (member < 1 || member > 8) return l;
      const std::uint32_t kind = (member - 1) % 4;
      l.planes = 3;
      l.row_bytes[0] = w;
      l.rows[0] = h;
      for (int p = 1; p < 3; ++p) {
        l.row_bytes[p] = (kind == 0 || kind == 2) ? w / 2 : w;
        l.rows[p] = (kind == 0 || kind == 1) ? h / 2 : h;
      }
      return l;
    }
    case 7:
      if (member != 1) return l;
      l.planes = 1;
      l.row_bytes[0] = w;
      l.rows[0] = h;
      return l;
    case 8:
      if (member < 1 || member > 3) return l;
      l.planes = 2;
      l.row_bytes[0] = l.row_bytes[1] = w;
      l.rows[0] = h;
      l.rows[1] = member == 3 ? h : h / 2;
      return l;
    default:
      return l;
  }
}

CallerImage::CallerImage(std::uint32_t format, std::int32_t width, std::int32_t height,
                         std::int32_t pad, Input& in) {
  image_.dwFormat = format;
  image_.lWidth = width;
  image_.lHeight = height;
  layout_ = LayoutOf(format, width, height);
  // Unknown formats still get one plane of bytes so the library has something to refuse.
  const int planes = layout_.planes > 0 ? layout_.planes : 1;
  if (layout_.planes == 0) {
    layout_.rows[0] = std::max<std::int64_t>(height, 0);
    layout_.row_bytes[0] = std::max<std::int64_t>(width, 0);
  }
  for (int p = 0; p < planes; ++p) {
    const std::int64_t pitch = layout_.row_bytes[p] + pad;
    const std::int64_t bytes = pitch * layout_.rows[p];
    if (width < 0 || height < 0 || pitch > (1 << 16) || bytes > (8 << 20)) return;
    auto block = std::make_unique<std::uint8_t[]>(
        static_cast<std::size_t>(std::max<std::int64_t>(bytes, 1)));
    for (std::int64_t i = 0; i < bytes; ++i) {
      const bool pixel = pitch > 0 && i % pitch < layout_.row_bytes[p];
      block[i] = pixel ? static_cast<std::uint8_t>(in.Byte() ^ (i * 37 >> 3)) : 0x5A;
    }
    image_.pPlane[p] = block.get();
    image_.lPitch[p] = static_cast<std::int32_t>(pitch);
    sizes_.push_back(static_cast<std::size_t>(bytes));
    planes_.push_back(std::move(block));
  }
  ok_ = true;
}

void CallerImage::CheckPadding(const char* what) const {
  for (std::size_t p = 0; p < planes_.size(); ++p) {
    const std::int64_t pitch = image_.lPitch[p];
    for (std::size_t i = 0; i < sizes_[p]; ++i)
      if (pitch > 0 && static_cast<std::int64_t>(i) % pitch >= layout_.row_bytes[p] &&
          planes_[p][i] != 0x5A)
        Fail(what);
  }
}

void CallerImage::Snapshot() {
  snapshot_.clear();
  for (std::size_t p = 0; p < planes_.size(); ++p)
    snapshot_.emplace_back(planes_[p].get(), planes_[p].get() + sizes_[p]);
}

void CallerImage::CheckUnchanged(const char* what) const {
  for (std::size_t p = 0; p < snapshot_.size(); ++p)
    if (!std::equal(snapshot_[p].begin(), snapshot_[p].end(), planes_[p].get())) Fail(what);
}

void CallerImage::CutFromScene(std::int64_t x, std::int64_t y) {
  if (planes_.empty()) return;
  const Scene& s = TheScene();
  const std::int64_t step = layout_.row_bytes[0] / std::max<std::int64_t>(image_.lWidth, 1);
  for (std::int64_t r = 0; r < layout_.rows[0]; ++r)
    for (std::int64_t c = 0; c < image_.lWidth; ++c) {
      const std::int64_t sx = ((x + c) % Scene::kWidth + Scene::kWidth) % Scene::kWidth;
      const std::int64_t sy = ((y + r) % Scene::kHeight + Scene::kHeight) % Scene::kHeight;
      planes_[0][r * image_.lPitch[0] + c * std::max<std::int64_t>(step, 1)] =
          s.luma[sy * Scene::kWidth + sx];
    }
}

std::uint32_t CallerImage::Touch() const {
  std::uint32_t sum = 0;
  for (std::size_t p = 0; p < planes_.size(); ++p)
    for (std::size_t i = 0; i < sizes_[p]; ++i) sum += planes_[p][i];
  return sum;
}

void TouchImage(const ZMOSIMAGE* image) {
  if (image == nullptr) return;
  const Layout l = LayoutOf(image->dwFormat, image->lWidth, image->lHeight);
  volatile std::uint32_t sum = 0;
  for (int p = 0; p < l.planes; ++p) {
    // An image may be empty across and still tall (zero bytes a row): nothing to read.
    if (image->pPlane[p] == nullptr || l.row_bytes[p] <= 0) continue;
    for (std::int64_t y = 0; y < l.rows[p]; ++y)
      for (std::int64_t x = 0; x < l.row_bytes[p]; ++x)
        sum = sum + image->pPlane[p][y * image->lPitch[p] + x];
  }
}

GuardedBuffer::GuardedBuffer(std::size_t size)
    : size_(size), storage_(std::make_unique<std::uint8_t[]>(size + 2 * kGuard)) {
  std::memset(storage_.get(), kPattern, kGuard);
  std::memset(storage_.get() + kGuard + size, kPattern, kGuard);
}

void GuardedBuffer::CheckGuards(const char* what) const {
  for (std::size_t i = 0; i < kGuard; ++i)
    if (storage_[i] != kPattern || storage_[kGuard + size_ + i] != kPattern) Fail(what);
}

const Scene& TheScene() {
  static const Scene scene = [] {
    Scene s;
    s.luma.resize(static_cast<std::size_t>(Scene::kWidth) * Scene::kHeight);
    std::uint32_t state = 12345;
    auto next = [&] {
      state = state * 1664525u + 1013904223u;
      return state >> 8;
    };
    // Blobs of several sizes over fine noise: texture at every scale the trackers use.
    std::vector<int> acc(s.luma.size(), 0);
    for (int size : {96, 48, 24, 12, 6}) {
      for (int k = 0; k < Scene::kWidth * Scene::kHeight / (size * size) * 2; ++k) {
        const int cx = next() % Scene::kWidth, cy = next() % Scene::kHeight;
        const int v = static_cast<int>(next() % 81) - 40;
        for (int y = std::max(cy - size, 0); y < std::min(cy + size, Scene::kHeight); ++y)
          for (int x = std::max(cx - size, 0); x < std::min(cx + size, Scene::kWidth); ++x)
            acc[static_cast<std::size_t>(y) * Scene::kWidth + x] += v;
      }
    }
    for (std::size_t i = 0; i < acc.size(); ++i)
      s.luma[i] =
          static_cast<std::uint8_t>(std::clamp(128 + acc[i] / 3 + int(next() % 9) - 4, 0, 255));
    return s;
  }();
  return scene;
}

std::int64_t HandlerBufferSize(std::int32_t w, std::int32_t h) {
  const std::int64_t side = std::max(w, h);
  const std::int64_t size = 3LL * w * h + 35 * ((side * ((side / 5) & ~3) * 3LL) / 2) + 16 * 38;
  return size > INT32_MAX ? -1 : size;
}

}  // namespace lumivex::fuzz
