#include "tools/eval/camera_eval.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include "src/platform/direction.h"
#include "tools/capture/capture.h"
#include "tools/io/image_files.h"
#include "tools/sim/codec.h"

namespace lumivex::tools {
namespace {

constexpr int kBlock = 64;       // along the sweep, for the local PSNR
constexpr int kSeamWindow = 16;  // along the sweep, each side of a seam
constexpr int kStepWindow = 8;   // for the brightness step at a seam

double Mean(const LumaView& v, int step) {
  double sum = 0;
  long n = 0;
  for (int y = 0; y < v.height; y += step)
    for (int x = 0; x < v.width; x += step, ++n) sum += v.at(x, y);
  return n > 0 ? sum / static_cast<double>(n) : 0;
}

// Mean absolute gradient: whether a window has enough detail to be aligned.
double Texture(const LumaView& v) {
  double sum = 0;
  long n = 0;
  for (int y = 0; y + 1 < v.height; y += 2)
    for (int x = 0; x + 1 < v.width; x += 2, ++n)
      sum += std::abs(v.at(x + 1, y) - v.at(x, y)) + std::abs(v.at(x, y + 1) - v.at(x, y));
  return n > 0 ? sum / static_cast<double>(n) : 0;
}

std::vector<std::uint8_t> Quarter(const LumaView& v, int* w, int* h) {
  *w = v.width / 4;
  *h = v.height / 4;
  std::vector<std::uint8_t> out(static_cast<std::size_t>(*w) * *h);
  for (int y = 0; y < *h; ++y)
    for (int x = 0; x < *w; ++x) {
      int sum = 0;
      for (int dy = 0; dy < 4; ++dy)
        for (int dx = 0; dx < 4; ++dx) sum += v.at(4 * x + dx, 4 * y + dy);
      out[static_cast<std::size_t>(y) * *w + x] = static_cast<std::uint8_t>((sum + 8) / 16);
    }
  return out;
}

// The pairs of consecutive strips laid: the detecting frame, then each kept frame (and,
// in the quality profile, each too-fast frame it restarted from).
struct Laid {
  int frame;
  double x, y;  // the engine's travel since the detecting frame
};

std::vector<Laid> LaidFrames(const Capture& cap, std::int32_t profile) {
  std::vector<Laid> laid;
  const int d = cap.detected_at();
  if (d < 0) return laid;
  laid.push_back({d, 0, 0});
  for (const FrameRecord& r : cap.records()) {
    if (r.index <= d) continue;
    const bool restarted = profile == ZMOS_PROFILE_QUALITY && r.result == ZMOS_ERR_TOO_FAST;
    if (!r.kept && !restarted) continue;
    laid.push_back({r.index, static_cast<double>(r.offset_x), -static_cast<double>(r.offset_y)});
  }
  return laid;
}

struct PanoScore {
  double psnr = 0, seam_mean = 0, seam_max = 0, step = 0;
  int seams = 0;
};

// A panorama and the truth it is compared with, in the sweep's terms: `along` the sweep,
// `cross` across it less a margin on both sides.
struct TruthComparison {
  LumaView p, t;
  bool horizontal, at_end;
  int along, cross, margin;

  TruthComparison(const Yuv420& pano, const TruthPanorama& truth, int direction)
      : p{pano.y(), pano.width(), pano.height(), pano.width()},
        t{truth.y.data(), truth.width, truth.height, truth.width},
        horizontal(direction < 2),
        at_end(!lumivex::IsForward(direction)),
        along(horizontal ? p.width : p.height),
        cross(horizontal ? p.height : p.width),
        margin(cross / 12) {}

  // The panorama's part [a, a + len) along the sweep.
  LumaView Window(int a, int len) const {
    return horizontal ? p.Crop(a, margin, len, cross - 2 * margin)
                      : p.Crop(margin, a, cross - 2 * margin, len);
  }
  // The truth's part that matches Window(a, len) when the panorama's origin lies at
  // (dx, dy) in it; empty where it would leave the truth.
  LumaView TruthAt(int a, int len, int dx, int dy) const {
    const int x = (horizontal ? a : margin) + dx, y = (horizontal ? margin : a) + dy;
    const int w = horizontal ? len : cross - 2 * margin, h = horizontal ? cross - 2 * margin : len;
    if (x < 0 || y < 0 || x + w > t.width || y + h > t.height) return LumaView{};
    return t.Crop(x, y, w, h);
  }
  // Where Window(a, len) starts in the panorama's own coordinates.
  std::pair<int, int> Origin(int a) const {
    return horizontal ? std::make_pair(a, margin) : std::make_pair(margin, a);
  }

  // Truth position of the panorama's origin: its first frame's worth, found over the
  // whole truth at a quarter of the resolution, then at full resolution.
  bool FindStart(int frame_along, int* ox, int* oy) const {
    const int first = std::min(along, frame_along);
    const int a0 = at_end ? along - first : 0;
    const LumaView start = Window(a0, first);
    int sw, sh, tw, th;
    const auto small = Quarter(start, &sw, &sh);
    const auto big = Quarter(t, &tw, &th);
    if (sw < 4 || sh < 4 || tw < sw || th < sh) return false;
    int qx = 0, qy = 0;
    BestShift(LumaView{small.data(), sw, sh, sw}, LumaView{big.data(), tw, th, tw}, tw / 2, th / 2,
              std::max(tw, th), 1, &qx, &qy);
    int gx = 0, gy = 0;
    BestShift(start, t, 4 * qx, 4 * qy, 6, 2, &gx, &gy);
    const auto [x0, y0] = Origin(a0);
    *ox = gx - x0;
    *oy = gy - y0;
    return true;
  }

  // Blocks from the start onward, each aligned near the previous one, each block's
  // brightness matched to the truth's; returns the PSNR and each block's origin.
  double ScoreBlocks(int ox, int oy, std::vector<std::pair<int, int>>* shift) const {
    const int blocks = along / kBlock;
    shift->assign(static_cast<std::size_t>(std::max(blocks, 0)), {0, 0});
    double sse = 0;
    long count = 0;
    for (int i = 0; i < blocks; ++i) {
      const int b = at_end ? blocks - 1 - i : i;
      const int pos = at_end ? along - (blocks - b) * kBlock : b * kBlock;
      const LumaView block = Window(pos, kBlock);
      const auto [px, py] = Origin(pos);
      const int bx = px + ox, by = py + oy;
      int fx = bx, fy = by;
      BestShift(block, t, bx, by, 4, 2, &fx, &fy);
      ox += fx - bx;
      oy += fy - by;
      (*shift)[static_cast<std::size_t>(b)] = {ox, oy};
      if (fx < 0 || fy < 0 || fx + block.width > t.width || fy + block.height > t.height) continue;
      const LumaView tb = t.Crop(fx, fy, block.width, block.height);
      const double gain = std::clamp((Mean(tb, 2) + 1) / (Mean(block, 2) + 1), 0.5, 2.0);
      for (int y = 0; y < block.height; ++y)
        for (int x = 0; x < block.width; ++x) {
          const double d = std::min(255.0, block.at(x, y) * gain) - tb.at(x, y);
          sse += d * d;
          ++count;
        }
    }
    return count > 0 && sse > 0 ? 10 * std::log10(255.0 * 255.0 * count / sse) : 0;
  }

  // Each seam: the windows on either side aligned on their own; and the brightness step
  // across it beyond the one the scene has.
  void ScoreSeams(const std::vector<Capture::Seam>& seams,
                  const std::vector<std::pair<int, int>>& shift, PanoScore* out) const {
    const int blocks = static_cast<int>(shift.size());
    double mis_sum = 0;
    for (const Capture::Seam& seam : seams) {
      if (seam.start - kSeamWindow < 0 || seam.end + kSeamWindow > along || blocks == 0) continue;
      const auto [sx, sy] =
          shift[static_cast<std::size_t>(std::clamp(seam.start / kBlock, 0, blocks - 1))];
      const LumaView tb = TruthAt(seam.start - kSeamWindow, kSeamWindow, sx, sy);
      const LumaView ta = TruthAt(seam.end, kSeamWindow, sx, sy);
      if (tb.data == nullptr || ta.data == nullptr) continue;
      const double pb = Mean(Window(seam.start - kStepWindow, kStepWindow), 1);
      const double pa = Mean(Window(seam.end, kStepWindow), 1);
      const LumaView tsb = TruthAt(seam.start - kStepWindow, kStepWindow, sx, sy);
      const LumaView tsa = TruthAt(seam.end, kStepWindow, sx, sy);
      if (tsb.data != nullptr && tsa.data != nullptr) {
        const double step = std::abs(std::log((pa + 1) / (pb + 1)) -
                                     std::log((Mean(tsa, 1) + 1) / (Mean(tsb, 1) + 1)));
        out->step = std::max(out->step, 100 * step);
      }
      if (Texture(tb) < 4 || Texture(ta) < 4) continue;
      const auto [bx, by] = Origin(seam.start - kSeamWindow);
      const auto [ax, ay] = Origin(seam.end);
      int x1, y1, x2, y2;
      BestShift(Window(seam.start - kSeamWindow, kSeamWindow), t, bx + sx, by + sy, 4, 2, &x1, &y1);
      BestShift(Window(seam.end, kSeamWindow), t, ax + sx, ay + sy, 4, 2, &x2, &y2);
      const double mis = std::max(std::abs((x1 - bx) - (x2 - ax)), std::abs((y1 - by) - (y2 - ay)));
      mis_sum += mis;
      out->seam_max = std::max(out->seam_max, mis);
      ++out->seams;
    }
    out->seam_mean = out->seams > 0 ? mis_sum / out->seams : 0;
  }
};

// The panorama against the truth: found in it as a whole from its starting frame, then
// block by block along the sweep (each within a few pixels of the last, so the engine's
// slow drift over the sweep is not counted, only what a viewer sees locally), each
// block's brightness matched to the truth's (exposure is scored apart).
PanoScore ScoreAgainstTruth(const Yuv420& pano, const TruthPanorama& truth, int direction,
                            int frame_w, int frame_h, const std::vector<Capture::Seam>& seams) {
  PanoScore out;
  const TruthComparison c(pano, truth, direction);
  int ox = 0, oy = 0;
  if (!c.FindStart(c.horizontal ? frame_w : frame_h, &ox, &oy)) return out;
  std::vector<std::pair<int, int>> shift;
  out.psnr = c.ScoreBlocks(ox, oy, &shift);
  c.ScoreSeams(seams, shift, &out);
  return out;
}

// Detail along the sweep at a frame's seam: the mean step between neighbouring entries of
// the window's projection (sums across the sweep), per pixel summed. Sky and plain walls
// stay near the noise's 0.15; anything a misplaced seam would show is well above 0.4.
// Neighbours are taken a 320th of the frame's width apart, so that the measure does not
// depend on the resolution.
constexpr double kMeasurableDetail = 0.4;
double SeamDetail(const std::vector<std::uint8_t>& luma, int w, int h, bool horizontal) {
  const int along = horizontal ? w : h, across = horizontal ? h : w;
  const int step = std::max(1, w / 320), half = 32 * step;
  const int a0 = along / 2 - half, a1 = along / 2 + half, c0 = across / 10,
            c1 = across - across / 10;
  std::vector<double> p;
  for (int a = std::max(a0, 0); a < std::min(a1, along); a += step) {
    double sum = 0;
    for (int c = c0; c < c1; ++c)
      sum += luma[horizontal ? static_cast<std::size_t>(c) * w + a
                             : static_cast<std::size_t>(a) * w + c];
    p.push_back(sum);
  }
  double d = 0;
  for (std::size_t i = 1; i < p.size(); ++i) d += std::abs(p[i] - p[i - 1]);
  return p.size() > 1 ? d / static_cast<double>(p.size() - 1) / (c1 - c0) : 0;
}

// The whole-pixel translation (x, y) that best aligns frame b's central half with frame
// a (b's pixel at (x, y) shows a's at (x + dx, y + dy)), near the geometric truth.
std::pair<int, int> BestTranslation(const std::vector<std::uint8_t>& a,
                                    const std::vector<std::uint8_t>& b, int w, int h,
                                    const std::array<double, 2>& near) {
  const LumaView va{a.data(), w, h, w}, vb{b.data(), w, h, w};
  const LumaView centre = vb.Crop(w / 4, h / 4, w / 2, h / 2);
  int x = 0, y = 0;
  BestShift(centre, va, w / 4 + static_cast<int>(std::lround(near[0])),
            h / 4 + static_cast<int>(std::lround(near[1])), 3, 2, &x, &y);
  return {x - w / 4, y - h / 4};
}

}  // namespace

double BestShift(const LumaView& small, const LumaView& big, int x, int y, int radius, int step,
                 int* best_x, int* best_y) {
  double best = 1e30;
  *best_x = x;
  *best_y = y;
  const double ms = Mean(small, step);
  for (int dy = -radius; dy <= radius; ++dy) {
    const int py = y + dy;
    if (py < 0 || py + small.height > big.height) continue;
    for (int dx = -radius; dx <= radius; ++dx) {
      const int px = x + dx;
      if (px < 0 || px + small.width > big.width) continue;
      const LumaView at = big.Crop(px, py, small.width, small.height);
      const double offset = Mean(at, step) - ms;
      double sad = 0;
      long n = 0;
      for (int r = 0; r < small.height; r += step)
        for (int c = 0; c < small.width; c += step, ++n)
          sad += std::abs(at.at(c, r) - small.at(c, r) - offset);
      const double mean = sad / static_cast<double>(std::max(n, 1L));
      // Ties go to the smaller shift, so a flat window stays put.
      if (mean < best - 1e-9 ||
          (mean < best + 1e-9 &&
           std::abs(dx) + std::abs(dy) < std::abs(*best_x - x) + std::abs(*best_y - y))) {
        best = mean;
        *best_x = px;
        *best_y = py;
      }
    }
  }
  return best;
}

// Which frame pairs' image-based truth has been worked out, by (earlier, later) frame.
using ImageTruth = std::map<std::pair<int, int>, std::pair<int, int>>;

// Every laid pair of a capture against the truth: the simulator's travel between the two
// frames and, as a clip is judged without a simulator, the best whole-pixel translation
// of the central half of the two frames.
void ScorePairs(const std::vector<Laid>& laid, const CameraSim& sim,
                const std::vector<std::vector<std::uint8_t>>& lumas, const CameraSimOptions& o,
                ImageTruth* image_truth, Score* s) {
  const bool horizontal = o.direction < 2;
  int within1 = 0, exact = 0, image_within1 = 0, image_exact = 0;
  double err_sum = 0, ax = 0, ay = 0;  // ax, ay: accumulated errors, for the chart
  for (std::size_t k = 1; k < laid.size(); ++k) {
    const std::vector<std::uint8_t>& later = lumas[static_cast<std::size_t>(laid[k].frame)];
    // A seam on sky or a plain wall shows no misplacement, and none can be measured.
    if (SeamDetail(later, o.width, o.height, horizontal) < kMeasurableDetail) {
      ++s->plain_pairs;
      continue;
    }
    ++s->pairs;
    const double step_x = laid[k].x - laid[k - 1].x, step_y = laid[k].y - laid[k - 1].y;
    const auto truth_step = sim.SeamTravel(laid[k - 1].frame, laid[k].frame);
    const double ex = step_x - truth_step[0], ey = step_y - truth_step[1];
    const double e = std::max(std::abs(ex), std::abs(ey));
    within1 += e <= 1.0;
    exact += e <= 0.5;
    err_sum += e;
    s->pair_err_max = std::max(s->pair_err_max, e);
    const auto key = std::make_pair(laid[k - 1].frame, laid[k].frame);
    auto it = image_truth->find(key);
    if (it == image_truth->end())
      it = image_truth
               ->emplace(key, BestTranslation(lumas[static_cast<std::size_t>(key.first)], later,
                                              o.width, o.height, truth_step))
               .first;
    const auto [image_x, image_y] = it->second;
    const double ie = std::max(std::abs(step_x - image_x), std::abs(step_y - image_y));
    s->pair_records.push_back(PairRecord{key.first, key.second, step_x, step_y, truth_step[0],
                                         truth_step[1], image_x, image_y});
    image_within1 += ie <= 1;
    image_exact += ie == 0;
    s->image_err_max = std::max(s->image_err_max, ie);
    ax += ex;
    ay += ey;
    s->error_along.push_back(horizontal ? ax : ay);
    s->error_across.push_back(horizontal ? ay : ax);
    s->track_max = std::max(s->track_max, std::hypot(ax, ay));
  }
  if (s->pairs > 0) {
    s->image_within1 = static_cast<double>(image_within1) / s->pairs;
    s->image_exact = static_cast<double>(image_exact) / s->pairs;
    s->pairs_within1 = static_cast<double>(within1) / s->pairs;
    s->pairs_exact = static_cast<double>(exact) / s->pairs;
    s->track_mean = err_sum / s->pairs;
  }
}

// A whole panorama's brightness, clipped white and fidelity to the truth panorama.
void ScorePanorama(const Capture& cap, const TruthPanorama& truth, const CameraSimOptions& o,
                   Score* s) {
  const Yuv420& pano = cap.panorama();
  if (cap.narrow() || pano.width() == 0) return;
  double sum = 0;
  std::size_t white = 0;
  for (std::size_t k = 0; k < pano.luma_size(); ++k) {
    sum += pano.y()[k];
    white += pano.y()[k] >= 250;
  }
  s->mean_luma = sum / static_cast<double>(pano.luma_size());
  s->clipped = static_cast<double>(white) / static_cast<double>(pano.luma_size());
  const PanoScore ps = ScoreAgainstTruth(pano, truth, o.direction, o.width, o.height, cap.Seams());
  s->psnr = ps.psnr;
  s->seam_mis_mean = ps.seam_mean;
  s->seam_mis_max = ps.seam_max;
  s->seams_measured = ps.seams;
  s->exposure_step = ps.step;
}

// Feeds the simulated sweep (through the codec when asked) to every capture until all
// have stopped or the sweep ends; every frame's luma is kept for the image truth.
std::vector<std::vector<std::uint8_t>> FeedSweep(CameraSim& sim, const CameraCase& c,
                                                 std::vector<std::unique_ptr<Capture>>& captures) {
  const CameraSimOptions& o = c.sim;
  H264RoundTrip codec;
  std::string error;
  const bool coded = c.codec && codec.Open(o.width, o.height, o.fps, kPhoneBitsPerPixel, &error);
  std::vector<bool> running;
  for (const auto& cap : captures) running.push_back(cap->init_result() == 0);
  Yuv420 frame;
  std::vector<std::vector<std::uint8_t>> lumas;
  while (std::find(running.begin(), running.end(), true) != running.end() && sim.Next(&frame)) {
    if (coded && !codec.Process(&frame, &error)) break;
    lumas.emplace_back(frame.y(), frame.y() + frame.luma_size());
    for (std::size_t i = 0; i < captures.size(); ++i)
      if (running[i]) running[i] = captures[i]->Feed(frame);
  }
  return lumas;
}

std::vector<Score> RunCameraScenario(const Rgb& photo, const std::string& photo_name,
                                     const CameraCase& c,
                                     const std::vector<std::int32_t>& profiles) {
  CameraSim sim(photo, c.sim);
  const CameraSimOptions& o = c.sim;
  std::vector<std::unique_ptr<Capture>> captures;
  for (std::int32_t profile : profiles) {
    CaptureOptions options{"", false, false};
    options.profile = profile;
    captures.push_back(std::make_unique<Capture>(o.width, o.height, o.format, options));
  }
  const std::vector<std::vector<std::uint8_t>> lumas = FeedSweep(sim, c, captures);
  const TruthPanorama truth = sim.Panorama(sim.rendered() - 1);
  double ev_lo = 0, ev_hi = 0;
  for (const CameraFrameTruth& t : sim.truth()) {
    ev_lo = std::min(ev_lo, t.ev);
    ev_hi = std::max(ev_hi, t.ev);
  }
  ImageTruth image_truth;
  std::vector<Score> scores;
  for (std::size_t i = 0; i < captures.size(); ++i) {
    Capture& cap = *captures[i];
    cap.Finish();
    Score s;
    s.camera = true;
    s.codec = c.codec;
    s.light = o.light >= kDaylight ? "day" : o.light >= kDusk ? "dusk" : "night";
    s.photo = photo_name, s.name = c.name, s.profile = profiles[i];
    s.width = o.width, s.height = o.height, s.direction = o.direction;
    RecordOutcome(cap, &s);
    s.ev_range = ev_hi - ev_lo;
    if (cap.panorama().width() > 0) {
      std::string error;
      ZMOSIMAGE pano = const_cast<Yuv420&>(cap.panorama()).Image();
      EncodeJpeg(Shrink(ImageToRgb(pano), 480), 85, &s.thumbnail, &error);
    }
    const std::vector<Laid> laid = LaidFrames(cap, profiles[i]);
    s.first_frame = laid.empty() ? 0 : laid.front().frame;
    ScorePairs(laid, sim, lumas, o, &image_truth, &s);
    ScorePanorama(cap, truth, o, &s);
    s.verdict = s.complete ? (BadCompletion(s).empty() ? "good" : BadCompletion(s)) : "";
    scores.push_back(std::move(s));
  }
  return scores;
}

}  // namespace lumivex::tools
