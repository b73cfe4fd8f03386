// Scoring camera-true sweeps: each profile captures the same simulated frames, and each
// capture is measured against the simulator's truth: the travel of every laid pair of
// strips, the alignment of every seam, the panorama against the truth panorama, and how
// faithfully it keeps the camera's exposure.
#ifndef LUMIVEX_TOOLS_EVAL_CAMERA_EVAL_H_
#define LUMIVEX_TOOLS_EVAL_CAMERA_EVAL_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/eval/score.h"
#include "tools/sim/camera_sim.h"

namespace lumivex::tools {

struct CameraCase {
  std::string name;
  CameraSimOptions sim;
  bool codec = false;
};

// Renders the sweep once, feeding each frame to one capture a profile as long as any is
// running; scores each.
std::vector<Score> RunCameraScenario(const Rgb& photo, const std::string& photo_name,
                                     const CameraCase& c,
                                     const std::vector<std::int32_t>& profiles);

// A luma plane to align against another: where `small` lies in `big`, searching shifts
// within `radius` of (x, y) with every `step`-th pixel, by the sum of absolute differences
// after each side's mean is taken out (so exposure does not pull it). Returns the shift's
// mean absolute difference.
struct LumaView {
  const std::uint8_t* data = nullptr;
  int width = 0, height = 0, stride = 0;
  int at(int x, int y) const { return data[static_cast<std::ptrdiff_t>(y) * stride + x]; }
  LumaView Crop(int x, int y, int w, int h) const {
    return LumaView{data + static_cast<std::ptrdiff_t>(y) * stride + x, w, h, stride};
  }
};
double BestShift(const LumaView& small, const LumaView& big, int x, int y, int radius, int step,
                 int* best_x, int* best_y);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_EVAL_CAMERA_EVAL_H_
