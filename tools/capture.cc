#include "tools/capture.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>

namespace lumivex::tools {

namespace {

// Digits 0-9 in a 3 x 5 bitmap font, a row of three bits per line.
constexpr std::uint8_t kDigits[10][5] = {
    {7, 5, 5, 5, 7}, {2, 6, 2, 2, 7}, {7, 1, 7, 4, 7}, {7, 1, 7, 1, 7}, {5, 5, 7, 1, 1},
    {7, 4, 7, 1, 7}, {7, 4, 7, 5, 7}, {7, 1, 1, 1, 1}, {7, 5, 7, 5, 7}, {7, 5, 7, 1, 7}};

void Blend(Rgb* rgb, int x, int y, const std::uint8_t colour[3], int alpha) {
  if (x < 0 || y < 0 || x >= rgb->width || y >= rgb->height) return;
  std::uint8_t* p = rgb->pixels.data() + (static_cast<std::size_t>(y) * rgb->width + x) * 3;
  for (int c = 0; c < 3; ++c)
    p[c] = static_cast<std::uint8_t>((p[c] * (256 - alpha) + colour[c] * alpha) / 256);
}

// The number in black on a white box, 2 x scale, its top-left corner at (x, y).
void Label(Rgb* rgb, int x, int y, int number) {
  const std::string text = std::to_string(number);
  constexpr std::uint8_t kWhite[3] = {255, 255, 255}, kBlack[3] = {0, 0, 0};
  const int w = static_cast<int>(text.size()) * 8 + 2, h = 14;
  for (int dy = 0; dy < h; ++dy)
    for (int dx = 0; dx < w; ++dx) Blend(rgb, x + dx, y + dy, kWhite, 200);
  for (std::size_t k = 0; k < text.size(); ++k)
    for (int row = 0; row < 5; ++row)
      for (int col = 0; col < 3; ++col)
        if (kDigits[text[k] - '0'][row] >> (2 - col) & 1)
          for (int sy = 0; sy < 2; ++sy)
            for (int sx = 0; sx < 2; ++sx)
              Blend(rgb, x + 2 + static_cast<int>(k) * 8 + 2 * col + sx, y + 2 + 2 * row + sy,
                    kBlack, 256);
}

}  // namespace

// Overlap bands lightly tinted, each seam a thin half-transparent red line, and every
// Nth seam numbered (about twenty labels at most), so a hundred seams stay readable.
void DrawSeams(Rgb* rgb, const std::vector<Capture::Seam>& seams, bool horizontal) {
  constexpr std::uint8_t kTint[3] = {255, 200, 0}, kRed[3] = {255, 0, 0};
  const int extent = horizontal ? rgb->width : rgb->height;
  const int across = horizontal ? rgb->height : rgb->width;
  auto at = [&](int a, int c, const std::uint8_t colour[3], int alpha) {
    horizontal ? Blend(rgb, a, c, colour, alpha) : Blend(rgb, c, a, colour, alpha);
  };
  const int every = std::max<int>(1, static_cast<int>((seams.size() + 19) / 20));
  for (std::size_t i = 0; i < seams.size(); ++i) {
    const Capture::Seam& s = seams[i];
    for (int a = std::max(s.start, 0); a < std::min(s.end, extent); ++a)
      for (int c = 0; c < across; ++c) at(a, c, kTint, 40);
    const int line = s.start + (s.end - s.start - 1) / 2;
    if (line < 0 || line >= extent) continue;
    for (int c = 0; c < across; ++c) at(line, c, kRed, 128);
    if (i % every == 0)
      horizontal ? Label(rgb, line + 2, 2, static_cast<int>(i) + 1)
                 : Label(rgb, 2, line + 2, static_cast<int>(i) + 1);
  }
}

void WriteFramesJson(const std::string& path, const std::vector<FrameRecord>& records) {
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) return;
  std::fputs("[\n", f);
  for (std::size_t i = 0; i < records.size(); ++i) {
    const FrameRecord& r = records[i];
    std::fprintf(
        f,
        "  {\"frame\": %d, \"result\": %d, \"kept\": %s, \"angle\": %d, \"offset\": [%d, %d], "
        "\"direction\": %d, \"coasting\": %s}%s\n",
        r.index, r.result, r.kept ? "true" : "false", r.angle, r.offset_x, r.offset_y, r.direction,
        r.coasting ? "true" : "false", i + 1 < records.size() ? "," : "");
  }
  std::fputs("]\n", f);
  std::fclose(f);
}

int CanvasLength(int width, int angle) {
  const auto f = static_cast<float>(angle * 6.0 / 360.0);
  return static_cast<int>(static_cast<float>(width) * f) & ~3;
}

const char* ProfileName(std::int32_t profile) {
  return profile == ZMOS_PROFILE_QUALITY ? "quality" : "exact";
}

const char* DirectionName(std::int32_t direction) {
  switch (direction) {
    case 0:
      return "left to right";
    case 1:
      return "right to left";
    case 2:
      return "top to bottom";
    case 3:
      return "bottom to top";
    default:
      return "not found";
  }
}

std::string Describe(std::int32_t code) {
  switch (code) {
    case 0:
      return "ok";
    case ZMOS_ERR_INVALID_PARAM:
      return "invalid argument";
    case ZMOS_ERR_UNSUPPORTED_FORMAT:
      return "unsupported image format";
    case ZMOS_ERR_NO_MEMORY:
      return "out of memory in the work buffer";
    case ZMOS_ERR_NO_TEXTURE:
      return "too little texture to follow the sweep";
    case ZMOS_ERR_SWEEP_WRONG:
      return "the sweep went wrong (moved backwards, drifted, or turned)";
    case ZMOS_ERR_TOO_FAST:
      return "the camera moved too fast";
    default:
      return "engine error " + std::to_string(code);
  }
}

Capture::Capture(int width, int height, std::uint32_t format, CaptureOptions options)
    : width_(width), height_(height), format_(format), options_(std::move(options)) {
  std::int32_t size = 0;
  init_result_ = ZMOS_GetWorkBufferSize(width, height, options_.max_angle, &size);
  if (init_result_ != 0) return;
  work_.resize(static_cast<std::size_t>(size));
  ZMOSINITPARAM param{work_.data(), size, options_.max_angle, width, height, width, height};
  init_result_ = ZMOS_Init(&param, &engine_);
  if (init_result_ == 0) init_result_ = ZMOS_SetProfile(engine_, options_.profile);
  ui_.dwFormat = ZMOS_FORMAT_NV21;
  if (!isatty(STDERR_FILENO)) options_.progress = false;
  if (!options_.debug_dir.empty()) {
    std::FILE* csv = std::fopen((options_.debug_dir + "/frames.csv").c_str(), "w");
    if (csv == nullptr) {
      std::fprintf(stderr, "warning: cannot write into %s; no debug output\n",
                   options_.debug_dir.c_str());
      options_.debug_dir.clear();
    } else {
      std::fputs("frame,result,kept,angle,offset_x,offset_y,direction,coasting\n", csv);
      std::fclose(csv);
    }
  }
}

Capture::~Capture() {
  ZMOS_UnInit(&engine_);
}

bool Capture::Feed(Yuv420& frame) {
  if (ended_ || init_result_ != 0) return false;
  ZMOSIMAGE image = frame.Image();
  FrameRecord rec;
  rec.index = frames_read();
  std::int32_t kept = 0, flags[4] = {0, 0, 0, 0}, angle = 0, offset[2] = {0, 0};
  const auto t0 = std::chrono::steady_clock::now();
  rec.result = ZMOS_SelectFrames(engine_, &image, &image, offset, &kept, flags, &angle);
  if (rec.result == 0) {
    const std::int32_t res = ZMOS_UpdateUIImage(engine_, &image, &ui_, 6, ui_rect_);
    if (res != 0 && !preview_failed_ && options_.warnings) {
      std::fprintf(stderr, "\nnote: no live preview (%s)\n", Describe(res).c_str());
      preview_failed_ = true;
    }
  }
  engine_ms_ +=
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
  rec.kept = kept == 1;
  rec.coasting = ZMOS_IsCoasting(engine_) != 0;
  coasted_ += rec.coasting;
  rec.angle = angle;
  rec.offset_x = offset[0];
  rec.offset_y = offset[1];
  for (int i = 0; i < 4; ++i)
    if (flags[i] == 1) rec.direction = 3 - i;
  if (rec.direction >= 0 && detected_at_ < 0) detected_at_ = rec.index;
  if (rec.direction >= 0) direction_ = rec.direction;
  kept_ += rec.kept;
  if (rec.kept) angle_ = angle;
  records_.push_back(rec);
  WriteDebug(frame);
  if (rec.result == ZMOS_ERR_TOO_FAST && options_.profile == ZMOS_PROFILE_QUALITY) {
    // The quality engine restarts from a too-fast frame: warn and keep feeding.
    Warn(rec.result);
  } else if (rec.result != 0) {
    // As on the phone: any engine failure ends the capture, and what was kept is stitched.
    end_code_ = rec.result;
    Warn(rec.result);
    ended_ = true;
  } else if (angle_ >= options_.max_angle) {
    ended_ = true;
  }
  DrawProgress();
  return !ended_;
}

std::int32_t Capture::Finish() {
  if (finished_) return stitch_result_;
  finished_ = true;
  if (options_.progress) std::fputc('\n', stderr);
  if (init_result_ != 0) return stitch_result_ = init_result_;
  ZMOSIMAGE result{};
  stitch_result_ = ZMOS_Stitch(engine_, &result, nullptr);
  narrow_ = ZMOSIsResultNarrow_SWT(engine_) != 0;
  if (stitch_result_ == 0 && result.lWidth > 0 && result.lHeight > 0 &&
      result.pPlane[0] != nullptr) {
    // Copied out: the engine's pixels live in the work buffer.
    panorama_ = Yuv420(result.lWidth & ~1, result.lHeight & ~1, ZMOS_FORMAT_NV21);
    ZMOSIMAGE copy = panorama_.Image();
    const ZMOSRECT r{0, 0, copy.lWidth, copy.lHeight};
    if (result.dwFormat == ZMOS_FORMAT_NV21) {
      ZMOSCopyImageROI_AOD(&copy, nullptr, &result, &r);
    } else {
      Rgb rgb = ImageToRgb(result);
      panorama_ = RgbToYuv420(rgb, ZMOS_FORMAT_NV21);
    }
  }
  if (ui_.pPlane[0] != nullptr && ui_.lWidth > 0) preview_ = ImageToRgb(ui_);
  if (!options_.debug_dir.empty() && panorama_.width() > 0) {
    ZMOSIMAGE img = panorama_.Image();
    Rgb rgb = ImageToRgb(img);
    DrawSeams(&rgb, Seams(), direction_ == 0 || direction_ == 1);
    std::string error;
    if (!WriteImage(options_.debug_dir + "/panorama-seams.png", rgb, &error))
      std::fprintf(stderr, "warning: %s\n", error.c_str());
  }
  if (!options_.debug_dir.empty()) WriteFramesJson(options_.debug_dir + "/frames.json", records_);
  return stitch_result_;
}

std::vector<Capture::Seam> Capture::Seams() const {
  std::vector<Seam> seams;
  if (direction_ < 0 || narrow_ || panorama_.width() == 0) return seams;
  const bool horizontal = direction_ == 0 || direction_ == 1;
  const int size = horizontal ? width_ : height_;
  const int start = horizontal ? width_ / 2 : (height_ / 2) & ~1;
  const int canvas = CanvasLength(width_, options_.max_angle);
  const int result = horizontal ? panorama_.width() : panorama_.height();
  int previous = 0;
  for (const FrameRecord& r : records_) {
    if (!r.kept) continue;
    int along = 0;
    switch (direction_) {
      case 0:
        along = r.offset_x;
        break;
      case 1:
        along = -r.offset_x;
        break;
      case 2:
        along = -r.offset_y;
        break;
      default:
        along = r.offset_y;
        break;
    }
    const int overlap = ((along - previous) / 2) & ~1;
    previous = along;
    const bool forward = direction_ == 0 || direction_ == 2;
    // The strip's seam on the canvas, then in the cropped panorama (which keeps the
    // starting edge: left or top for forward sweeps, right or bottom otherwise).
    const int p = forward ? start + along : canvas - (size - start) - along;
    const int shift = forward ? 0 : canvas - result;
    seams.push_back(forward ? Seam{p - overlap, p} : Seam{p - shift, p - shift + overlap});
  }
  return seams;
}

void Capture::DrawProgress() {
  if (!options_.progress) return;
  const int filled = std::clamp(angle_ * 30 / std::max(options_.max_angle, 1), 0, 30);
  std::fprintf(stderr, "\r%3d deg [%.*s%.*s] %-13s kept %4d  frame %5d%s", angle_, filled,
               "##############################", 30 - filled, "..............................",
               DirectionName(direction_), kept_, frames_read(),
               !records_.empty() && records_.back().coasting ? "  coasting" : "          ");
}

void Capture::Warn(std::int32_t code) {
  if (!options_.warnings) return;
  const int slot = code == ZMOS_ERR_TOO_FAST ? 0 : code == ZMOS_ERR_SWEEP_WRONG ? 1 : 2;
  if (warned_[slot]) return;
  warned_[slot] = true;
  const char* advice =
      code == ZMOS_ERR_TOO_FAST      ? "too fast: sweep more slowly"
      : code == ZMOS_ERR_SWEEP_WRONG ? "sweep went wrong: keep moving in one direction, level"
      : code == ZMOS_ERR_NO_TEXTURE  ? "too little texture: point the camera at detail"
                                     : nullptr;
  if (options_.progress) std::fputc('\n', stderr);
  std::fprintf(stderr, "warning: %s (frame %d)\n",
               advice != nullptr ? advice : Describe(code).c_str(), frames_read() - 1);
}

void Capture::WriteDebug(const Yuv420&) {
  if (options_.debug_dir.empty()) return;
  const FrameRecord& r = records_.back();
  if (std::FILE* csv = std::fopen((options_.debug_dir + "/frames.csv").c_str(), "a")) {
    std::fprintf(csv, "%d,%d,%d,%d,%d,%d,%d,%d\n", r.index, r.result, r.kept ? 1 : 0, r.angle,
                 r.offset_x, r.offset_y, r.direction, r.coasting ? 1 : 0);
    std::fclose(csv);
  }
  if (r.kept && ui_.pPlane[0] != nullptr && ui_.lWidth > 0) {
    char name[64];
    std::snprintf(name, sizeof(name), "/preview-%04d.png", r.index);
    std::string error;
    if (!WriteImage(options_.debug_dir + name, ImageToRgb(ui_), &error)) {
      std::fprintf(stderr, "warning: %s; no more debug output\n", error.c_str());
      options_.debug_dir.clear();
    }
  }
}

}  // namespace lumivex::tools
