// Exposure equalisation across the strips of a sweep. Phones adjust exposure while the user
// pans, so neighbouring strips show the same scene at different brightness and the
// cross-fade leaves bands. Each overlap holds the same scene from both frames: the ratio
// of their mean luma is the step between the two frames, the running product of the steps
// brings every strip to the first frame's exposure, and a short moving average along the
// sweep keeps one unlucky overlap (a moving object, a misread) from standing out.
#include "src/stitch/exposure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "lumivex/platform.h"
#include "src/image/format.h"

namespace lumivex::stitch {
namespace {

// Steps beyond these are not exposure (a person walking through the overlap, a misread).
constexpr double kMinStep = 0.8, kMaxStep = 1.25;
// Strips on each side in the moving average of the log gains.
constexpr std::int32_t kSmoothRadius = 2;
// Lines left out at each cross edge of the first overlap.
constexpr std::int32_t kFirstFrameMargin = 16;

bool HorizontalSweep(std::int32_t direction) {
  return direction == 0 || direction == 1;
}

// Mean luma of a rectangle of plane 0.
double MeanLuma(const ZMOSIMAGE& img, const ZMOSRECT& r) {
  const std::int32_t x0 = std::max(r.lLeft, 0), x1 = std::min(r.lRight, img.lWidth);
  const std::int32_t y0 = std::max(r.lTop, 0), y1 = std::min(r.lBottom, img.lHeight);
  if (x0 >= x1 || y0 >= y1) return 0.0;
  std::uint64_t sum = 0;
  for (std::int32_t y = y0; y < y1; ++y) {
    const std::uint8_t* row = img.pPlane[0] + static_cast<std::ptrdiff_t>(y) * img.lPitch[0];
    std::uint32_t line = 0;
    for (std::int32_t x = x0; x < x1; ++x) line += row[x];
    sum += line;
  }
  return static_cast<double>(sum) / (static_cast<double>(x1 - x0) * (y1 - y0));
}

void ScaleLuma(const ZMOSIMAGE& img, const ZMOSRECT& r, double gain) {
  if (gain == 1.0) return;
  std::array<std::uint8_t, 256> lut{};
  for (int v = 0; v < 256; ++v)
    lut[v] = static_cast<std::uint8_t>(std::clamp(std::lround(v * gain), 0L, 255L));
  const std::int32_t x0 = std::max(r.lLeft, 0), x1 = std::min(r.lRight, img.lWidth);
  const std::int32_t y0 = std::max(r.lTop, 0), y1 = std::min(r.lBottom, img.lHeight);
  std::uint8_t* const plane = img.pPlane[0];
  const std::ptrdiff_t pitch = img.lPitch[0];
  for (std::int32_t y = y0; y < y1; ++y) {
    std::uint8_t* row = plane + y * pitch;
    for (std::int32_t x = x0; x < x1; ++x) row[x] = lut[row[x]];
  }
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
  const bool horizontal = HorizontalSweep(s.lDirection);
  const bool forward = s.lDirection == 0 || s.lDirection == 2;
  // Where a frame's strip begins along the sweep: the far edge of its overlap.
  auto seam_of = [&](const ZMOSRECT& overlap) {
    return forward ? (horizontal ? overlap.lRight : overlap.lBottom)
                   : (horizontal ? overlap.lLeft : overlap.lTop);
  };
  auto* gains =
      static_cast<double*>(MMemAlloc(s.hMemMgr, n * static_cast<std::int32_t>(sizeof(double))));
  if (gains == nullptr) return ZMOS_ERR_NO_MEMORY;

  // Log gain of each strip against the first frame.
  gains[0] = 0.0;
  for (std::int32_t i = 1; i < n; ++i) {
    // Only lines both frames laid: inside the previous frame's cross extent (the first
    // frame's is not recorded; a margin covers the hand's wander there).
    const ZMOSRECT& ov = s.pOverlapRects[i];
    const ZMOSRECT& prev = s.pOverlapRects[i - 1];
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
    const double before = MeanLuma(canvas, in_canvas);
    const double after = MeanLuma(*s.pStrips, in_strips);
    double step = before > 8.0 && after > 8.0 ? before / after : 1.0;
    if (step < kMinStep || step > kMaxStep) step = 1.0;
    gains[i] = gains[i - 1] + std::log(step);
  }
  // The moving average, then each strip's region scaled: from its seam to the next one.
  double reference = 0.0;
  for (std::int32_t i = 0; i < n; ++i) {
    double total = 0.0;
    std::int32_t count = 0;
    for (std::int32_t j = std::max(i - kSmoothRadius, 0); j <= std::min(i + kSmoothRadius, n - 1);
         ++j, ++count)
      total += gains[j];
    const double smoothed = total / count;
    // The first strip is the reference; its smoothed value shifts every other strip.
    if (i == 0) {
      reference = smoothed;
      continue;
    }
    const double gain = std::exp(smoothed - reference);
    const ZMOSRECT& ov = s.pOverlapRects[i];
    const std::int32_t seam = seam_of(ov);
    const std::int32_t end = i + 1 < n ? seam_of(s.pOverlapRects[i + 1]) : s.lContentEnd;
    const std::int32_t a0 = std::min(seam, end), a1 = std::max(seam, end);
    const ZMOSRECT region =
        horizontal ? ZMOSRECT{a0, ov.lTop, a1, ov.lBottom} : ZMOSRECT{ov.lLeft, a0, ov.lRight, a1};
    ScaleLuma(canvas, region, gain);
    ScaleLuma(*s.pStrips, s.pStripRects[i], gain);
  }
  MMemFree(s.hMemMgr, gains);
  return ZMOS_OK;
}

}  // namespace lumivex::stitch
