// Sweeps cut out of a flat photograph along a known path: a window slid in whole pixels,
// with jitter, drift, sensor noise, an exposure ramp, too-fast or backward stretches.
// Vertical sweeps run over the photograph turned on its side, through the same scenery.
// Exact and quick, for tests of the engine's rules; tools/sim/camera_sim.h is the camera.
// Deterministic for a given seed.
#ifndef LUMIVEX_TOOLS_SIM_SLIDE_SIM_H_
#define LUMIVEX_TOOLS_SIM_SLIDE_SIM_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/io/picture.h"

namespace lumivex::tools {

struct SimOptions {
  int width = 640;
  int height = 480;
  int direction = 0;     // engine codes: 0 right, 1 left, 2 down, 3 up
  double speed = 0;      // pixels a frame along the sweep; 0: width / 40
  double jitter = 0;     // hand wander across the sweep, pixels (random walk, bounded)
  double drift = 0;      // steady motion across the sweep, pixels a frame
  double noise = 0;      // sensor noise, standard deviation in luma steps
  double exposure = 0;   // brightness change over the whole sweep (0.1 = +10 %)
  int too_fast_at = -1;  // frame that jumps three strips at once
  int backward_at = -1;  // first frame of a backward stretch
  int backward_frames = 8;
  bool steady = false;  // every step exactly `speed` (else it varies by +-15 %)
  double plain = 0;     // a plain stretch mid-sweep, this many frame widths long
  int frames = 0;       // 0: as many as a full 180-degree sweep needs, with a margin
  std::uint64_t seed = 1;
  std::uint32_t format = ZMOS_FORMAT_NV21;
  // The most the photograph may be enlarged to hold the path; 0: any. Beyond it the
  // simulator builds nothing and reports the photograph as too small.
  double max_scale = 0;
};

class SlideSim {
 public:
  // The photograph is scaled up when the path would not fit in it; luma(), cb() and cr()
  // and the positions are of the photograph as swept (turned for vertical sweeps).
  SlideSim(const Rgb& photo, const SimOptions& options);
  int frames() const { return static_cast<int>(path_.size()); }
  // Top-left corner of frame k in the (scaled) photograph.
  std::pair<int, int> Position(int k) const { return path_[k]; }
  Yuv420 Frame(int k) const;
  // Luma of the (scaled) photograph, for scoring.
  const std::vector<std::uint8_t>& luma() const { return y_; }
  const std::vector<std::uint8_t>& cb() const { return u_; }
  const std::vector<std::uint8_t>& cr() const { return v_; }
  int photo_width() const { return w_; }
  int photo_height() const { return h_; }
  // How much the photograph was (or would have to be) enlarged to hold the path.
  double scale() const { return scale_; }
  bool too_small() const { return o_.max_scale > 0 && scale_ > o_.max_scale; }
  bool WriteTruth(const std::string& path, std::string* error) const;

 private:
  // Steps along and across the sweep and their extremes.
  struct Steps {
    std::vector<std::pair<double, double>> at;
    double min_a = 0, max_a = 0, min_c = 0, max_c = 0;
  };
  Steps PlanSteps(double strip) const;
  void Scale(const Rgb& photo);
  void PaintWall();

  SimOptions o_;
  int w_ = 0, h_ = 0;
  double scale_ = 1;
  std::vector<std::uint8_t> y_, u_, v_;
  std::vector<std::pair<int, int>> path_;
};

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_SIM_SLIDE_SIM_H_
