// A phone camera turning inside a panoramic photograph, as a hand sweeps it: a pinhole
// camera whose yaw, pitch and roll follow a hand-held motion (a speed that varies, wobble,
// the occasional jerk), read out line by line (rolling shutter), blurred over its exposure
// time, with an auto-exposure loop that reacts to the scene and clips highlights, lens
// vignetting and sensor noise. Light is handled linearly; the output goes through a tone
// curve to 8 bits, as a phone's preview does. Deterministic for a given seed.
//
// The ground truth: every frame's orientation and exposure, the true travel between any
// two frames at the seam line the engine cuts, and a panorama of the swept band as a
// still camera of fixed exposure would see it (cylindrical about the sweep's axis, of the
// camera's focal length: what a perfect strip mosaic approaches).
#ifndef LUMIVEX_TOOLS_SIM_CAMERA_SIM_H_
#define LUMIVEX_TOOLS_SIM_CAMERA_SIM_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/io/picture.h"

namespace lumivex::tools {

// How the photograph maps directions to pixels.
enum class PanoProjection { kEquirectangular, kCylindrical };

// The scene's brightness: daylight needs exposures of about 1/1500 s at base gain, dusk
// about 1/50 s, a night street the longest exposure the frame rate allows and 8x gain.
inline constexpr double kDaylight = 1.0, kDusk = 0.03, kNight = 0.0025;

struct CameraSimOptions {
  int width = 640;
  int height = 480;
  int direction = 0;  // engine codes: 0 right, 1 left, 2 down, 3 up
  double fov = 66;    // degrees across the sensor's long side
  double fps = 30;
  double speed = 0;        // degrees a second along the sweep; 0: 28 to 45, by seed
  double wobble = 1.2;     // cross-axis and roll wobble, degrees
  double jerks = 0.3;      // sudden jerks of the hand, a second
  double readout_ms = 22;  // rolling shutter: first to last sensor line
  double light = kDaylight;
  double highlights = 3;    // how far the photograph's near-white parts exceed white
  double vignetting = 0.2;  // light lost at the frame's corners
  double noise = 1;         // sensor noise, 1 for a phone's small pixels, 0 for none
  bool auto_exposure = true;
  double start = 1e9;   // along-axis start angle (degrees); 1e9: a default per direction
  double duration = 0;  // seconds; 0: as long as the engine's 180-degree sweep needs
  std::uint64_t seed = 1;
  std::uint32_t format = ZMOS_FORMAT_NV21;
  PanoProjection projection = PanoProjection::kEquirectangular;
  double pano_hfov = 360, pano_vfov = 180;  // what the photograph covers, degrees
};

// One frame's truth, at the mid-exposure of its centre line.
struct CameraFrameTruth {
  double time = 0;                      // seconds
  double yaw = 0, pitch = 0, roll = 0;  // degrees
  double exposure_ms = 0, gain = 1;     // the auto-exposure's choice
  double ev = 0;                        // log2 of the exposure relative to frame 0
  double clipped = 0;                   // share of pixels clipped to white
  double blur_px = 0;                   // motion blur length at the centre
};

// A panorama of the swept band at one exposure: luma, and chroma at half resolution.
struct TruthPanorama {
  int width = 0, height = 0;
  std::vector<std::uint8_t> y;     // width x height
  std::vector<std::uint8_t> u, v;  // (width / 2) x (height / 2)
  // The truth pixel (0, 0) lies at these sweep coordinates: along the sweep and across
  // it, in pixels of the camera's focal length, with the first frame's centre at (0, 0).
  double along0 = 0, cross0 = 0;
};

class Rng;

class CameraSim {
 public:
  // Prepares the scene (linear light, highlights extended) and the hand's path.
  CameraSim(const Rgb& photo, const CameraSimOptions& options);
  ~CameraSim();
  CameraSim(const CameraSim&) = delete;
  CameraSim& operator=(const CameraSim&) = delete;

  // Frames the path holds; Next renders them in order (the exposure loop reacts to each).
  int frames() const { return frames_; }
  int rendered() const { return static_cast<int>(truth_.size()); }
  bool Next(Yuv420* frame);
  const std::vector<CameraFrameTruth>& truth() const { return truth_; }
  double focal() const { return focal_; }
  bool horizontal() const { return options_.direction < 2; }
  const CameraSimOptions& options() const { return options_; }

  // Where frame b's seam line (the centre column of a horizontal sweep, the centre row of
  // a vertical one) lies in frame a, minus where it lies in b, averaged over the line's
  // middle 80 %: the offset that aligns the two at the seam, in the engine's convention
  // (x grows with a turn to the right, y with a turn down). Frames must be rendered.
  std::array<double, 2> SeamTravel(int a, int b) const;
  // The band swept by frames [0, last], at the median exposure of those frames, without
  // noise, blur or vignetting.
  TruthPanorama Panorama(int last) const;
  // One line a frame: time, orientation, exposure, blur, travel since frame 0.
  bool WriteTruth(const std::string& path, std::string* error) const;

 private:
  struct Scene;
  struct Pose {
    double along, cross, roll;
  };
  struct Rotation {
    double m[9];
  };
  void LoadScene(const Rgb& photo);
  void PlanPath(Rng& rng, double speed, double reach, double duration);
  Pose PoseAt(double t) const;
  Rotation RotationAt(double t) const;
  double LineTime(int frame, double x, double y) const;
  double RenderLinear(int frame, double exposure, int stride, std::vector<float>* rgb,
                      double* clipped) const;

  CameraSimOptions options_;
  Scene* scene_ = nullptr;
  double focal_ = 0;
  int frames_ = 0;
  double exposure_ = 0;     // the loop's current exposure (seconds x gain x calibration)
  std::vector<Pose> path_;  // one a millisecond
  std::vector<CameraFrameTruth> truth_;
  std::vector<double> exposures_;
  std::vector<float> scratch_;
};

bool ParseLight(const std::string& text, double* light);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_SIM_CAMERA_SIM_H_
