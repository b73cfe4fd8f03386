#include "tests/support/test_support.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <algorithm>

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

namespace {

// An environment override, else the path the build configured.
const char* Setting(const char* name, const char* built_in) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : built_in;
}

}  // namespace

std::string DataDir() {
  return Setting("LUMIVEX_DATA_DIR", LUMIVEX_DATA_DIR);
}

namespace {

bool ReadPgm(const char* path, Plane8* out) {
  std::FILE* f = std::fopen(path, "rb");
  if (f == nullptr) return false;
  int maxval = 0;
  const bool header = std::fscanf(f, "P5 %d %d %d", &out->width, &out->height, &maxval) == 3 &&
                      maxval == 255 && std::fgetc(f) != EOF;
  bool ok = false;
  if (header && out->width > 0 && out->height > 0) {
    out->pixels.resize(static_cast<std::size_t>(out->width) * out->height);
    ok = std::fread(out->pixels.data(), 1, out->pixels.size(), f) == out->pixels.size();
  }
  std::fclose(f);
  return ok;
}

}  // namespace

const Plane8* Photo() {
  static const std::unique_ptr<Plane8> photo = [] {
    auto p = std::make_unique<Plane8>();
    if (!ReadPgm(Setting("LUMIVEX_PHOTO_PGM", LUMIVEX_PHOTO_PGM), p.get())) p.reset();
    return p;
  }();
  return photo.get();
}

const ColourPlanes* ColourPhoto() {
  static const std::unique_ptr<ColourPlanes> photo = []() -> std::unique_ptr<ColourPlanes> {
    std::FILE* f = std::fopen(Setting("LUMIVEX_PHOTO_PPM", LUMIVEX_PHOTO_PPM), "rb");
    if (f == nullptr) return nullptr;
    int w = 0, h = 0, maxval = 0;
    std::vector<std::uint8_t> rgb;
    if (std::fscanf(f, "P6 %d %d %d", &w, &h, &maxval) == 3 && maxval == 255 &&
        std::fgetc(f) != EOF && w > 0 && h > 0) {
      rgb.resize(static_cast<std::size_t>(w) * h * 3);
      if (std::fread(rgb.data(), 1, rgb.size(), f) != rgb.size()) rgb.clear();
    }
    std::fclose(f);
    if (rgb.empty()) return nullptr;
    auto out = std::make_unique<ColourPlanes>();
    for (Plane8* p : {&out->y, &out->u, &out->v})
      *p = Plane8{w, h, std::vector<std::uint8_t>(rgb.size() / 3)};
    // BT.601 full range, Q16.
    for (std::size_t i = 0; i < rgb.size() / 3; ++i) {
      const int r = rgb[3 * i], g = rgb[3 * i + 1], b = rgb[3 * i + 2];
      auto clamp = [](int v) { return static_cast<std::uint8_t>(std::clamp(v, 0, 255)); };
      out->y.pixels[i] = clamp((19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
      out->u.pixels[i] = clamp(((-11059 * r - 21709 * g + 32768 * b + 32768) >> 16) + 128);
      out->v.pixels[i] = clamp(((32768 * r - 27439 * g - 5329 * b + 32768) >> 16) + 128);
    }
    return out;
  }();
  return photo.get();
}

bool PhotoExpected() {
  std::FILE* f = std::fopen((DataDir() + "/mountain-360-5000x2500.jpg").c_str(), "rb");
  if (f != nullptr) std::fclose(f);
  return f != nullptr;
}

Plane8 Transposed(const Plane8& p) {
  Plane8 t{p.height, p.width, std::vector<std::uint8_t>(p.pixels.size())};
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x)
      t.pixels[static_cast<std::size_t>(x) * p.height + y] = p.at(x, y);
  return t;
}

const ColourPlanes* TurnedColourPhoto() {
  static const ColourPlanes* turned = [] {
    const ColourPlanes* photo = ColourPhoto();
    return photo == nullptr
               ? nullptr
               : new ColourPlanes{Transposed(photo->y), Transposed(photo->u), Transposed(photo->v)};
  }();
  return turned;
}

std::int32_t HandlerWorkBufferSize(std::int32_t w, std::int32_t h) {
  const std::int64_t side = std::max(w, h);
  return static_cast<std::int32_t>(3LL * w * h + 35 * ((side * ((side / 5) & ~3) * 3LL) / 2) +
                                   16 * 38);
}

std::uint64_t PanoramaChecksum(const ZMOSIMAGE& img) {
  auto fnv = [](std::uint64_t h, const std::uint8_t* p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 0x100000001B3ull;
    return h;
  };
  std::uint64_t h = 0xCBF29CE484222325ull;
  const std::int32_t size[2] = {img.lWidth, img.lHeight};
  h = fnv(h, reinterpret_cast<const std::uint8_t*>(size), sizeof(size));
  for (std::int32_t r = 0; r < img.lHeight; ++r)
    h = fnv(h, img.pPlane[0] + std::int64_t{r} * img.lPitch[0], img.lWidth);
  // NV21: one VU plane of full-width rows; I420: U then V at half width.
  const bool planar = img.dwFormat == ZMOS_FORMAT_I420;
  for (int p = 1; p <= (planar ? 2 : 1); ++p)
    for (std::int32_t r = 0; r < img.lHeight / 2; ++r)
      h = fnv(h, img.pPlane[p] + std::int64_t{r} * img.lPitch[p],
              planar ? img.lWidth / 2 : img.lWidth);
  return h;
}

Plane8 SyntheticTexture(int width, int height, std::uint64_t seed) {
  Plane8 out{width, height, {}};
  std::vector<float> acc(static_cast<std::size_t>(width) * height, 0.0f);
  Rng rng(seed);
  for (int scale : {40, 16, 6}) {
    const int blobs = width * height / (scale * scale) * 2 + 8;
    for (int b = 0; b < blobs; ++b) {
      const int cx = rng.Range(0, width - 1), cy = rng.Range(0, height - 1);
      const float amp = static_cast<float>(rng.Range(-60, 60));
      const int r = scale;
      for (int y = std::max(0, cy - r); y < std::min(height, cy + r + 1); ++y) {
        for (int x = std::max(0, cx - r); x < std::min(width, cx + r + 1); ++x) {
          const float d2 = static_cast<float>((x - cx) * (x - cx) + (y - cy) * (y - cy));
          const float fall = 1.0f - d2 / static_cast<float>(r * r);
          if (fall > 0) acc[static_cast<std::size_t>(y) * width + x] += amp * fall * fall;
        }
      }
    }
  }
  out.pixels.resize(acc.size());
  for (std::size_t i = 0; i < acc.size(); ++i)
    out.pixels[i] = static_cast<std::uint8_t>(std::clamp(128.0f + acc[i], 0.0f, 255.0f));
  return out;
}

void Frame::Layout(std::uint32_t format, int width, int height, int pitch_pad) {
  const int pitch = width + pitch_pad;
  const std::size_t luma = static_cast<std::size_t>(pitch) * height;
  const std::size_t chroma = format == ZMOS_FORMAT_GREY ? 0 : luma / 2 + pitch;
  buffer_.assign(luma + chroma, 128);
  image_.dwFormat = format;
  image_.lWidth = width;
  image_.lHeight = height;
  image_.pPlane[0] = buffer_.data();
  image_.lPitch[0] = pitch;
  if (format == ZMOS_FORMAT_NV21) {
    image_.pPlane[1] = buffer_.data() + luma;
    image_.lPitch[1] = pitch;
  } else if (format == ZMOS_FORMAT_I420) {
    image_.pPlane[1] = buffer_.data() + luma;
    image_.pPlane[2] = image_.pPlane[1] + luma / 4 + pitch;
    image_.lPitch[1] = image_.lPitch[2] = pitch / 2;
  }
}

Frame::Frame(const Plane8& src, int x, int y, int width, int height, std::uint32_t format,
             int pitch_pad) {
  Layout(format, width, height, pitch_pad);
  for (int r = 0; r < height; ++r)
    for (int c = 0; c < width; ++c)
      image_.pPlane[0][static_cast<std::size_t>(r) * image_.lPitch[0] + c] =
          src.clamped(x + c, y + r);
}

Frame::Frame(const ColourPlanes& src, int x, int y, int width, int height, std::uint32_t format,
             int pitch_pad)
    : Frame(src.y, x, y, width, height, format, pitch_pad) {
  auto mean = [&](const Plane8& p, int cx, int cy) {
    const int px = x + 2 * cx, py = y + 2 * cy;
    return static_cast<std::uint8_t>((p.clamped(px, py) + p.clamped(px + 1, py) +
                                      p.clamped(px, py + 1) + p.clamped(px + 1, py + 1) + 2) /
                                     4);
  };
  for (int cy = 0; cy < height / 2; ++cy) {
    for (int cx = 0; cx < width / 2; ++cx) {
      if (format == ZMOS_FORMAT_NV21) {
        std::uint8_t* row = image_.pPlane[1] + static_cast<std::size_t>(cy) * image_.lPitch[1];
        row[2 * cx] = mean(src.v, cx, cy);
        row[2 * cx + 1] = mean(src.u, cx, cy);
      } else if (format == ZMOS_FORMAT_I420) {
        image_.pPlane[1][static_cast<std::size_t>(cy) * image_.lPitch[1] + cx] =
            mean(src.u, cx, cy);
        image_.pPlane[2][static_cast<std::size_t>(cy) * image_.lPitch[2] + cx] =
            mean(src.v, cx, cy);
      }
    }
  }
}

}  // namespace lumivex::test
