#include "tests/support/test_support.h"

#include <cstdlib>

#include "src/image/format.h"
#include "src/platform/memory.h"

namespace lumivex::test {

namespace {
constexpr int kGuard = 64;
}

GuardedImage::GuardedImage(std::uint32_t format, int width, int height, int extra_pitch,
                           std::uint64_t seed) {
  image_.dwFormat = format;
  image_.lWidth = width;
  image_.lHeight = height;
  const auto info = image::LookupFormat(format);
  planes_ = info ? info->planes : 1;
  std::size_t offsets[3] = {0, 0, 0};
  std::size_t size = kGuard;
  for (int p = 0; p < planes_; ++p) {
    row_bytes_[p] = info ? static_cast<int>(image::RowBytesOf(*info, p, width)) : width;
    rows_[p] = info ? image::RowsOf(*info, height).rows[p] : height;
    image_.lPitch[p] = row_bytes_[p] + extra_pitch;
    offsets[p] = size;
    size += static_cast<std::size_t>(image_.lPitch[p]) * rows_[p] + kGuard;
  }
  buffer_.assign(size, kGuardByte);
  is_pixel_.assign(size, false);
  Rng rng(seed);
  for (int p = 0; p < planes_; ++p) {
    image_.pPlane[p] = buffer_.data() + offsets[p];
    for (int y = 0; y < rows_[p]; ++y) {
      for (int x = 0; x < row_bytes_[p]; ++x) {
        const std::size_t i = offsets[p] + static_cast<std::size_t>(y) * image_.lPitch[p] + x;
        buffer_[i] = static_cast<std::uint8_t>(rng.Next());
        is_pixel_[i] = true;
      }
    }
  }
}

bool GuardedImage::GuardsIntact() const {
  for (std::size_t i = 0; i < buffer_.size(); ++i)
    if (!is_pixel_[i] && buffer_[i] != kGuardByte) return false;
  return true;
}

WorkArena::WorkArena(std::size_t size) : buffer_(size) {
  handle_ = MMemMgrCreate(buffer_.data(), static_cast<std::int32_t>(buffer_.size()));
}

int WorkArena::UsedBlocks() const {
  platform::MemStats s;
  return platform::CheckHeap(handle_, &s) ? s.used_blocks : -1;
}

std::size_t WorkArena::FreeBytes() const {
  platform::MemStats s;
  return platform::CheckHeap(handle_, &s) ? s.free_bytes : 0;
}

std::string DataDir() {
  const char* dir = std::getenv("LUMIVEX_DATA_DIR");
  return dir != nullptr ? dir : "";
}

}  // namespace lumivex::test
