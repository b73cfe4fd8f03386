#include "tools/sim/camera_sim.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <thread>

#include "lumivex/select.h"
#include "tools/sim/rng.h"

namespace lumivex::tools {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kRad = kPi / 180;

// Exposure calibration: a scene of daylight brightness whose mean is mid-grey needs
// 1/1500 s at base gain.
constexpr double kCalibration = 1500;
constexpr double kMinExposure = 1.0 / 20000, kMaxGain = 16;
// A phone pixel: full well and read noise in electrons at base gain.
constexpr double kFullWell = 5000, kReadNoise = 2.5;
// What the exposure loop aims the centre-weighted mean luma at, and how fast it gets there.
constexpr double kTargetLuma = 112, kLoopRate = 0.35, kDeadBand = 0.04;
// Path samples a second.
constexpr double kPathRate = 1000;
// Right to left turns to smaller yaw, top to bottom to smaller pitch.
constexpr bool TurnsNegative(int direction) {
  return direction == ZMOS_DIRECTION_RIGHT_TO_LEFT || direction == ZMOS_DIRECTION_TOP_TO_BOTTOM;
}
// The hand holds still this long (s) before the sweep, which takes this long to reach speed.
constexpr double kStill = 0.3, kRamp = 0.4;

double Smoothstep(double x) {
  x = std::clamp(x, 0.0, 1.0);
  return x * x * (3 - 2 * x);
}

double SrgbToLinear(double v) {
  return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

double LinearToSrgb(double v) {
  return v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
}

// atan2 within about 1e-5 radians (a hundredth of a photograph pixel), several times
// faster than the library's: it runs for every sample of every frame.
float FastAtan2(float y, float x) {
  const float ax = std::abs(x), ay = std::abs(y);
  const float big = std::max(ax, ay), small = std::min(ax, ay);
  if (big == 0) return 0;
  const float a = small / big, s = a * a;
  float r = ((-0.0464964749f * s + 0.15931422f) * s - 0.327622764f) * s * a + a;
  if (ay > ax) r = 1.57079637f - r;
  if (x < 0) r = 3.14159274f - r;
  return y < 0 ? -r : r;
}

// The phone's tone curve (sRGB) from linear [0, 1] to 8 bits, through a table.
std::uint8_t ToneCurve(float linear) {
  static const auto* table = [] {
    auto* t = new std::array<std::uint8_t, 4097>;
    for (int i = 0; i <= 4096; ++i)
      (*t)[static_cast<std::size_t>(i)] =
          static_cast<std::uint8_t>(std::lround(255 * LinearToSrgb(i / 4096.0)));
    return t;
  }();
  return (*table)[static_cast<std::size_t>(std::clamp(linear, 0.0f, 1.0f) * 4096 + 0.5f)];
}

// A smooth random signal in [-1, 1]: three slow sinusoids.
struct Wander {
  double freq[3], phase[3];
  explicit Wander(Rng& rng, double lo, double hi) {
    for (int i = 0; i < 3; ++i) {
      freq[i] = rng.Uniform(lo, hi);
      phase[i] = rng.Uniform(0, 2 * kPi);
    }
  }
  double At(double t) const {
    double v = 0;
    for (int i = 0; i < 3; ++i) v += std::sin(2 * kPi * freq[i] * t + phase[i]);
    return v / 3;
  }
};

// Runs fn(row) for rows [0, n) on the machine's cores; each row is done by one thread, so
// the result does not depend on how many there are.
template <typename Fn>
void ForRows(int n, Fn fn) {
  const int threads = std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, 8);
  if (threads == 1 || n < 16) {
    for (int r = 0; r < n; ++r) fn(r);
    return;
  }
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t)
    pool.emplace_back([&, t] {
      for (int r = t; r < n; r += threads) fn(r);
    });
  for (std::thread& th : pool) th.join();
}

}  // namespace

// The photograph in linear light, its highlights extended past white, resampled (with a
// triangle filter) to about the camera's resolution where it is finer, so that nothing
// aliases and one bilinear lookup a sample does.
struct CameraSim::Scene {
  int w = 0, h = 0;
  std::vector<float> rgb;
  double scale = 1;  // scene pixels a photograph pixel
  int photo_w = 0, photo_h = 0;
  PanoProjection projection = PanoProjection::kEquirectangular;
  double hfov = 2 * kPi, vfov = kPi;
  bool wrap = true;

  // Photograph pixel coordinates of a direction (x right, y down, z forward).
  void Project(float dx, float dy, float dz, float* u, float* v) const {
    const float flat = std::sqrt(dx * dx + dz * dz);
    const float lon = FastAtan2(dx, dz);
    *u = (lon / static_cast<float>(hfov) + 0.5f) * photo_w - 0.5f;
    if (projection == PanoProjection::kEquirectangular) {
      *v = (0.5f - FastAtan2(-dy, flat) / static_cast<float>(vfov)) * photo_h - 0.5f;
    } else {
      *v = photo_h / 2.0f + (photo_w / static_cast<float>(hfov)) * (dy / std::max(flat, 1e-9f)) -
           0.5f;
    }
  }

  // Radiance seen along a direction; outside a partial photograph, black.
  void Sample(float dx, float dy, float dz, float out[3]) const {
    float pu, pv;
    Project(dx, dy, dz, &pu, &pv);
    const float u = (pu + 0.5f) * static_cast<float>(scale) - 0.5f;
    const float v = (pv + 0.5f) * static_cast<float>(scale) - 0.5f;
    const float fx = std::floor(u), fy = std::floor(v);
    const float tx = u - fx, ty = v - fy;
    int x0 = static_cast<int>(fx), y0 = static_cast<int>(fy);
    int x1 = x0 + 1;
    if (wrap) {
      if (x0 < 0 || x0 >= w) x0 = ((x0 % w) + w) % w;
      x1 = x0 + 1 < w ? x0 + 1 : 0;
    } else if (x1 < 0 || x0 >= w || y0 < -1 || y0 >= h) {
      out[0] = out[1] = out[2] = 0;
      return;
    } else {
      x0 = std::clamp(x0, 0, w - 1);
      x1 = std::clamp(x1, 0, w - 1);
    }
    const int y1 = std::clamp(y0 + 1, 0, h - 1);
    y0 = std::clamp(y0, 0, h - 1);
    const float* a = &rgb[(static_cast<std::size_t>(y0) * w + x0) * 3];
    const float* b = &rgb[(static_cast<std::size_t>(y0) * w + x1) * 3];
    const float* c = &rgb[(static_cast<std::size_t>(y1) * w + x0) * 3];
    const float* d = &rgb[(static_cast<std::size_t>(y1) * w + x1) * 3];
    for (int k = 0; k < 3; ++k) {
      const float top = a[k] + (b[k] - a[k]) * tx, bottom = c[k] + (d[k] - c[k]) * tx;
      out[k] = top + (bottom - top) * ty;
    }
  }
};

namespace {

// Resamples rows of `n` RGB pixels to `m` (m < n) with a triangle filter as wide as the
// reduction; `wrap` joins the ends (a full turn of a panorama).
void Reduce(const float* in, int n, std::ptrdiff_t in_step, float* out, int m,
            std::ptrdiff_t out_step, bool wrap) {
  const double r = static_cast<double>(n) / m;
  for (int x = 0; x < m; ++x) {
    const double c = (x + 0.5) * r - 0.5;
    const int lo = static_cast<int>(std::ceil(c - r)), hi = static_cast<int>(std::floor(c + r));
    double acc[3] = {0, 0, 0}, total = 0;
    for (int i = lo; i <= hi; ++i) {
      const double wgt = 1 - std::abs(i - c) / r;
      if (wgt <= 0) continue;
      int j = i;
      if (wrap)
        j = ((j % n) + n) % n;
      else
        j = std::clamp(j, 0, n - 1);
      const float* p = in + j * in_step;
      for (int k = 0; k < 3; ++k) acc[k] += wgt * p[k];
      total += wgt;
    }
    float* q = out + x * out_step;
    for (int k = 0; k < 3; ++k) q[k] = static_cast<float>(acc[k] / total);
  }
}

}  // namespace

bool ParseLight(const std::string& text, double* light) {
  if (text == "day" || text == "daylight") {
    *light = kDaylight;
  } else if (text == "dusk" || text == "indoor") {
    *light = kDusk;
  } else if (text == "night") {
    *light = kNight;
  } else {
    char* end = nullptr;
    *light = std::strtod(text.c_str(), &end);
    return end != text.c_str() && *end == '\0' && *light > 0 && *light <= 100;
  }
  return true;
}

// Linear light; near-white parts of the photograph stand for brighter things (sun on
// water, a bright sky) that the photograph's own camera compressed into white. Reduced to
// about one scene pixel a camera pixel.
void CameraSim::LoadScene(const Rgb& photo) {
  Scene& sc = *scene_;
  float lut[256];
  for (int i = 0; i < 256; ++i) lut[i] = static_cast<float>(SrgbToLinear(i / 255.0));
  std::vector<float> linear(static_cast<std::size_t>(photo.width) * photo.height * 3);
  const auto boost = static_cast<float>(options_.highlights);
  for (std::size_t i = 0; i < static_cast<std::size_t>(photo.width) * photo.height; ++i) {
    float c[3];
    for (int k = 0; k < 3; ++k) c[k] = lut[photo.pixels[3 * i + k]];
    const float y = 0.2126f * c[0] + 0.7152f * c[1] + 0.0722f * c[2];
    const float over = std::max(0.0f, (y - 0.5f) / 0.5f);
    const float gain = 1 + boost * over * over;
    for (int k = 0; k < 3; ++k) linear[3 * i + k] = c[k] * gain;
  }
  const double finer = (photo.width / sc.hfov) / focal_;  // photograph pixels a camera pixel
  if (finer > 1.05) {
    sc.w = std::max(2, static_cast<int>(std::lround(photo.width / finer)));
    sc.h = std::max(2, static_cast<int>(std::lround(photo.height / finer)));
    std::vector<float> rows(static_cast<std::size_t>(sc.w) * photo.height * 3);
    ForRows(photo.height, [&](int y) {
      Reduce(&linear[static_cast<std::size_t>(y) * photo.width * 3], photo.width, 3,
             &rows[static_cast<std::size_t>(y) * sc.w * 3], sc.w, 3, sc.wrap);
    });
    linear.clear();
    linear.shrink_to_fit();
    sc.rgb.resize(static_cast<std::size_t>(sc.w) * sc.h * 3);
    ForRows(sc.w, [&](int x) {
      Reduce(&rows[static_cast<std::size_t>(x) * 3], photo.height,
             static_cast<std::ptrdiff_t>(sc.w) * 3, &sc.rgb[static_cast<std::size_t>(x) * 3], sc.h,
             static_cast<std::ptrdiff_t>(sc.w) * 3, false);
    });
  } else {
    sc.w = photo.width;
    sc.h = photo.height;
    sc.rgb = std::move(linear);
  }
  sc.scale = static_cast<double>(sc.w) / photo.width;
}

// The hand's path over `duration` seconds: still at first, then a sweep at `speed`
// degrees a second whose pace wanders, jerks now and then, and wobble across the sweep
// and in roll; it stops where the arm has gone `reach` degrees.
void CameraSim::PlanPath(Rng& rng, double speed, double reach, double duration) {
  const Wander pace(rng, 0.15, 0.8), across(rng, 0.1, 0.6), tilt(rng, 0.1, 0.5);
  const double cross_drift = rng.Uniform(-0.3, 0.3);  // degrees a second
  const double tremor_phase = rng.Uniform(0, 2 * kPi);
  struct Jerk {
    double at, along, across;
  };
  std::vector<Jerk> jerks;
  for (double t = kStill + kRamp;;) {
    t += -std::log(1 - rng.Uniform() * 0.999) / std::max(options_.jerks, 1e-3);
    if (t >= duration) break;
    jerks.push_back({t, speed * rng.Uniform(0.4, 1.0), rng.Uniform(-4, 4)});
  }
  const int samples = static_cast<int>(duration * kPathRate) + 2;
  path_.resize(static_cast<std::size_t>(samples));
  double along = 0, jerk_cross = 0;
  for (int i = 0; i < samples; ++i) {
    const double t = i / kPathRate;
    double rate = speed * Smoothstep((t - kStill) / kRamp) * (1 + 0.25 * pace.At(t));
    double cross_rate = 0;
    for (const Jerk& j : jerks) {
      const double g = std::exp(-0.5 * std::pow((t - j.at) / 0.05, 2));
      rate += j.along * g;
      cross_rate += j.across * g;
    }
    if (along >= reach) rate = 0;  // the arm has gone as far as it goes
    along += rate / kPathRate;
    jerk_cross += cross_rate / kPathRate;
    const double tremor = 0.015 * std::sin(2 * kPi * 9.5 * t + tremor_phase);
    path_[static_cast<std::size_t>(i)] =
        Pose{along, options_.wobble * across.At(t) + cross_drift * t + jerk_cross + tremor,
             1.2 * options_.wobble * tilt.At(t) + tremor};
  }
}

CameraSim::CameraSim(const Rgb& photo, const CameraSimOptions& options) : options_(options) {
  scene_ = new Scene;
  Scene& sc = *scene_;
  sc.projection = options_.projection;
  sc.hfov = std::clamp(options_.pano_hfov, 1.0, 360.0) * kRad;
  sc.vfov = std::clamp(options_.pano_vfov, 1.0, 180.0) * kRad;
  sc.wrap = options_.pano_hfov >= 360;
  sc.photo_w = photo.width;
  sc.photo_h = photo.height;

  // The camera: a pinhole whose long side spans the field of view.
  const int w = options_.width, h = options_.height;
  focal_ = std::max(w, h) / 2.0 / std::tan(std::clamp(options_.fov, 10.0, 150.0) * kRad / 2);

  LoadScene(photo);

  // The hand's path: still at first, then a sweep whose speed wanders, jerks now and
  // then, and wobble across the sweep and in roll.
  Rng rng(MixSeed(options_.seed, 1));
  const bool horizontal = options_.direction < 2;
  const double speed = options_.speed > 0 ? options_.speed : rng.Uniform(28, 45);
  const double frame_along = horizontal ? w : h;
  // The engine's 180-degree canvas is three frame widths long, also for vertical sweeps.
  const double needed = (3.0 * w - frame_along) / focal_ / kRad * 1.12 + 4;
  // Nobody tilts a phone much past straight up or down.
  const double reach = horizontal ? std::min(needed, sc.wrap ? 330.0 : options_.pano_hfov - 20)
                                  : std::min(needed, 150.0);
  const double duration =
      options_.duration > 0 ? options_.duration : kStill + kRamp + reach / (speed * 0.9) + 0.4;
  PlanPath(rng, speed, reach, duration);
  frames_ = std::max(1, static_cast<int>(duration * options_.fps));
  // Where the sweep starts: anywhere round a full panorama, else so that it fits.
  if (options_.start > 1e8) {
    const double sign = TurnsNegative(options_.direction) ? -1 : 1;
    if (horizontal) {
      options_.start =
          sc.wrap ? rng.Uniform(-180, 180) : -sign * std::min(reach, options_.pano_hfov) / 2;
    } else {
      // Up from the ground past the horizon; down from a little above it.
      options_.start = options_.direction == ZMOS_DIRECTION_BOTTOM_TO_TOP ? -75 : 20;
    }
  }
  truth_.reserve(static_cast<std::size_t>(frames_));
}

CameraSim::~CameraSim() {
  delete scene_;
}

CameraSim::Pose CameraSim::PoseAt(double t) const {
  const double x = std::clamp(t * kPathRate, 0.0, static_cast<double>(path_.size() - 1));
  const auto i = std::min(static_cast<std::size_t>(x), path_.size() - 2);
  const double f = x - static_cast<double>(i);
  const Pose& a = path_[i];
  const Pose& b = path_[i + 1];
  return Pose{a.along + (b.along - a.along) * f, a.cross + (b.cross - a.cross) * f,
              a.roll + (b.roll - a.roll) * f};
}

// Camera to world: yaw about the vertical, then pitch, then roll about the optical axis.
CameraSim::Rotation CameraSim::RotationAt(double t) const {
  const Pose p = PoseAt(t);
  const bool horizontal = options_.direction < 2;
  const double sign = TurnsNegative(options_.direction) ? -1 : 1;
  double yaw, pitch;
  if (horizontal) {
    yaw = options_.start + sign * p.along;
    pitch = p.cross;
  } else {
    yaw = p.cross;
    pitch = options_.start + sign * p.along;
  }
  const double cy = std::cos(yaw * kRad), sy = std::sin(yaw * kRad);
  const double cp = std::cos(pitch * kRad), sp = std::sin(pitch * kRad);
  const double cr = std::cos(p.roll * kRad), sr = std::sin(p.roll * kRad);
  // Ry(yaw) * Rx(pitch) * Rz(roll), with x right, y down, z forward and pitch up positive.
  const double ry[9] = {cy, 0, sy, 0, 1, 0, -sy, 0, cy};
  const double rx[9] = {1, 0, 0, 0, cp, -sp, 0, sp, cp};
  const double rz[9] = {cr, -sr, 0, sr, cr, 0, 0, 0, 1};
  auto mul = [](const double* a, const double* b, double* out) {
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j)
        out[3 * i + j] = a[3 * i] * b[j] + a[3 * i + 1] * b[3 + j] + a[3 * i + 2] * b[6 + j];
  };
  double tmp[9];
  Rotation r;
  mul(ry, rx, tmp);
  mul(tmp, rz, r.m);
  return r;
}

// The mid-exposure time of the sensor line through (x, y): the sensor is read along its
// long side, so a portrait frame's lines are its columns.
double CameraSim::LineTime(int frame, double x, double y) const {
  const int w = options_.width, h = options_.height;
  const bool portrait = h > w;
  const double line = portrait ? (w - x) / w : y / h;
  return frame / options_.fps + options_.readout_ms / 1000 * std::clamp(line, 0.0, 1.0);
}

namespace {

// How the exposure loop splits an exposure between time and gain: time first, up to the
// frame interval, then gain.
void SplitExposure(double exposure, double fps, double* seconds, double* gain) {
  const double t = exposure / kCalibration;
  *seconds = std::clamp(t, kMinExposure, 1.0 / fps);
  *gain = std::clamp(t / *seconds, 1.0, kMaxGain);
}

}  // namespace

// A phone's image processor smooths more as its gain rises: each sample drawn toward the
// mean of its 3 x 3 neighbourhood, by a share that grows with the gain (none at base gain,
// at most 60 %).
void NoiseReduction(double gain, int w, int h, std::vector<float>* rgb) {
  const auto share = static_cast<float>(std::clamp((gain - 1) / 6, 0.0, 0.6));
  if (share <= 0) return;
  const std::vector<float> in = *rgb;
  ForRows(h, [&](int y) {
    const int y0 = std::max(y - 1, 0), y1 = std::min(y + 1, h - 1);
    for (int x = 0; x < w; ++x) {
      const int x0 = std::max(x - 1, 0), x1 = std::min(x + 1, w - 1);
      for (int c = 0; c < 3; ++c) {
        float sum = 0;
        for (int yy = y0; yy <= y1; ++yy)
          for (int xx = x0; xx <= x1; ++xx)
            sum += in[(static_cast<std::size_t>(yy) * w + xx) * 3 + c];
        const float mean = sum / static_cast<float>((y1 - y0 + 1) * (x1 - x0 + 1));
        float& v = (*rgb)[(static_cast<std::size_t>(y) * w + x) * 3 + c];
        v += (mean - v) * share;
      }
    }
  });
}

namespace {

// Metering, centre-weighted, on the tone-mapped luma of every `step`-th line and column
// of a w x h linear image; *clipped is the share of those pixels at white.
double Meter(const std::vector<float>& rgb, int w, int h, int step, double* clipped) {
  double sum = 0, weights = 0;
  std::size_t white = 0, all = 0;
  for (int y = 0; y < h; y += step)
    for (int x = 0; x < w; x += step) {
      const float* c = &rgb[(static_cast<std::size_t>(y) * w + x) * 3];
      const double luma = ToneCurve(0.299f * c[0] + 0.587f * c[1] + 0.114f * c[2]);
      ++all;
      const double dx = (x + 0.5) / w - 0.5, dy = (y + 0.5) / h - 0.5;
      const double weight = 1 + 2 * std::max(0.0, 1 - 4 * (dx * dx + dy * dy));
      sum += weight * luma;
      weights += weight;
      white += c[0] >= 1 && c[1] >= 1 && c[2] >= 1;
    }
  *clipped = static_cast<double>(white) / static_cast<double>(all);
  return sum / weights;
}

}  // namespace

// The sensor's output in linear light, clipped to [0, 1], for every `stride`-th pixel.
// Returns the centre-weighted mean luma after the tone curve (what the exposure loop
// meters); *clipped is the share of pixels at white.
double CameraSim::RenderLinear(int frame, double exposure, int stride, std::vector<float>* rgb,
                               double* clipped) const {
  const int w = options_.width / stride, h = options_.height / stride;
  const bool portrait = options_.height > options_.width;
  double seconds = 0, gain = 1;
  SplitExposure(exposure, options_.fps, &seconds, &gain);
  // Motion blur: enough time samples that each moves the image under a pixel.
  const double tc = LineTime(frame, options_.width / 2.0, options_.height / 2.0);
  const Pose p0 = PoseAt(tc - seconds / 2), p1 = PoseAt(tc + seconds / 2);
  const double blur = focal_ * std::hypot(p1.along - p0.along, p1.cross - p0.cross) * kRad;
  const int taps = std::clamp(static_cast<int>(std::ceil(blur / 0.75)), 1, 16);
  // One rotation a sensor line and time sample.
  const int lines = portrait ? w : h;
  std::vector<Rotation> rot(static_cast<std::size_t>(lines) * taps);
  for (int l = 0; l < lines; ++l) {
    const double x = portrait ? (w - l - 0.5) * stride : 0, y = portrait ? 0 : (l + 0.5) * stride;
    const double t = LineTime(frame, x, y);
    for (int j = 0; j < taps; ++j)
      rot[static_cast<std::size_t>(l) * taps + j] =
          RotationAt(t + seconds * ((j + 0.5) / taps - 0.5));
  }
  rgb->resize(static_cast<std::size_t>(w) * h * 3);  // every value is written below
  const double scale = options_.light * exposure;
  const double corner2 =
      (options_.width * options_.width + options_.height * options_.height) / 4.0;
  const double noise = options_.noise;
  ForRows(h, [&](int y) {
    Rng rng(MixSeed(options_.seed * 7919 + static_cast<std::uint64_t>(frame), y + 1));
    float* out = rgb->data() + static_cast<std::size_t>(y) * w * 3;
    const double yc = (y + 0.5) * stride;
    for (int x = 0; x < w; ++x) {
      const double xc = (x + 0.5) * stride;
      const double cx = (xc - options_.width / 2.0) / focal_,
                   cy = (yc - options_.height / 2.0) / focal_;
      const int line = portrait ? w - 1 - x : y;
      float acc[3] = {0, 0, 0};
      for (int j = 0; j < taps; ++j) {
        const double* m = rot[static_cast<std::size_t>(line) * taps + j].m;
        float s[3];
        scene_->Sample(m[0] * cx + m[1] * cy + m[2], m[3] * cx + m[4] * cy + m[5],
                       m[6] * cx + m[7] * cy + m[8], s);
        for (int k = 0; k < 3; ++k) acc[k] += s[k];
      }
      const double r2 = ((xc - options_.width / 2.0) * (xc - options_.width / 2.0) +
                         (yc - options_.height / 2.0) * (yc - options_.height / 2.0)) /
                        corner2;
      const double lens = (1 - options_.vignetting * r2) * scale / taps;
      for (int k = 0; k < 3; ++k) {
        double v = acc[k] * lens;
        if (noise > 0) {
          // Shot noise grows with the signal, read noise does not; both with the gain.
          const double var = gain * std::max(v, 0.0) / kFullWell +
                             (gain * kReadNoise / kFullWell) * (gain * kReadNoise / kFullWell);
          v += noise * std::sqrt(var) * rng.QuickNormal();
        }
        out[3 * x + k] = static_cast<float>(std::clamp(v, 0.0, 1.0));
      }
    }
  });
  return Meter(*rgb, w, h, stride == 1 ? 2 : 1, clipped);
}

bool CameraSim::Next(Yuv420* frame) {
  const int k = rendered();
  if (k >= frames_) return false;
  std::vector<float>& linear = scratch_;
  double clipped = 0;
  if (k == 0) {
    // The loop has settled on the scene before the sweep starts.
    exposure_ = 1 / options_.light;
    for (int i = 0; i < 12 && options_.auto_exposure; ++i) {
      const double meter = RenderLinear(0, exposure_, 8, &linear, &clipped);
      const double target = kTargetLuma * (1 - std::min(0.25, 2 * clipped));
      exposure_ *= std::exp(std::clamp(std::log(target / std::max(meter, 1.0)) * 1.4, -2.0, 2.0));
    }
  }
  const double meter = RenderLinear(k, exposure_, 1, &linear, &clipped);
  double seconds = 0, gain = 1;
  SplitExposure(exposure_, options_.fps, &seconds, &gain);
  NoiseReduction(gain, options_.width, options_.height, &linear);
  Rgb rgb;
  rgb.width = options_.width;
  rgb.height = options_.height;
  rgb.pixels.resize(linear.size());
  for (std::size_t i = 0; i < linear.size(); ++i) rgb.pixels[i] = ToneCurve(linear[i]);
  *frame = RgbToYuv420(rgb, options_.format);

  CameraFrameTruth t;
  t.time = LineTime(k, options_.width / 2.0, options_.height / 2.0);
  const Pose p = PoseAt(t.time);
  const bool horizontal = options_.direction < 2;
  const double sign = TurnsNegative(options_.direction) ? -1 : 1;
  t.yaw = horizontal ? options_.start + sign * p.along : p.cross;
  t.pitch = horizontal ? p.cross : options_.start + sign * p.along;
  t.roll = p.roll;
  SplitExposure(exposure_, options_.fps, &t.exposure_ms, &t.gain);
  t.exposure_ms *= 1000;
  exposures_.push_back(exposure_);
  t.ev = std::log2(exposure_ / exposures_.front());
  t.clipped = clipped;
  const Pose p0 = PoseAt(t.time - t.exposure_ms / 2000), p1 = PoseAt(t.time + t.exposure_ms / 2000);
  t.blur_px = focal_ * std::hypot(p1.along - p0.along, p1.cross - p0.cross) * kRad;
  truth_.push_back(t);

  // The loop reacts to this frame for the next: it aims lower when much is clipped, as
  // phones protect highlights, holds still inside a dead band, and moves in steps of
  // 1/32 EV.
  if (options_.auto_exposure) {
    const double target = kTargetLuma * (1 - std::min(0.25, 2 * clipped));
    const double error = std::log(target / std::max(meter, 1.0));
    if (std::abs(error) > kDeadBand) {
      double ev = std::log2(exposure_) + kLoopRate * std::clamp(error, -0.5, 0.5) / std::log(2.0);
      ev = std::round(ev * 32) / 32;
      exposure_ = std::exp2(ev);
    }
  }
  return true;
}

std::array<double, 2> CameraSim::SeamTravel(int a, int b) const {
  const int w = options_.width, h = options_.height;
  const bool horizontal = options_.direction < 2;
  // The engine's seam: the centre column (x = w / 2) or the centre row, rounded down to
  // even; pixel centres sit half a pixel on.
  const double seam = horizontal ? w / 2 + 0.5 : ((h / 2) & ~1) + 0.5;
  const int length = horizontal ? h : w;
  double sx = 0, sy = 0;
  int n = 0;
  for (int i = length / 10; i < length - length / 10; i += std::max(1, length / 40)) {
    const double x = horizontal ? seam : i + 0.5, y = horizontal ? i + 0.5 : seam;
    const Rotation rb = RotationAt(LineTime(b, x, y));
    const double cx = (x - w / 2.0) / focal_, cy = (y - h / 2.0) / focal_;
    const double d[3] = {rb.m[0] * cx + rb.m[1] * cy + rb.m[2],
                         rb.m[3] * cx + rb.m[4] * cy + rb.m[5],
                         rb.m[6] * cx + rb.m[7] * cy + rb.m[8]};
    // In frame a, at the time of the line it lands on.
    double xa = x, ya = y;
    for (int iter = 0; iter < 4; ++iter) {
      const Rotation ra = RotationAt(LineTime(a, xa, ya));
      const double* m = ra.m;  // world to camera: the transpose
      const double qx = m[0] * d[0] + m[3] * d[1] + m[6] * d[2];
      const double qy = m[1] * d[0] + m[4] * d[1] + m[7] * d[2];
      const double qz = m[2] * d[0] + m[5] * d[1] + m[8] * d[2];
      if (qz <= 1e-6) return {0, 0};
      xa = w / 2.0 + focal_ * qx / qz;
      ya = h / 2.0 + focal_ * qy / qz;
    }
    sx += xa - x;
    sy += ya - y;
    ++n;
  }
  return {sx / n, sy / n};
}

TruthPanorama CameraSim::Panorama(int last) const {
  TruthPanorama pano;
  last = std::clamp(last, 0, rendered() - 1);
  if (last < 0) return pano;
  const bool horizontal = options_.direction < 2;
  const int w = options_.width, h = options_.height;
  // The sweep's frame: yaw turns about the vertical, so the cylinder stands upright for a
  // horizontal sweep; a vertical sweep tilts about the first frame's horizontal axis.
  const double yaw0 = horizontal ? options_.start : 0;
  const double cy0 = std::cos(yaw0 * kRad), sy0 = std::sin(yaw0 * kRad);
  auto along_of = [&](const CameraFrameTruth& t) {
    return horizontal ? focal_ * (t.yaw - yaw0) * kRad : -focal_ * t.pitch * kRad;
  };
  auto cross_of = [&](const CameraFrameTruth& t) {
    return horizontal ? -focal_ * std::tan(t.pitch * kRad) : focal_ * std::tan(t.yaw * kRad);
  };
  double a_lo = 1e30, a_hi = -1e30, c_lo = 1e30, c_hi = -1e30;
  for (int k = 0; k <= last; ++k) {
    a_lo = std::min(a_lo, along_of(truth_[static_cast<std::size_t>(k)]));
    a_hi = std::max(a_hi, along_of(truth_[static_cast<std::size_t>(k)]));
    c_lo = std::min(c_lo, cross_of(truth_[static_cast<std::size_t>(k)]));
    c_hi = std::max(c_hi, cross_of(truth_[static_cast<std::size_t>(k)]));
  }
  const double half_along = (horizontal ? w : h) / 2.0 + 24,
               half_cross = (horizontal ? h : w) / 2.0 + 24;
  const double base_along = along_of(truth_[0]), base_cross = cross_of(truth_[0]);
  pano.along0 = std::floor(a_lo - half_along) - base_along;
  pano.cross0 = std::floor(c_lo - half_cross) - base_cross;
  const int along_n = static_cast<int>(std::ceil(a_hi - a_lo + 2 * half_along)) & ~1;
  const int cross_n = static_cast<int>(std::ceil(c_hi - c_lo + 2 * half_cross)) & ~1;
  pano.width = horizontal ? along_n : cross_n;
  pano.height = horizontal ? cross_n : along_n;
  // One exposure for all: the middle of the sweep's.
  std::vector<double> e(exposures_.begin(), exposures_.begin() + last + 1);
  std::nth_element(e.begin(), e.begin() + static_cast<std::ptrdiff_t>(e.size() / 2), e.end());
  const double scale = options_.light * e[e.size() / 2];
  Rgb rgb;
  rgb.width = pano.width;
  rgb.height = pano.height;
  rgb.pixels.resize(static_cast<std::size_t>(pano.width) * pano.height * 3);
  ForRows(pano.height, [&](int y) {
    for (int x = 0; x < pano.width; ++x) {
      const double a = (horizontal ? x : y) + 0.5 + pano.along0 + base_along;
      const double c = (horizontal ? y : x) + 0.5 + pano.cross0 + base_cross;
      const double alpha = a / focal_;
      double d[3];
      if (horizontal) {
        d[0] = std::sin(alpha), d[1] = c / focal_, d[2] = std::cos(alpha);
      } else {
        d[0] = c / focal_, d[1] = std::sin(alpha), d[2] = std::cos(alpha);
      }
      // Turned to the sweep's yaw.
      const double wx = cy0 * d[0] + sy0 * d[2], wz = -sy0 * d[0] + cy0 * d[2];
      float s[3];
      scene_->Sample(wx, d[1], wz, s);
      std::uint8_t* out = &rgb.pixels[(static_cast<std::size_t>(y) * pano.width + x) * 3];
      for (int k = 0; k < 3; ++k)
        out[k] = static_cast<std::uint8_t>(
            std::lround(255 * LinearToSrgb(std::clamp(s[k] * scale, 0.0, 1.0))));
    }
  });
  const Yuv420 yuv = RgbToYuv420(rgb, ZMOS_FORMAT_I420);
  pano.y.assign(yuv.y(), yuv.y() + yuv.luma_size());
  const std::size_t quarter = yuv.luma_size() / 4;
  pano.u.assign(yuv.chroma(), yuv.chroma() + quarter);
  pano.v.assign(yuv.chroma() + quarter, yuv.chroma() + 2 * quarter);
  return pano;
}

bool CameraSim::WriteTruth(const std::string& path, std::string* error) const {
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) {
    *error = "cannot write " + path;
    return false;
  }
  std::fputs("frame,time,yaw,pitch,roll,exposure_ms,gain,ev,clipped,blur_px,travel_x,travel_y\n",
             f);
  double tx = 0, ty = 0;
  for (int k = 0; k < rendered(); ++k) {
    if (k > 0) {
      const auto step = SeamTravel(k - 1, k);
      tx += step[0];
      ty += step[1];
    }
    const CameraFrameTruth& t = truth_[static_cast<std::size_t>(k)];
    std::fprintf(f, "%d,%.4f,%.4f,%.4f,%.4f,%.4f,%.3f,%.4f,%.5f,%.3f,%.3f,%.3f\n", k, t.time, t.yaw,
                 t.pitch, t.roll, t.exposure_ms, t.gain, t.ev, t.clipped, t.blur_px, tx, ty);
  }
  const bool ok = std::fclose(f) == 0;
  if (!ok) *error = "cannot write " + path;
  return ok;
}

}  // namespace lumivex::tools
