// The trackers measure travel from projections over wide bands, where a turning camera's
// perspective, its rolling shutter and any parallax make the travel differ from the one
// at the seam, and where blur and noise can lose it. The seam is where a misplaced strip
// shows, and the canvas still holds the previous frame's strip there until the blends
// run. So the new frame is first slid along the sweep over that strip by the projections
// of a window around the seam (sums across the sweep, so that the place along does not
// depend on the place across, which blurred slanting detail would trade against it), then
// tried at the whole-pixel places next to that, and laid where its pixels agree best,
// when that is clearly better than where the trackers put it.
#include "src/stitch/refine.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

#include "src/image/format.h"
#include "src/kernels/kernels.h"
#include "src/platform/direction.h"

namespace lumivex::stitch {
namespace {

// The frame's window: from this far before the seam to this far after it, along the
// sweep (for the coarse stage; the fine one keeps the 2 * kFineHalf nearest the seam), and
// at most this many lines (or columns) across it.
constexpr std::int32_t kBefore = 16, kAfter = 40, kFineHalf = 16;
constexpr std::int32_t kMaxAcross = 64, kMaxRow = 256;
// Along moves the coarse stage tries: this far each way, or kRefineAlong when the
// trackers are far from the sweep's recent speed.
constexpr std::int32_t kCoarse = 6;

bool OneByteLuma(std::uint32_t format) {
  const auto info = image::LookupFormat(format);
  return info &&
         (info->family == image::Family::kPlanar || info->family == image::Family::kSemiPlanar ||
          info->family == image::Family::kGrey);
}

// The geometry both stages share: a frame pixel (t, r) (along, across) lands on the canvas
// at (t + base_a + da, r + base_c + dc) for the move (da, dc).
struct Layout {
  bool horizontal, forward;
  const std::uint8_t* frame;
  std::ptrdiff_t frame_pitch;
  const std::uint8_t* canvas;
  std::ptrdiff_t canvas_pitch;
  std::int64_t base_a, base_c;
  // Where moves may land: along inside the previous strip [e0, e1), across inside its
  // lines [c0, c1); the frame's own extent.
  std::int64_t e0, e1, c0, c1, frame_along, frame_cross;
  std::int64_t r0, r1;  // the lines across that are compared,
  std::ptrdiff_t step;  // every step-th of them

  const std::uint8_t* FrameAt(std::int64_t t, std::int64_t r) const {
    return horizontal ? frame + r * frame_pitch + t : frame + t * frame_pitch + r;
  }
  const std::uint8_t* CanvasAt(std::int64_t t, std::int64_t r, std::int32_t da,
                               std::int32_t dc) const {
    const std::int64_t a = t + base_a + da, c = r + base_c + dc;
    return horizontal ? canvas + c * canvas_pitch + a : canvas + a * canvas_pitch + c;
  }
  // Frame positions [t0, t1) along whose canvas places stay in the previous strip for
  // every along move in [lo, hi]: from kBefore before the seam to kAfter after it on the
  // side where the previous strip lies (after it on a forward sweep, before on a backward).
  std::pair<std::int64_t, std::int64_t> Window(std::int32_t seam, std::int32_t lo,
                                               std::int32_t hi) const {
    const std::int64_t t0 = forward ? seam - kBefore : seam - kAfter;
    const std::int64_t t1 = forward ? seam + kAfter : seam + kBefore;
    return {std::max({t0, std::int64_t{0}, e0 - base_a - lo}),
            std::min({t1, frame_along - 1, e1 - base_a - hi})};
  }
  std::int32_t Lines() const { return static_cast<std::int32_t>((r1 - r0 + step - 1) / step); }
};

// The coarse place along: the move in [lo, hi] where the first differences of the
// window's projection (a brightness offset between the frames drops out; a gain only
// scales them) match the canvas's best; 0 when it cannot tell.
std::int32_t CoarseAlong(Layout l, std::int32_t seam, std::int32_t lo, std::int32_t hi) {
  // Sums across are cheap: twice the fine stage's lines, for noise.
  l.step = std::max<std::ptrdiff_t>(1, l.step / 2);
  const auto [t0, t1] = l.Window(seam, lo, hi);
  const std::int64_t n = t1 - t0;
  if (n < 8 || lo > hi) return 0;
  std::array<std::uint32_t, kBefore + kAfter> f{};
  std::array<std::uint32_t, kBefore + kAfter + 2 * kRefineAlong> c{};
  const kernels::KernelSet& k = kernels::Active();
  const std::int32_t lines = l.Lines();
  const std::int64_t cn = n + hi - lo;  // the canvas from the first move's place to the last's
  if (l.horizontal) {
    k.column_sums(static_cast<std::int32_t>(n), lines, l.FrameAt(t0, l.r0), l.step * l.frame_pitch,
                  f.data());
    k.column_sums(static_cast<std::int32_t>(cn), lines, l.CanvasAt(t0, l.r0, lo, 0),
                  l.step * l.canvas_pitch, c.data());
  } else {
    k.row_sums(l.FrameAt(t0, l.r0), l.frame_pitch, static_cast<std::int32_t>(n), lines, f.data());
    k.row_sums(l.CanvasAt(t0, l.r0, lo, 0), l.canvas_pitch, static_cast<std::int32_t>(cn), lines,
               c.data());
  }
  // Differences held around 2^30, as the unsigned SAD kernel takes them (sums of at most
  // 2^24 pixels differ by less than 2^24).
  constexpr std::uint32_t kMid = 1u << 30;
  for (std::size_t i = 0; i + 1 < static_cast<std::size_t>(n); ++i) f[i] = kMid + f[i + 1] - f[i];
  for (std::size_t i = 0; i + 1 < static_cast<std::size_t>(cn); ++i) c[i] = kMid + c[i + 1] - c[i];
  std::uint32_t best = UINT32_MAX;
  std::int32_t at = 0;
  // From the estimate outward, so that ties keep the smaller move.
  for (std::int32_t m = 0; m <= 2 * kRefineAlong; ++m) {
    const std::int32_t d = (m & 1) ? (m + 1) / 2 : -(m / 2);
    if (d < lo || d > hi) continue;
    const std::uint32_t sad =
        k.sad_until(f.data(), c.data() + (d - lo), static_cast<std::int32_t>(n - 1), best);
    if (sad < best) {
      best = sad;
      at = d;
    }
  }
  return at;
}

// A place tried by the fine stage and its difference.
struct Place {
  std::int32_t along, across;
  std::uint32_t sad;
};

// From (start, 0) to the best of each place's eight neighbours until none is better,
// within [lo, hi] along and kRefineAcross across.
template <typename Cost>
Place Downhill(Cost& cost, std::int32_t start, std::int32_t lo, std::int32_t hi) {
  Place p{start, 0, cost(start, 0)};
  for (bool moved = true; moved;) {
    moved = false;
    const std::int32_t ca = p.along, cc = p.across;
    for (std::int32_t dc = std::max(cc - 1, -kRefineAcross); dc <= std::min(cc + 1, kRefineAcross);
         ++dc) {
      for (std::int32_t da = std::max(ca - 1, lo); da <= std::min(ca + 1, hi); ++da) {
        const std::uint32_t v = cost(da, dc);
        if (v < p.sad) {
          p = Place{da, dc, v};
          moved = true;
        }
      }
    }
  }
  return p;
}

struct Found {
  std::int32_t along = 0, across = 0;
  std::uint32_t best = UINT32_MAX, start = UINT32_MAX;
  std::uint32_t pixels = 1;
};

// Both stages over the layout's lines: the coarse place along within [lo, hi], then the
// pixels of the window nearest the seam, downhill (to the best of each place's eight
// neighbours until none is better, kRefineAcross at most across) from the coarse place,
// from the trackers' place and from `guess` (the sweep's recent speed, when the trackers
// are far from it): blur leaves broad minima the coarse stage may miss. `start` is the
// trackers' place, when it can be compared.
Found Search(const Layout& l, std::int32_t seam, std::int32_t lo, std::int32_t hi,
             bool estimate_valid, std::int32_t guess) {
  Found found;
  const std::int32_t coarse = CoarseAlong(l, seam, lo, hi);
  // One window for every place tried, the trackers' among them.
  // Plain variables, not a structured binding: the lambda below captures t0.
  const auto window =
      l.Window(seam, std::min(lo, estimate_valid ? 0 : lo), std::max(hi, estimate_valid ? 0 : hi));
  std::int64_t t0 = window.first, t1 = window.second;
  if (t1 - t0 > 2 * kFineHalf) {
    t0 = std::clamp<std::int64_t>(seam - kFineHalf, t0, t1 - 2 * kFineHalf);
    t1 = t0 + 2 * kFineHalf;
  }
  if (t1 - t0 < 8) return found;
  const kernels::KernelSet& k = kernels::Active();
  const std::int32_t lines = l.Lines();
  const auto rows = static_cast<std::int32_t>(l.horizontal ? lines : t1 - t0);
  const auto n = static_cast<std::int32_t>(l.horizontal ? t1 - t0 : lines);
  const std::uint8_t* fp = l.FrameAt(t0, l.r0);
  const std::ptrdiff_t f_step = l.horizontal ? l.step * l.frame_pitch : l.frame_pitch;
  const std::ptrdiff_t c_step = l.horizontal ? l.step * l.canvas_pitch : l.canvas_pitch;
  // Each place is compared with the frame's brightness moved to its own (the two frames'
  // exposures may differ, and a brightness slope makes one offset wrong for the others),
  // measured on every fourth compared line (or every other one).
  static constexpr std::array<std::uint8_t, kMaxRow> kZero{};
  const std::int32_t every = rows >= 32 ? 4 : rows >= 8 ? 2 : 1;
  const std::int32_t sampled = (rows + every - 1) / every;
  const std::int64_t frame_sum =
      k.block_sad(fp, every * f_step, kZero.data(), 0, sampled, n, 0, UINT32_MAX);
  constexpr std::int32_t kW = 2 * kRefineAlong + 1, kH = 2 * kRefineAcross + 1;
  std::array<std::uint32_t, kW * kH> sad;
  sad.fill(UINT32_MAX);
  std::uint32_t limit = UINT32_MAX;
  auto cost = [&](std::int32_t da, std::int32_t dc) {
    std::uint32_t& v = sad[static_cast<std::size_t>((dc + kRefineAcross) * kW + da + kRefineAlong)];
    if (v != UINT32_MAX) return v;
    const std::uint8_t* cp = l.CanvasAt(t0, l.r0, da, dc);
    const std::int64_t canvas_sum =
        k.block_sad(cp, every * c_step, kZero.data(), 0, sampled, n, 0, UINT32_MAX);
    const auto bias = static_cast<std::int32_t>(std::clamp<std::int64_t>(
        (canvas_sum - frame_sum) / (std::int64_t{sampled} * n), -255, 255));
    // A place that cannot beat the best so far may stop early: its partial sum, kept, is
    // already no better than the best.
    v = k.block_sad(fp, f_step, cp, c_step, rows, n, bias, limit);
    return v;
  };
  if (estimate_valid) found.start = limit = cost(0, 0);
  std::array<std::int32_t, 3> starts{coarse};
  std::size_t count = 1;
  if (estimate_valid && coarse != 0) starts[count++] = 0;
  if (guess >= lo && guess <= hi && guess != coarse && guess != 0) starts[count++] = guess;
  for (std::size_t i = 0; i < count; ++i) {
    const Place p = Downhill(cost, starts[i], lo, hi);
    // A partial sum is never below the limit it stopped at, so it never wins here.
    if (p.sad < found.best) {
      found.best = p.sad;
      found.along = p.along;
      found.across = p.across;
    }
    limit = std::min(limit, found.best);
  }
  found.pixels = static_cast<std::uint32_t>(std::int64_t{rows} * n);
  return found;
}

// Where the frame and the previous strip lie for a frame placed at `offset`: the strip's
// extent along and across the sweep, and the frame's lines compared (the middle of the
// frame, inside the previous strip's for every move); false when too few lines remain.
bool LayOut(const ZMOSDIRECTSTITCHER& s, const ZMOSIMAGE& frame, std::int32_t seam,
            std::int32_t strip, const std::int32_t* offset, Layout* out) {
  const ZMOSIMAGE& canvas = *s.pCanvas;
  Layout& l = *out;
  l.horizontal = lumivex::IsHorizontal(s.lDirection);
  l.forward = lumivex::IsForward(s.lDirection);
  const bool horizontal = l.horizontal, forward = l.forward;
  const std::int64_t canvas_along = horizontal ? canvas.lWidth : canvas.lHeight;
  const std::int64_t canvas_cross = horizontal ? canvas.lHeight : canvas.lWidth;
  const std::int64_t p0 = s.lPosition;
  const std::int64_t margin = horizontal ? s.lMarginY : s.lMarginX;
  const std::int32_t along_axis = horizontal ? 0 : 1;
  l.frame = frame.pPlane[0];
  l.frame_pitch = frame.lPitch[0];
  l.canvas = canvas.pPlane[0];
  l.canvas_pitch = canvas.lPitch[0];
  l.frame_along = horizontal ? frame.lWidth : frame.lHeight;
  l.frame_cross = horizontal ? frame.lHeight : frame.lWidth;
  // The previous frame's strip along the sweep (the first frame also lies before its seam).
  l.e0 = forward ? p0 : std::max<std::int64_t>(p0 - strip, 0);
  l.e1 = forward ? std::min<std::int64_t>(p0 + strip, canvas_along) : p0;
  if (s.lCount == 1) (forward ? l.e0 : l.e1) = forward ? 0 : canvas_along;
  // ... and across it.
  l.c0 = margin;
  l.c1 = margin + l.frame_cross;
  if (s.lCount >= 2) {
    const ZMOSRECT& r = s.pOverlapRects[s.lCount - 1];
    l.c0 = horizontal ? r.lTop : r.lLeft;
    l.c1 = horizontal ? r.lBottom : r.lRight;
  }
  l.c0 = std::max<std::int64_t>(l.c0, 0);
  l.c1 = std::min(l.c1, canvas_cross);
  l.base_a = p0 + offset[along_axis] - seam;
  l.base_c = margin + (horizontal ? s.lCrossY : s.lCrossX) + offset[1 - along_axis];
  // Lines across: the middle of the frame, inside the previous strip's for every move.
  l.r0 = std::max(l.frame_cross / 10, l.c0 - l.base_c + kRefineAcross);
  l.r1 = std::min(l.frame_cross - l.frame_cross / 10, l.c1 - l.base_c - kRefineAcross);
  if (l.r1 - l.r0 < 16) return false;
  if (horizontal) {
    l.step = static_cast<std::ptrdiff_t>((l.r1 - l.r0 + kMaxAcross - 1) / kMaxAcross);
  } else {
    // Across a vertical sweep the lines are contiguous: the middle of them, every one.
    const std::int64_t keep = std::min<std::int64_t>(l.r1 - l.r0, kMaxRow);
    l.r0 += (l.r1 - l.r0 - keep) / 2;
    l.r1 = l.r0 + keep;
    l.step = 1;
  }
  return true;
}

}  // namespace

bool RefineTravel(const ZMOSDIRECTSTITCHER& s, const ZMOSIMAGE& frame, std::int32_t seam,
                  std::int32_t strip, std::int32_t* offset, std::int32_t expected) {
  if (offset == nullptr || s.bFirstFrame || s.lCount < 1 || s.pCanvas == nullptr ||
      s.pOverlapRects == nullptr || !lumivex::IsKnownDirection(s.lDirection))
    return false;
  const ZMOSIMAGE& canvas = *s.pCanvas;
  if (canvas.dwFormat != frame.dwFormat || !OneByteLuma(frame.dwFormat) ||
      canvas.pPlane[0] == nullptr || frame.pPlane[0] == nullptr)
    return false;
  Layout l{};
  if (!LayOut(s, frame, seam, strip, offset, &l)) return false;
  const bool forward = l.forward;
  const std::int32_t along_axis = l.horizontal ? 0 : 1;

  // Moves that keep the frame going the sweep's way, no farther than the previous strip
  // reaches (else the canvas would keep a gap).
  const std::int32_t along = offset[along_axis];
  const std::int32_t least =
      forward ? std::max(-kRefineAlong, 1 - along) : std::max(-kRefineAlong, -strip + 2 - along);
  const std::int32_t most =
      forward ? std::min(kRefineAlong, strip - 2 - along) : std::min(kRefineAlong, -1 - along);
  if (least > most) return false;
  // An estimate past the previous strip's reach cannot be compared: any place that can
  // is better.
  const bool estimate_valid = least <= 0 && 0 <= most;
  // Far from the sweep's recent speed the trackers may be far off: the coarse stage looks
  // farther.
  const bool far = expected != kNoExpectation &&
                   std::abs(std::int64_t{along} - expected) >
                       std::max<std::int64_t>(3, std::abs(std::int64_t{expected}) / 4);
  const std::int32_t reach = far ? kRefineAlong : kCoarse;
  const std::int32_t lo = std::max(least, -reach), hi = std::min(most, reach);
  if (lo > hi) return false;
  const std::int32_t guess = far ? static_cast<std::int32_t>(std::clamp<std::int64_t>(
                                       std::int64_t{expected} - along, lo, hi))
                                 : 0;
  const Found found = Search(l, seam, lo, hi, estimate_valid, guess);
  if (found.best == UINT32_MAX) return false;
  // A move must be clearly better than the trackers' place, not noise on a flat minimum.
  if ((found.along == 0 && found.across == 0) ||
      (estimate_valid && found.best + found.start / 32 >= found.start))
    return false;
  offset[along_axis] += found.along;
  offset[1 - along_axis] += found.across;
  return true;
}

}  // namespace lumivex::stitch
