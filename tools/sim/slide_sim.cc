#include "tools/sim/slide_sim.h"

#include "tools/sim/rng.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lumivex/lumivex.h"
#include "src/platform/direction.h"

namespace lumivex::tools {
namespace {

std::uint8_t Clamp(double v) {
  return static_cast<std::uint8_t>(std::clamp(std::lround(v), 0L, 255L));
}

}  // namespace

namespace {

// The photograph on its side (rows become columns): vertical sweeps then travel through
// the same land as horizontal ones, not up into a plain sky.
Rgb Turned(const Rgb& photo) {
  Rgb out;
  out.width = photo.height;
  out.height = photo.width;
  out.pixels.resize(photo.pixels.size());
  for (int y = 0; y < photo.height; ++y)
    for (int x = 0; x < photo.width; ++x)
      for (int c = 0; c < 3; ++c)
        out.pixels[(static_cast<std::size_t>(x) * out.width + y) * 3 + c] =
            photo.pixels[(static_cast<std::size_t>(y) * photo.width + x) * 3 + c];
  return out;
}

}  // namespace

// The path in frame steps along and across the sweep, from 0: steady or varied steps,
// the too-fast frame and the backward stretch asked for, the hand's wander and drift.
SlideSim::Steps SlideSim::PlanSteps(double strip) const {
  Rng rng(o_.seed);
  Steps p;
  double along = 0, cross = 0, wander = 0;
  p.at.push_back({0, 0});
  for (int k = 1; k < o_.frames; ++k) {
    double step = o_.steady ? o_.speed : o_.speed * (0.85 + 0.3 * rng.Uniform());
    if (k == o_.too_fast_at) step = 3.0 * strip;
    if (o_.backward_at >= 0 && k >= o_.backward_at && k < o_.backward_at + o_.backward_frames)
      step = -o_.speed;
    along += step;
    if (o_.jitter > 0)
      wander = std::clamp(wander + rng.Normal() * o_.jitter * 0.5, -o_.jitter * 3, o_.jitter * 3);
    cross += o_.drift;
    p.at.push_back({along, cross + wander});
    p.min_a = std::min(p.min_a, along);
    p.max_a = std::max(p.max_a, along);
    p.min_c = std::min(p.min_c, cross + wander);
    p.max_c = std::max(p.max_c, cross + wander);
  }
  return p;
}

// Y, U and V of the photograph at full resolution (bilinear when scaled).
void SlideSim::Scale(const Rgb& photo) {
  w_ = static_cast<int>(std::ceil(photo.width * scale_));
  h_ = static_cast<int>(std::ceil(photo.height * scale_));
  const std::size_t n = static_cast<std::size_t>(w_) * h_;
  y_.resize(n);
  u_.resize(n);
  v_.resize(n);
  for (int y = 0; y < h_; ++y) {
    const double sy = std::min((y + 0.5) / scale_ - 0.5, photo.height - 1.0);
    const int y0 = std::max(0, static_cast<int>(sy)), y1 = std::min(y0 + 1, photo.height - 1);
    const double ty = std::max(0.0, sy - y0);
    for (int x = 0; x < w_; ++x) {
      const double sx = std::min((x + 0.5) / scale_ - 0.5, photo.width - 1.0);
      const int x0 = std::max(0, static_cast<int>(sx)), x1 = std::min(x0 + 1, photo.width - 1);
      const double tx = std::max(0.0, sx - x0);
      double rgb[3];
      for (int c = 0; c < 3; ++c) {
        auto at = [&](int px, int py) {
          return photo.pixels[(static_cast<std::size_t>(py) * photo.width + px) * 3 + c];
        };
        rgb[c] = (at(x0, y0) * (1 - tx) + at(x1, y0) * tx) * (1 - ty) +
                 (at(x0, y1) * (1 - tx) + at(x1, y1) * tx) * ty;
      }
      const std::size_t i = static_cast<std::size_t>(y) * w_ + x;
      y_[i] = Clamp(0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2]);
      u_[i] = Clamp(-0.168736 * rgb[0] - 0.331264 * rgb[1] + 0.5 * rgb[2] + 128);
      v_[i] = Clamp(0.5 * rgb[0] - 0.418688 * rgb[1] - 0.081312 * rgb[2] + 128);
    }
  }
}

// The plain stretch: a wall of one colour across the middle of the path.
void SlideSim::PaintWall() {
  const bool horizontal = o_.direction < 2;
  const auto [x0, y0] = path_.front();
  const auto [x1, y1] = path_.back();
  const int mid = horizontal ? (x0 + x1 + o_.width) / 2 : (y0 + y1 + o_.height) / 2;
  const int half = static_cast<int>(o_.plain * (horizontal ? o_.width : o_.height) / 2);
  for (int y = 0; y < h_; ++y)
    for (int x = 0; x < w_; ++x) {
      const int a = horizontal ? x : y;
      if (a < mid - half || a >= mid + half) continue;
      const std::size_t i = static_cast<std::size_t>(y) * w_ + x;
      y_[i] = 170, u_[i] = 120, v_[i] = 136;
    }
}

SlideSim::SlideSim(const Rgb& original, const SimOptions& options) : o_(options) {
  const Rgb turned = o_.direction < 2 ? Rgb{} : Turned(original);
  const Rgb& photo = o_.direction < 2 ? original : turned;
  const int fw = o_.width, fh = o_.height;
  const bool horizontal = o_.direction < 2;
  if (o_.speed <= 0) o_.speed = std::max(2.0, fw / 40.0);
  // A 180-degree canvas is three frame widths long (also for vertical sweeps).
  const double along_needed = 3.0 * fw - (horizontal ? fw : fh) + fw / 32.0 + 12 * o_.speed;
  if (o_.frames <= 0) o_.frames = static_cast<int>(along_needed / o_.speed) + 12;
  // Three strips at once is too fast for any sweep.
  ZMOSSWEEPLAYOUT layout{};
  ZMOS_GetSweepLayout(fw, fh & ~1, 180, o_.direction, &layout);
  // The path first, then the photograph scaled to hold it.
  const Steps steps = PlanSteps(layout.lStripWidth);
  const int margin = 8;
  const double need_along = steps.max_a - steps.min_a + (horizontal ? fw : fh) + 2 * margin;
  const double need_cross = steps.max_c - steps.min_c + (horizontal ? fh : fw) + 2 * margin;
  const double have_along = horizontal ? photo.width : photo.height;
  const double have_cross = horizontal ? photo.height : photo.width;
  scale_ = std::max({1.0, need_along / have_along, need_cross / have_cross});
  if (too_small()) return;  // blurred far beyond a camera's frames: not a fair test
  Scale(photo);

  // Start where the path fits: the sweep's starting side, centred across it.
  const int extent_along = horizontal ? w_ : h_, extent_cross = horizontal ? h_ : w_;
  const int frame_along = horizontal ? fw : fh, frame_cross = horizontal ? fh : fw;
  const bool forward = lumivex::IsForward(o_.direction);
  const double start_cross = (extent_cross - frame_cross) / 2.0 - (steps.min_c + steps.max_c) / 2.0;
  for (const auto& [a, c] : steps.at) {
    const int pc = static_cast<int>(std::lround(start_cross + c));
    // The path is centred along the photograph, so sweeps of either sense cover the same
    // part of it.
    const double slack = std::max(0.0, (extent_along - need_along) / 2.0);
    const int pos = static_cast<int>(
        std::lround(forward ? margin + slack + (a - steps.min_a)
                            : extent_along - frame_along - margin - slack - (a - steps.min_a)));
    path_.push_back(horizontal ? std::make_pair(pos, pc) : std::make_pair(pc, pos));
  }
  if (o_.plain > 0) PaintWall();
}

Yuv420 SlideSim::Frame(int k) const {
  const auto [x0, y0] = path_[k];
  Yuv420 f(o_.width, o_.height, o_.format);
  Rng rng(o_.seed * 1000003ull + static_cast<std::uint64_t>(k));
  const double gain = 1.0 + o_.exposure * k / std::max(1, frames() - 1);
  auto clampx = [&](int x) { return std::clamp(x, 0, w_ - 1); };
  auto clampy = [&](int y) { return std::clamp(y, 0, h_ - 1); };
  for (int y = 0; y < o_.height; ++y) {
    const std::size_t row = static_cast<std::size_t>(clampy(y0 + y)) * w_;
    for (int x = 0; x < o_.width; ++x) {
      double v = y_[row + clampx(x0 + x)] * gain;
      if (o_.noise > 0) v += rng.Normal() * o_.noise;
      f.y()[static_cast<std::size_t>(y) * o_.width + x] = Clamp(v);
    }
  }
  const int cw = o_.width / 2, ch = o_.height / 2;
  for (int y = 0; y < ch; ++y) {
    for (int x = 0; x < cw; ++x) {
      int u = 0, v = 0;
      for (int d = 0; d < 4; ++d) {
        const std::size_t i = static_cast<std::size_t>(clampy(y0 + 2 * y + (d >> 1))) * w_ +
                              clampx(x0 + 2 * x + (d & 1));
        u += u_[i];
        v += v_[i];
      }
      const auto uu = static_cast<std::uint8_t>((u + 2) / 4),
                 vv = static_cast<std::uint8_t>((v + 2) / 4);
      if (o_.format == ZMOS_FORMAT_I420) {
        f.chroma()[static_cast<std::size_t>(y) * cw + x] = uu;
        f.chroma()[static_cast<std::size_t>(cw) * ch + static_cast<std::size_t>(y) * cw + x] = vv;
      } else {
        f.chroma()[static_cast<std::size_t>(y) * o_.width + 2 * x] = vv;
        f.chroma()[static_cast<std::size_t>(y) * o_.width + 2 * x + 1] = uu;
      }
    }
  }
  return f;
}

bool SlideSim::WriteTruth(const std::string& path, std::string* error) const {
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) {
    *error = "cannot write " + path;
    return false;
  }
  std::fputs("frame,x,y,travel_x,travel_y\n", f);
  for (int k = 0; k < frames(); ++k)
    std::fprintf(f, "%d,%d,%d,%d,%d\n", k, path_[k].first, path_[k].second,
                 path_[k].first - path_[0].first, path_[k].second - path_[0].second);
  const bool ok = std::fclose(f) == 0;
  if (!ok) *error = "cannot write " + path;
  return ok;
}

}  // namespace lumivex::tools
