#include "tools/capture/capture.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "tools/capture/debug_output.h"
#include "tools/io/image_files.h"

namespace lumivex::tools {

const char* ProfileName(std::int32_t profile) {
  return profile == ZMOS_PROFILE_QUALITY ? "quality" : "exact";
}

namespace {

// The engine's direction codes, in order, with the names people give them.
constexpr const char* kDirectionNames[] = {"left to right", "right to left", "top to bottom",
                                           "bottom to top"};
constexpr const char* kDirectionWords[] = {"right", "left", "down", "up"};

}  // namespace

const char* DirectionName(std::int32_t direction) {
  return direction >= ZMOS_DIRECTION_LEFT_TO_RIGHT && direction <= ZMOS_DIRECTION_BOTTOM_TO_TOP
             ? kDirectionNames[direction]
             : "not found";
}

bool ParseDirection(const std::string& name, int* direction) {
  for (int d = ZMOS_DIRECTION_LEFT_TO_RIGHT; d <= ZMOS_DIRECTION_BOTTOM_TO_TOP; ++d) {
    if (name == kDirectionWords[d] || name == std::to_string(d)) {
      *direction = d;
      return true;
    }
  }
  return false;
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
      std::fputs("frame,result,kept,angle,offset_x,offset_y,direction,coasting,laid_too_fast\n",
                 csv);
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
  std::int32_t kept = 0, flags[4] = {0, 0, 0, 0}, angle = angle_, offset[2] = {0, 0};
  const auto t0 = std::chrono::steady_clock::now();
  rec.result = ZMOS_SelectFrames(engine_, &image, &image, offset, &kept, flags, &angle);
  if (rec.result == 0) {
    const std::int32_t res = ZMOS_UpdateUIImage(engine_, &image, &ui_, 6, ui_rect_);
    if (res != 0 && !preview_failed_ && options_.warnings) {
      std::fprintf(stderr, "\nnote: no live preview (%s)\n",
                   ZMOS_ResultName(res, ZMOS_RESULTS_CAPTURE));
      preview_failed_ = true;
    }
  }
  engine_ms_ +=
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
  rec.kept = kept == 1;
  // The quality engine lays a too-fast frame one strip on (the host is still told it was
  // too fast): the canvas grew, so the angle did too, though the call does not report it.
  if (rec.result == ZMOS_ERR_TOO_FAST && options_.profile == ZMOS_PROFILE_QUALITY) {
    std::int32_t now = angle_;
    ZMOSCalculateAngle_SWT(engine_, &now);
    rec.laid_too_fast = now > angle_;
    angle = now;
  }
  rec.coasting = ZMOS_IsCoasting(engine_) != 0;
  coasted_ += rec.coasting;
  rec.angle = angle;
  rec.offset_x = offset[0];
  rec.offset_y = offset[1];
  for (int i = 0; i < 4; ++i)
    if (flags[i] == 1) rec.direction = 3 - i;
  if (rec.direction >= 0 && detected_at_ < 0) detected_at_ = rec.index;
  if (rec.direction >= 0) direction_ = rec.direction;
  kept_ += rec.kept || rec.laid_too_fast;
  laid_too_fast_ += rec.laid_too_fast;
  if (rec.kept || rec.laid_too_fast) angle_ = angle;
  records_.push_back(rec);
  WriteDebug();
  if (rec.result == ZMOS_ERR_TOO_FAST && options_.profile == ZMOS_PROFILE_QUALITY) {
    // The quality engine restarts from a too-fast frame: warn and keep feeding.
    Warn(rec.result);
    if (angle_ >= options_.max_angle) ended_ = true;
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
  if (init_result_ != 0) return stitch_result_ = init_result_;
  ShowStep("stitching", 0);
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
  ShowStep("stitching", 1);
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
  ZMOSSWEEPLAYOUT layout{};
  if (direction_ < 0 || narrow_ || panorama_.width() == 0 ||
      ZMOS_GetSweepLayout(width_, height_, options_.max_angle, direction_, &layout) != 0)
    return seams;
  const bool horizontal = direction_ == 0 || direction_ == 1;
  const bool forward = direction_ == 0 || direction_ == 2;
  const int size = horizontal ? width_ : height_;
  const int canvas = horizontal ? layout.lCanvasWidth : layout.lCanvasHeight;
  const int result = horizontal ? panorama_.width() : panorama_.height();
  int previous = 0;
  for (const FrameRecord& r : records_) {
    if (!r.kept && !r.laid_too_fast) continue;
    // Travel along the sweep, forward positive (the report's y is negated).
    const int x = r.offset_x, y = -r.offset_y;
    const int along = horizontal ? (forward ? x : -x) : (forward ? y : -y);
    const int overlap = ((along - previous) / 2) & ~1;
    previous = along;
    // The strip's seam on the canvas, then in the cropped panorama (which keeps the
    // starting edge: left or top for forward sweeps, right or bottom otherwise).
    const int p = forward ? layout.lSeam + along : canvas - (size - layout.lSeam) - along;
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

void Capture::ShowStep(const std::string& step, double done) {
  if (!options_.progress) return;
  const int filled = std::clamp(static_cast<int>(done * 30), 0, 30);
  std::fprintf(stderr, "\r%-16.16s [%.*s%.*s] %3d %%%-28s", step.c_str(), filled,
               "##############################", 30 - filled, "..............................",
               static_cast<int>(done * 100), "");
  if (done >= 1) std::fputc('\n', stderr);
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
                                     : ZMOS_ResultName(code, ZMOS_RESULTS_CAPTURE);
  if (options_.progress) std::fputc('\n', stderr);
  std::fprintf(stderr, "warning: %s (frame %d)\n", advice, frames_read() - 1);
}

void Capture::WriteDebug() {
  if (options_.debug_dir.empty()) return;
  const FrameRecord& r = records_.back();
  if (std::FILE* csv = std::fopen((options_.debug_dir + "/frames.csv").c_str(), "a")) {
    std::fprintf(csv, "%d,%d,%d,%d,%d,%d,%d,%d,%d\n", r.index, r.result, r.kept ? 1 : 0, r.angle,
                 r.offset_x, r.offset_y, r.direction, r.coasting ? 1 : 0,
                 r.laid_too_fast ? 1 : 0);
    std::fclose(csv);
  }
  if ((r.kept || r.laid_too_fast) && ui_.pPlane[0] != nullptr && ui_.lWidth > 0) {
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
