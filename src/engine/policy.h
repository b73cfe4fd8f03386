// What separates the two profiles of the engine, in one place. The exact profile is every
// decision as the engine has always made it; the quality profile corrects the decisions
// that spoil real panoramas. Kernels never look at this: only the few decision points
// named here, each told the policy of the engine that runs them.
#ifndef LUMIVEX_SRC_ENGINE_POLICY_H_
#define LUMIVEX_SRC_ENGINE_POLICY_H_

#include <cstdint>

namespace lumivex {

struct Policy {
  // The reference tracker matches its cross-axis band moved by any sweep-axis motion,
  // not only from 11 pixels on (small steps otherwise read new content as cross travel).
  bool compensate_small_shifts = false;
  // Direction detection gives up for lack of texture only when the vertical band that
  // would measure an upward or downward sweep is flat too, not the horizontal ones alone.
  bool detect_on_either_axis = false;
  // The overlap kept for blending is cut keeping chroma pairs in phase, so an odd cut
  // (half of 854, 1366 ...) never blends U with V.
  bool keep_overlap_chroma_phase = false;
  // A frame that travelled farther than a strip is kept with its travel cut to one strip,
  // and tracking restarts from it: a moment of haste skips some scenery instead of
  // leaving every later frame measured (and predicted) against a frame left far behind.
  bool keep_too_fast_frames = false;
  // Where the sweep axis is too plain to measure (sky, calm water), the recent speed is
  // carried for up to a second's worth of frames instead of reading the camera as still.
  bool coast_through_plain_stretches = false;
  // The exposure steps between strips (measured over pixels neither frame clipped) are
  // taken out before blending, keeping the camera's slow trend, black and clipped white:
  // a phone that adjusts exposure while panning leaves no bands.
  bool equalize_exposure = false;
  // A finishing pass short of memory fails the stitch with 4, instead of leaving the rest
  // of the seams unblended in a panorama reported as good.
  bool report_unblended_seams = false;
  // The reference tracker matches a frame's projections brought to the reference frame's
  // exposure: a phone's exposure loop scales one frame against the other, and a scaled
  // projection with any brightness slope matches best a few pixels toward its bright side.
  bool match_across_exposure = false;
  // A kept frame is laid where its pixels around the seam best match the previous strip
  // (a few pixels' search around the trackers' travel), not where the trackers put it.
  bool refine_travel_at_seam = false;

  // Smallest sweep-axis shift for which the cross-axis projection is moved.
  constexpr std::int32_t MinCompensatedShift() const { return compensate_small_shifts ? 1 : 11; }
};

inline constexpr Policy kExactPolicy{};

// The quality profile's corrections, each once: its switch, a short name and what it does
// for the user. The quality policy is every switch on; `lumivex version` and the help
// print this list, and a test keeps it in step with Policy's switches.
struct Correction {
  bool Policy::*flag;
  const char* name;
  const char* summary;
};
inline constexpr Correction kCorrections[] = {
    {&Policy::compensate_small_shifts, "small-steps",
     "small steps along the sweep are not read as drift across it"},
    {&Policy::detect_on_either_axis, "start-on-sky",
     "a sweep that starts on sky finds its direction"},
    {&Policy::keep_overlap_chroma_phase, "odd-overlap-chroma",
     "no colour fringes at seams when half the frame width is odd"},
    {&Policy::keep_too_fast_frames, "too-fast-recovery",
     "a too-fast moment skips scenery instead of ending the sweep"},
    {&Policy::coast_through_plain_stretches, "plain-stretches",
     "travel is carried through sky and calm water"},
    {&Policy::equalize_exposure, "exposure-steps",
     "exposure steps between strips are taken out; clipped white stays white"},
    {&Policy::report_unblended_seams, "report-unblended",
     "a stitch short of memory fails instead of leaving seams unblended"},
    {&Policy::match_across_exposure, "track-across-exposure",
     "frames are tracked at one exposure while the camera's changes"},
    {&Policy::refine_travel_at_seam, "seam-refinement",
     "each kept frame is placed where it best meets the previous strip"},
};

inline constexpr Policy kQualityPolicy = [] {
  Policy p;
  for (const Correction& c : kCorrections) p.*c.flag = true;
  return p;
}();

}  // namespace lumivex

#endif  // LUMIVEX_SRC_ENGINE_POLICY_H_
