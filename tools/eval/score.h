// The scores of evaluated sweeps, and what they say.
#ifndef LUMIVEX_TOOLS_EVAL_SCORE_H_
#define LUMIVEX_TOOLS_EVAL_SCORE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "lumivex/lumivex.h"

namespace lumivex::tools {

// One pair of consecutive laid strips of a camera-true sweep: the engine's travel between
// them, the simulator's at the seam, and the best whole-pixel translation of the frames.
struct PairRecord {
  int from = 0, to = 0;
  double engine_x = 0, engine_y = 0, truth_x = 0, truth_y = 0;
  int image_x = 0, image_y = 0;
};

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
  double drift = 0;      // largest brightness departure from the photograph over 64-pixel
                         // blocks, in % of full scale
  double seam_step = 0;  // largest brightness change between 16-line slices along the sweep, %
  double ms_per_frame = 0;
  double photo_scale = 1;        // how much the photograph had to be enlarged for this sweep
  bool photo_too_small = false;  // more than twice: not simulated
  // The engine's reported travel minus the true one, along and across the sweep, pixels,
  // frame by frame from the detecting frame (`first_frame`) on.
  std::vector<double> error_along, error_across;
  int first_frame = 0;
  std::vector<std::uint8_t> thumbnail;  // the panorama, small, as JPEG (empty without one)

  // Camera-true sweeps (`camera` set) are scored against the simulator's truth instead.
  bool camera = false;
  bool codec = false;        // the frames went through H.264
  std::string light;         // day, dusk, night
  int pairs = 0;             // consecutive laid strips whose seam has detail
  int plain_pairs = 0;       // ... and those on sky or a plain wall (not measurable)
  double pairs_within1 = 0;  // share whose travel is within 1 px of the truth, both axes
  double pairs_exact = 0;    // ... within half a pixel
  double pair_err_max = 0;   // the worst, pixels
  // The same against the best whole-pixel translation of the frames' central halves (as a
  // real clip is judged, without a simulator's truth).
  double image_within1 = 0, image_exact = 0, image_err_max = 0;
  double seam_mis_mean = 0, seam_mis_max = 0;  // seams measured against the truth, pixels
  int seams_measured = 0;
  double mean_luma = 0;      // of the panorama
  double clipped = 0;        // share of the panorama's pixels at white (>= 250)
  double exposure_step = 0;  // the largest brightness step at a seam beyond the truth's, %
  double ev_range = 0;       // how far the camera's exposure moved over the sweep, EV
  std::string verdict;       // "good", or what makes a complete capture bad
  std::vector<PairRecord> pair_records;  // the measured pairs
};

class Capture;

// What a finished capture did, into *s: completion, end code, frames read and kept, the
// panorama's size and the engine's time a frame.
void RecordOutcome(const Capture& cap, Score* s);

// A capture that completed but whose panorama is not fit to show: why, or empty.
std::string BadCompletion(const Score& s);

// "complete", "complete but bad", the failure that ended the capture, "incomplete", or
// that the photograph was too small for the scenario.
std::string OutcomeOf(const Score& score);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_EVAL_SCORE_H_
