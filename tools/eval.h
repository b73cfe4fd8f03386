// Scoring simulated sweeps against their ground truth.
#ifndef LUMIVEX_TOOLS_EVAL_H_
#define LUMIVEX_TOOLS_EVAL_H_

#include <string>
#include <vector>

#include "tools/capture.h"
#include "tools/simulate.h"

namespace lumivex::tools {

struct Score {
  std::string photo, name;
  int width = 0, height = 0, direction = 0;
  bool complete = false;
  std::int32_t end_code = 0;  // the engine failure that ended the capture, if any
  int frames = 0, kept = 0;
  bool narrow = true;
  int pano_width = 0, pano_height = 0;
  double track_mean = 0, track_max = 0;  // |reported - true travel|, pixels
  double psnr = 0;                       // panorama luma against the photograph
  double ms_per_frame = 0;
  // Travel along the sweep, truth and the engine's report, frame by frame after detection.
  std::vector<double> truth, estimate;
};

// Simulates, captures and scores one sweep.
Score RunScenario(const Rgb& photo, const std::string& photo_name, const std::string& name,
                  const SimOptions& options);

// Markdown with one SVG chart a scenario (written beside it); JSON for machines.
bool WriteReport(const std::vector<Score>& scores, const std::string& dir, std::string* error);
std::string ToJson(const std::vector<Score>& scores);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_EVAL_H_
