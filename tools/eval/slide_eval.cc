#include "tools/eval/slide_eval.h"

#include <algorithm>
#include <cmath>

#include "tools/capture/capture.h"
#include "tools/io/image_files.h"

namespace lumivex::tools {
namespace {

// Where the panorama lies on the photograph: the best alignment within a few pixels of
// where the sweep's starting edge puts it, by luma.
std::pair<int, int> Align(const Yuv420& pano, const SlideSim& sim, int x, int y) {
  double best = 1e30;
  std::pair<int, int> at{x, y};
  const int w = sim.photo_width(), h = sim.photo_height();
  for (int dy = -6; dy <= 6; ++dy) {
    for (int dx = -6; dx <= 6; ++dx) {
      double err = 0;
      long n = 0;
      for (int r = 0; r < pano.height(); r += 4) {
        for (int c = 0; c < pano.width(); c += 4) {
          const int px = x + dx + c, py = y + dy + r;
          if (px < 0 || py < 0 || px >= w || py >= h) continue;
          const int d = pano.y()[static_cast<std::size_t>(r) * pano.width() + c] -
                        sim.luma()[static_cast<std::size_t>(py) * w + px];
          err += d * d;
          ++n;
        }
      }
      if (n > 0 && err / n < best) best = err / n, at = {x + dx, y + dy};
    }
  }
  return at;
}

double PsnrOf(double squared, long n) {
  if (n == 0) return 0;
  return squared > 0 ? 10 * std::log10(255.0 * 255.0 * n / squared) : 99.0;
}

// Luma and chroma PSNR at the alignment, and the brightness drift.
void ScorePanorama(const Yuv420& pano, const SlideSim& sim, int x, int y, Score* s) {
  const int w = sim.photo_width(), h = sim.photo_height();
  double luma = 0, chroma = 0;
  long nl = 0, nc = 0;
  constexpr int kBlock = 64;
  const int bw = (pano.width() + kBlock - 1) / kBlock, bh = (pano.height() + kBlock - 1) / kBlock;
  std::vector<double> got(static_cast<std::size_t>(bw) * bh), want(got.size()), count(got.size());
  const bool nv21 = pano.format() == ZMOS_FORMAT_NV21;
  for (int r = 0; r < pano.height(); ++r) {
    for (int c = 0; c < pano.width(); ++c) {
      const int px = x + c, py = y + r;
      if (px < 0 || py < 0 || px >= w || py >= h) continue;
      const std::size_t i = static_cast<std::size_t>(py) * w + px;
      const int v = pano.y()[static_cast<std::size_t>(r) * pano.width() + c];
      luma += double(v - sim.luma()[i]) * (v - sim.luma()[i]);
      ++nl;
      const std::size_t b = static_cast<std::size_t>(r / kBlock) * bw + c / kBlock;
      got[b] += v;
      want[b] += sim.luma()[i];
      count[b] += 1;
      // Chroma at the even samples, against the photograph's at the sample's first pixel
      // (the simulator averages four; this is close enough to score phase errors).
      if ((r & 1) || (c & 1) || !nv21) continue;
      const std::uint8_t* vu =
          pano.chroma() + static_cast<std::size_t>(r / 2) * pano.width() + (c & ~1);
      const double dv = vu[0] - sim.cr()[i], du = vu[1] - sim.cb()[i];
      chroma += dv * dv + du * du;
      nc += 2;
    }
  }
  // Brightness against the photograph in slices of 16 lines across the sweep: the largest
  // change from one slice to the next is the step a seam shows.
  const bool horizontal = s->direction < 2;
  const int slices = (horizontal ? pano.width() : pano.height()) / 16;
  double last = 0;
  for (int k = 0; k < slices; ++k) {
    double a = 0, b = 0;
    for (int r = 0; r < (horizontal ? pano.height() : 16); ++r)
      for (int c = 0; c < (horizontal ? 16 : pano.width()); ++c) {
        const int pr = horizontal ? r : 16 * k + r, pc = horizontal ? 16 * k + c : c;
        const int px = x + pc, py = y + pr;
        if (px < 0 || py < 0 || px >= w || py >= h) continue;
        a += pano.y()[static_cast<std::size_t>(pr) * pano.width() + pc];
        b += sim.luma()[static_cast<std::size_t>(py) * w + px];
      }
    const double ratio = b > 0 ? a / b : 1;
    if (k > 0) s->seam_step = std::max(s->seam_step, 100 * std::abs(ratio - last));
    last = ratio;
  }
  s->psnr = PsnrOf(luma, nl);
  s->chroma_psnr = PsnrOf(chroma, nc);
  for (std::size_t b = 0; b < got.size(); ++b)
    // In % of full scale: a ratio would make any change of a near-black block huge.
    if (count[b] > 0)
      s->drift = std::max(s->drift, 100 * std::abs(got[b] - want[b]) / count[b] / 255);
}

Score Capture1(const SlideSim& sim, const std::string& photo_name, const std::string& name,
               const SimOptions& options, std::int32_t profile) {
  Score s;
  s.profile = profile;
  s.photo = photo_name;
  s.name = name;
  s.width = options.width;
  s.height = options.height;
  s.direction = options.direction;
  CaptureOptions capture_options{"", false, false};
  capture_options.profile = profile;
  Capture cap(options.width, options.height, options.format, capture_options);
  for (int k = 0; k < sim.frames(); ++k) {
    Yuv420 frame = sim.Frame(k);
    if (!cap.Feed(frame)) break;
  }
  cap.Finish();
  RecordOutcome(cap, &s);
  if (cap.panorama().width() > 0) {
    std::string ignored;
    ZMOSIMAGE pano = const_cast<Yuv420&>(cap.panorama()).Image();
    EncodeJpeg(Shrink(ImageToRgb(pano), 480), 85, &s.thumbnail, &ignored);
  }

  // Tracking: the engine reports the travel since the detecting frame (y negated).
  const int d = cap.detected_at();
  if (d >= 0) {
    const auto [x0, y0] = sim.Position(d);
    double sum = 0;
    int n = 0;
    s.first_frame = d;
    for (const FrameRecord& r : cap.records()) {
      if (r.index < d || r.result != 0) continue;
      const auto [x, y] = sim.Position(r.index);
      const double ex = r.offset_x - (x - x0), ey = -r.offset_y - (y - y0);
      const double e = std::hypot(ex, ey);
      sum += e;
      ++n;
      s.track_max = std::max(s.track_max, e);
      const bool horizontal = options.direction < 2;
      s.error_along.push_back(horizontal ? ex : ey);
      s.error_across.push_back(horizontal ? ey : ex);
    }
    s.track_mean = n > 0 ? sum / n : 0;
    if (!cap.narrow() && s.pano_width > 0) {
      const int fw = options.width, fh = options.height;
      const int ex =
          options.direction == ZMOS_DIRECTION_RIGHT_TO_LEFT ? x0 + fw - s.pano_width : x0;
      const int ey =
          options.direction == ZMOS_DIRECTION_BOTTOM_TO_TOP ? y0 + fh - s.pano_height : y0;
      const auto [ax, ay] = Align(cap.panorama(), sim, ex, ey);
      ScorePanorama(cap.panorama(), sim, ax, ay, &s);
    }
  }
  return s;
}

}  // namespace

std::vector<Score> RunScenario(const Rgb& photo, const std::string& photo_name,
                               const std::string& name, const SimOptions& options,
                               const std::vector<std::int32_t>& profiles) {
  SimOptions bounded = options;
  bounded.max_scale = kMaxPhotoScale;
  const SlideSim sim(photo, bounded);
  std::vector<Score> scores;
  for (std::int32_t profile : profiles) {
    if (sim.too_small()) {
      Score s;
      s.photo = photo_name, s.name = name, s.profile = profile;
      s.width = options.width, s.height = options.height, s.direction = options.direction;
      s.photo_scale = sim.scale();
      s.photo_too_small = true;
      scores.push_back(s);
      continue;
    }
    scores.push_back(Capture1(sim, photo_name, name, options, profile));
    scores.back().photo_scale = sim.scale();
  }
  return scores;
}

}  // namespace lumivex::tools
