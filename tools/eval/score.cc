#include "tools/eval/score.h"

#include <cstdio>

#include "tools/capture/capture.h"

namespace lumivex::tools {

std::string BadCompletion(const Score& s) {
  if (!s.complete) return "";
  char text[96] = "";
  if (s.camera) {
    if (s.pairs > 0 && s.pairs_within1 < 0.9)
      std::snprintf(text, sizeof(text), "%.0f %% of strip pairs off by more than 1 px",
                    100 * (1 - s.pairs_within1));
    else if (s.pair_err_max > 4)
      std::snprintf(text, sizeof(text), "a strip pair off by %.0f px", s.pair_err_max);
    else if (s.seam_mis_mean > 2)
      std::snprintf(text, sizeof(text), "seams misaligned by %.1f px on average", s.seam_mis_mean);
    else if (s.psnr > 0 && s.psnr < 20)
      std::snprintf(text, sizeof(text), "PSNR %.1f dB against the truth", s.psnr);
  } else {
    if (s.track_max > 20)
      std::snprintf(text, sizeof(text), "tracking off by %.0f px", s.track_max);
    else if (s.psnr > 0 && s.psnr < 20)
      std::snprintf(text, sizeof(text), "PSNR %.1f dB against the photograph", s.psnr);
    else if (s.seam_step > 5)
      std::snprintf(text, sizeof(text), "a brightness step of %.0f %% at a seam", s.seam_step);
  }
  return text;
}

void RecordOutcome(const Capture& cap, Score* s) {
  s->complete = cap.complete();
  s->end_code = cap.end_code();
  s->frames = cap.frames_read();
  s->kept = cap.frames_kept();
  s->narrow = cap.narrow();
  s->pano_width = cap.panorama().width();
  s->pano_height = cap.panorama().height();
  s->ms_per_frame = cap.ms_per_frame();
}

std::string OutcomeOf(const Score& s) {
  if (s.photo_too_small) {
    char text[64];
    std::snprintf(text, sizeof(text), "photo too small (x%.1f)", s.photo_scale);
    return text;
  }
  if (s.complete) return BadCompletion(s).empty() ? "complete" : "complete but bad";
  if (s.end_code == ZMOS_ERR_SWEEP_WRONG) return "0x7001 gone wrong";
  if (s.end_code == ZMOS_ERR_TOO_FAST) return "0x7003 too fast";
  if (s.end_code != 0)
    return std::to_string(s.end_code) + " " + ZMOS_ResultName(s.end_code, ZMOS_RESULTS_CAPTURE);
  return "incomplete";
}

}  // namespace lumivex::tools
