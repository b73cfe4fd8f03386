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
  std::int32_t profile = ZMOS_PROFILE_EXACT;
  bool complete = false;
  std::int32_t end_code = 0;  // the engine failure that ended the capture, if any
  int frames = 0, kept = 0;
  bool narrow = true;
  int pano_width = 0, pano_height = 0;
  double track_mean = 0, track_max = 0;  // |reported - true travel|, pixels
  double psnr = 0;                       // panorama luma against the photograph
  double chroma_psnr = 0;                // ... its chroma, against the photograph's
  double drift = 0;      // largest brightness departure from the photograph, 64-pixel blocks, %
  double seam_step = 0;  // largest brightness change between 16-line slices along the sweep, %
  double ms_per_frame = 0;
  double photo_scale = 1;        // how much the photograph had to be enlarged for this sweep
  bool photo_too_small = false;  // more than twice: not simulated
  // The engine's reported travel minus the true one, along and across the sweep, pixels,
  // frame by frame from the detecting frame (`first_frame`) on.
  std::vector<double> error_along, error_across;
  int first_frame = 0;
  std::vector<std::uint8_t> thumbnail;  // the panorama, small, as JPEG (empty without one)
};

// Photographs are enlarged at most this much to hold a sweep; a scenario that needs more is
// reported as "photo too small" rather than scored on a blurred picture.
inline constexpr double kMaxPhotoScale = 2.0;

// Simulates one sweep, then captures and scores it under each profile.
std::vector<Score> RunScenario(const Rgb& photo, const std::string& photo_name,
                               const std::string& name, const SimOptions& options,
                               const std::vector<std::int32_t>& profiles);

// "complete", "incomplete", the failure that ended the capture, or that the photograph was
// too small for the scenario.
std::string OutcomeOf(const Score& score);

// Markdown with one SVG chart a scenario (written beside it), and report.html holding
// everything in one file (thumbnails, charts, the table) for any browser; JSON for machines.
bool WriteReport(const std::vector<Score>& scores, const std::string& dir, std::string* error);
std::string ToJson(const std::vector<Score>& scores);
// `text` as a JSON string, quotes included (control characters dropped).
std::string JsonQuote(const std::string& text);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_EVAL_H_
