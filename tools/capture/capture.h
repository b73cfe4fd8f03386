// A capture driven the way a phone host drives the engine: init with the engine's own
// work-buffer size, select and update the preview on every frame, stitch on the full
// angle, on an engine failure or at the end of the input.
#ifndef LUMIVEX_TOOLS_CAPTURE_CAPTURE_H_
#define LUMIVEX_TOOLS_CAPTURE_CAPTURE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "lumivex/lumivex.h"
#include "tools/io/picture.h"

namespace lumivex::tools {

const char* DirectionName(std::int32_t direction);
const char* ProfileName(std::int32_t profile);
// "right", "left", "down", "up" (or 0 to 3) as an engine direction code.
bool ParseDirection(const std::string& name, int* direction);

struct FrameRecord {
  int index = 0;
  std::int32_t result = 0;
  bool kept = false;
  // Too fast, and laid one strip on all the same (the quality profile restarts there).
  bool laid_too_fast = false;
  std::int32_t angle = 0;
  std::int32_t offset_x = 0, offset_y = 0;  // the engine's report (y negated)
  std::int32_t direction = -1;
  bool coasting = false;  // travel carried through a plain stretch
};

struct CaptureOptions {
  std::string debug_dir;  // previews, CSV and the seam picture go here when set
  bool progress = false;  // a progress bar on stderr
  bool warnings = true;   // too fast, gone wrong and low texture, once each, on stderr
  // The engine's profile: the program serves people who want the best panorama.
  std::int32_t profile = ZMOS_PROFILE_QUALITY;
  // The sweep the engine lays out and completes (lMaxAngle); 180 as on the phone.
  std::int32_t max_angle = 180;
};

class Capture {
 public:
  Capture(int width, int height, std::uint32_t format, CaptureOptions options);
  ~Capture();
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  std::int32_t init_result() const { return init_result_; }
  // Feeds one frame; false once the capture has ended (full angle or engine failure).
  bool Feed(Yuv420& frame);
  // Stitches (once) and copies the panorama out of the work buffer.
  std::int32_t Finish();
  // A line on the progress bar for the steps after the frames ("stitching", "writing
  // PATH") and how far they are (0 to 1); nothing without a progress bar.
  void ShowStep(const std::string& step, double done);

  const std::vector<FrameRecord>& records() const { return records_; }
  int frames_read() const { return static_cast<int>(records_.size()); }
  // Frames laid on the canvas after the first: kept ones and too-fast ones laid anyway.
  int frames_kept() const { return kept_; }
  int frames_laid_too_fast() const { return laid_too_fast_; }
  int frames_coasted() const { return coasted_; }
  std::int32_t direction() const { return direction_; }
  int detected_at() const { return detected_at_; }
  bool complete() const { return angle_ >= options_.max_angle && end_code_ == 0; }
  std::int32_t max_angle() const { return options_.max_angle; }
  std::int32_t end_code() const { return end_code_; }  // the engine failure that ended it
  std::int32_t stitch_result() const { return stitch_result_; }
  bool narrow() const { return narrow_; }
  const Yuv420& panorama() const { return panorama_; }
  const Rgb& preview() const { return preview_; }
  double ms_per_frame() const { return frames_read() > 0 ? engine_ms_ / frames_read() : 0.0; }
  // Canvas seam columns (horizontal sweeps) or rows (vertical ones) of the laid strips,
  // with the overlap band [start, end) before each, in panorama coordinates.
  struct Seam {
    int start, end;
  };
  std::vector<Seam> Seams() const;

 private:
  void DrawProgress();
  void Warn(std::int32_t code);
  void WriteDebug();

  int width_, height_;
  std::uint32_t format_;
  CaptureOptions options_;
  std::vector<std::uint8_t> work_;
  ZMOSSWEEPSTITCHER* engine_ = nullptr;
  std::int32_t init_result_ = -1;
  ZMOSIMAGE ui_{};
  std::int32_t ui_rect_[4] = {0, 0, 0, 0};
  std::int32_t angle_ = 0, direction_ = -1, end_code_ = 0, stitch_result_ = -1;
  int kept_ = 0, laid_too_fast_ = 0, coasted_ = 0, detected_at_ = -1;
  bool ended_ = false, finished_ = false, narrow_ = true, warned_[3] = {false, false, false};
  bool preview_failed_ = false;
  double engine_ms_ = 0;
  std::vector<FrameRecord> records_;
  Yuv420 panorama_;
  Rgb preview_;
};

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_CAPTURE_CAPTURE_H_
