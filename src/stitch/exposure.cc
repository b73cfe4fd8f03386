// Exposure steps across the strips of a sweep. A phone's exposure loop moves while the
// user pans, so neighbouring strips can show the same scene at different brightness and
// the cross-fade leaves a band. Each overlap holds the same scene from both frames: the
// ratio of their luma, over pixels neither frame clipped, is the step between them. The
// camera's slow drift (darker toward the sun, brighter in shade) is what the scene looks
// like to the user and stays; only the steps are taken out: each strip's level is moved
// to the smoothed course of the levels around it. The gains are applied through a curve
// that keeps black black and clipped white white.
#include "src/stitch/exposure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "lumivex/platform.h"
#include "src/image/format.h"
#include "src/platform/direction.h"

namespace lumivex::stitch {
namespace {

// Steps beyond these are not exposure (a person walking through the overlap, a misread).
constexpr double kMinStep = 0.8, kMaxStep = 1.25;
// Luma at or above which a pixel may be clipped, and below which noise rules it.
constexpr int kClipped = 250, kDark = 12;
// A step is trusted when this share of the overlap's pixel pairs is usable.
constexpr double kTrustedShare = 0.25;
// The camera's course: each seam's step clamped to a few times the typical step (a
// creep passes, a jump does not), plus what the clamps held back brought in slowly, over
// this many frame sizes (across the sweep) along it.
constexpr double kTrendFrames = 2.0;
// A seam step is a jump beyond this many typical steps, and beyond this much at least.
constexpr double kJumpSteps = 3.0, kMinJump = 0.005;
// Above this level a darkening curve bends up so that 255 stays 255: only the last few
// levels, so that bright parts the camera did not clip are corrected like the rest.
constexpr int kKnee = 240;

struct Sums {
  double a = 0, b = 0;
  std::int64_t used = 0, all = 0;
};

// Luma of the same scene in two planes (canvas and overlap strip), over pixels neither
// has clipped nor lost in the dark.
Sums PairSums(const ZMOSIMAGE& a, const ZMOSRECT& ra, const ZMOSIMAGE& b, const ZMOSRECT& rb) {
  Sums s;
  const std::int32_t w = std::min(ra.lRight - ra.lLeft, rb.lRight - rb.lLeft);
  const std::int32_t h = std::min(ra.lBottom - ra.lTop, rb.lBottom - rb.lTop);
  if (w <= 0 || h <= 0 || ra.lLeft < 0 || ra.lTop < 0 || rb.lLeft < 0 || rb.lTop < 0 ||
      ra.lLeft + w > a.lWidth || ra.lTop + h > a.lHeight || rb.lLeft + w > b.lWidth ||
      rb.lTop + h > b.lHeight)
    return s;
  std::uint64_t sa = 0, sb = 0;
  for (std::int32_t y = 0; y < h; ++y) {
    const std::uint8_t* pa =
        a.pPlane[0] + static_cast<std::ptrdiff_t>(ra.lTop + y) * a.lPitch[0] + ra.lLeft;
    const std::uint8_t* pb =
        b.pPlane[0] + static_cast<std::ptrdiff_t>(rb.lTop + y) * b.lPitch[0] + rb.lLeft;
    for (std::int32_t x = 0; x < w; ++x) {
      const int va = pa[x], vb = pb[x];
      if (va >= kClipped || vb >= kClipped || va < kDark || vb < kDark) continue;
      sa += static_cast<std::uint32_t>(va);
      sb += static_cast<std::uint32_t>(vb);
      ++s.used;
    }
  }
  s.a = static_cast<double>(sa);
  s.b = static_cast<double>(sb);
  s.all = std::int64_t{w} * h;
  return s;
}

// The gain `g` as a curve over 0..255: g times the value up to the knee; above it,
// darkening bends smoothly up so that 255 stays 255 (clipped white never turns grey), and
// brightening saturates at 255. 0 stays 0 either way.
std::array<std::uint8_t, 256> GainCurve(double g) {
  std::array<std::uint8_t, 256> lut{};
  for (int v = 0; v < 256; ++v) {
    double out = v * g;
    if (g < 1 && v > kKnee) {
      // Hermite from (knee, g * knee) with slope g to (255, 255) with slope 1.
      const double t = static_cast<double>(v - kKnee) / (255 - kKnee), span = 255 - kKnee;
      const double p0 = g * kKnee, p1 = 255, m0 = g * span, m1 = span;
      const double t2 = t * t, t3 = t2 * t;
      out = (2 * t3 - 3 * t2 + 1) * p0 + (t3 - 2 * t2 + t) * m0 + (-2 * t3 + 3 * t2) * p1 +
            (t3 - t2) * m1;
    }
    lut[static_cast<std::size_t>(v)] =
        static_cast<std::uint8_t>(std::clamp(std::lround(out), 0L, 255L));
  }
  return lut;
}

void ApplyCurve(const ZMOSIMAGE& img, const ZMOSRECT& r, const std::array<std::uint8_t, 256>& lut) {
  const std::int32_t x0 = std::max(r.lLeft, 0), x1 = std::min(r.lRight, img.lWidth);
  const std::int32_t y0 = std::max(r.lTop, 0), y1 = std::min(r.lBottom, img.lHeight);
  for (std::int32_t y = y0; y < y1; ++y) {
    std::uint8_t* row = img.pPlane[0] + static_cast<std::ptrdiff_t>(y) * img.lPitch[0];
    for (std::int32_t x = x0; x < x1; ++x) row[x] = lut[row[x]];
  }
}

// The sweep's orientation as the pass needs it.
struct SweepAxes {
  bool horizontal, forward;
  // Where a frame's strip begins along the sweep: the far edge of its overlap.
  std::int32_t SeamOf(const ZMOSRECT& overlap) const {
    return forward ? (horizontal ? overlap.lRight : overlap.lBottom)
                   : (horizontal ? overlap.lLeft : overlap.lTop);
  }
};

// Each strip's level (log gain to the first frame's exposure) and where its seam lies,
// from the luma ratio in its overlap with the canvas; returns how many steps were trusted.
std::int32_t MeasureLevels(const ZMOSDIRECTSTITCHER& s, const SweepAxes& ax, double* level,
                           double* position) {
  const bool horizontal = ax.horizontal;
  level[0] = 0.0;
  position[0] = 0.0;
  std::int32_t trusted = 0;
  for (std::int32_t i = 1; i < s.lCount; ++i) {
    // Only lines both frames laid: inside the previous frame's cross extent (the first
    // frame's is not recorded; a margin covers the hand's wander there).
    const ZMOSRECT& ov = s.pOverlapRects[i];
    const ZMOSRECT& prev = s.pOverlapRects[i - 1];
    constexpr std::int32_t kFirstFrameMargin = 16;
    std::int32_t c0 = horizontal ? ov.lTop : ov.lLeft, c1 = horizontal ? ov.lBottom : ov.lRight;
    const std::int32_t skip0 =
        i > 1 ? std::max((horizontal ? prev.lTop : prev.lLeft) - c0, 0) : kFirstFrameMargin;
    const std::int32_t skip1 =
        i > 1 ? std::max(c1 - (horizontal ? prev.lBottom : prev.lRight), 0) : kFirstFrameMargin;
    c0 += skip0;
    c1 -= skip1;
    const ZMOSRECT& st = s.pStripRects[i];
    const ZMOSRECT in_canvas =
        horizontal ? ZMOSRECT{ov.lLeft, c0, ov.lRight, c1} : ZMOSRECT{c0, ov.lTop, c1, ov.lBottom};
    const ZMOSRECT in_strips =
        horizontal ? ZMOSRECT{st.lLeft, st.lTop + skip0, st.lRight, st.lBottom - skip1}
                   : ZMOSRECT{st.lLeft + skip0, st.lTop, st.lRight - skip1, st.lBottom};
    const Sums sums = PairSums(*s.pCanvas, in_canvas, *s.pStrips, in_strips);
    double step = 1.0;
    if (sums.used > 0 && sums.used >= kTrustedShare * static_cast<double>(sums.all) && sums.b > 0) {
      step = sums.a / sums.b;
      if (step < kMinStep || step > kMaxStep) step = 1.0;
      ++trusted;
    }
    level[i] = level[i - 1] + std::log(step);
    position[i] = static_cast<double>(ax.SeamOf(ov));
  }
  return trusted;
}

// What the clamps hold back, strip by strip: the steps beyond a few typical ones (the
// median of their sizes), added up.
void HeldBackJumps(const double* level, std::int32_t n, double* held) {
  for (std::int32_t i = 1; i < n; ++i) held[i - 1] = std::abs(level[i] - level[i - 1]);
  std::nth_element(held, held + (n - 1) / 2, held + (n - 1));
  const double jump = std::max(kMinJump, kJumpSteps * held[(n - 1) / 2]);
  held[0] = 0;
  for (std::int32_t i = 1; i < n; ++i) {
    const double step = level[i] - level[i - 1];
    held[i] = held[i - 1] + step - std::clamp(step, -jump, jump);
  }
}

// The held-back jumps brought in slowly around strip i: a straight line through them,
// weighted by distance along the sweep (a line, not a mean, so that the course stays
// whole up to the ends of the sweep).
double BroughtIn(const double* position, const double* held, std::int32_t n, std::int32_t i,
                 double sigma) {
  double s0 = 0, s1 = 0, s2 = 0, t0 = 0, t1 = 0;
  for (std::int32_t j = 0; j < n; ++j) {
    const double d = (position[j] - position[i]) / sigma;
    if (d > 3 || d < -3) continue;
    const double w = std::exp(-0.5 * d * d);
    s0 += w;
    s1 += w * d;
    s2 += w * d * d;
    t0 += w * held[j];
    t1 += w * d * held[j];
  }
  const double det = s0 * s2 - s1 * s1;
  return det > 1e-6 * s0 * s0 ? (s2 * t0 - s1 * t1) / det : t0 / s0;
}

// Strip i's gain on its region of the canvas (from its seam to the next one, across the
// lines it was laid on; the whole canvas across for the first) and on its overlap strip.
void ApplyStripGain(const ZMOSDIRECTSTITCHER& s, const SweepAxes& ax, std::int32_t i, double gain) {
  const ZMOSIMAGE& canvas = *s.pCanvas;
  const bool horizontal = ax.horizontal;
  const auto curve = GainCurve(gain);
  const ZMOSRECT& ov = s.pOverlapRects[i];
  const std::int32_t along_size = horizontal ? canvas.lWidth : canvas.lHeight;
  const std::int32_t seam = i > 0 ? ax.SeamOf(ov) : (ax.forward ? 0 : along_size);
  const std::int32_t end = i + 1 < s.lCount ? ax.SeamOf(s.pOverlapRects[i + 1]) : s.lContentEnd;
  const std::int32_t a0 = std::min(seam, end), a1 = std::max(seam, end);
  const std::int32_t c0 = i > 0 ? (horizontal ? ov.lTop : ov.lLeft) : 0;
  const std::int32_t c1 =
      i > 0 ? (horizontal ? ov.lBottom : ov.lRight) : (horizontal ? canvas.lHeight : canvas.lWidth);
  const ZMOSRECT region = horizontal ? ZMOSRECT{a0, c0, a1, c1} : ZMOSRECT{c0, a0, c1, a1};
  ApplyCurve(canvas, region, curve);
  if (i > 0) ApplyCurve(*s.pStrips, s.pStripRects[i], curve);
}

}  // namespace

std::int32_t EqualizeExposure(ZMOSDIRECTSTITCHER& s) {
  const std::int32_t n = s.lCount;
  if (s.pCanvas == nullptr || s.pStrips == nullptr || s.pOverlapRects == nullptr || n < 2)
    return ZMOS_OK;
  const ZMOSIMAGE& canvas = *s.pCanvas;
  const auto info = image::LookupFormat(canvas.dwFormat);
  // Plane 0 must be one luma byte a pixel.
  if (!info || (info->family != image::Family::kPlanar &&
                info->family != image::Family::kSemiPlanar && info->family != image::Family::kGrey))
    return ZMOS_OK;
  const SweepAxes ax{lumivex::IsHorizontal(s.lDirection), lumivex::IsForward(s.lDirection)};
  // Per strip: its level, where it lies, and what the clamps held back.
  auto* level =
      static_cast<double*>(MMemAlloc(s.hMemMgr, 3 * n * static_cast<std::int32_t>(sizeof(double))));
  if (level == nullptr) return ZMOS_ERR_NO_MEMORY;
  double* position = level + n;
  double* held = level + 2 * n;
  // Too little to go on: leave the sweep as the camera exposed it.
  if (2 * MeasureLevels(s, ax, level, position) < n - 1) {
    MMemFree(s.hMemMgr, level);
    return ZMOS_OK;
  }
  position[0] = 2 * position[1] - (n > 2 ? position[2] : position[1]);
  HeldBackJumps(level, n, held);
  // The canvas is as wide across the sweep as a frame.
  const double sigma =
      std::max(8.0, kTrendFrames * (ax.horizontal ? canvas.lHeight : canvas.lWidth));
  for (std::int32_t i = 0; i < n; ++i) {
    // The strip keeps its level less the jumps not yet brought in.
    const double gain = std::exp(held[i] - BroughtIn(position, held, n, i, sigma));
    if (std::abs(gain - 1) < 0.004) continue;  // under half a level at mid-grey
    ApplyStripGain(s, ax, i, gain);
  }
  MMemFree(s.hMemMgr, level);
  return ZMOS_OK;
}

}  // namespace lumivex::stitch
