// lumivex simulate: a sweep over a photograph, with its ground truth.
#include <cstdio>
#include <filesystem>
#include <string_view>

#include "tools/capture/capture.h"
#include "tools/cli/commands.h"
#include "tools/io/image_files.h"
#include "tools/io/output_file.h"
#include "tools/io/y4m_writer.h"
#include "tools/sim/codec.h"

namespace lumivex::tools::cli {
namespace {

// Options of one model only start their help with "[camera]" or "[slide]".
constexpr Option kSimulateOptions[] = {
    {"-o", "SWEEP.y4m", "the frames (- for stdout)"},
    {"--model", "M",
     "camera (default): a phone turning inside a panoramic photograph; slide: a\n"
     "window slid in whole pixels over a flat one"},
    {"--size", "WxH", "frame size (default 640x480; taller than wide is a phone held upright)"},
    {"--direction", "D", "right, left, down or up (default right)"},
    {"--seed", "N", "random seed (default 1)"},
    {"--truth", "CSV", "ground truth, a line a frame (default: SWEEP with .csv)"},
    {"--speed", "S",
     "camera: degrees a second (default 28 to 45 by seed); slide: pixels a frame\n"
     "(default width/40)"},
    {"--noise", "N", "camera: sensor noise, 1 a phone's (default); slide: sigma in luma steps"},
    {"--light", "L", "[camera] day (default), dusk, night, or a number (1 = day)"},
    {"--fov", "DEG", "[camera] field of view across the long side (default 66)"},
    {"--wobble", "DEG", "[camera] cross-axis and roll wobble of the hand (default 1.2)"},
    {"--jerks", "N", "[camera] sudden jerks a second (default 0.3)"},
    {"--readout-ms", "MS", "[camera] rolling shutter, first to last sensor line (default 22)"},
    {"--highlights", "K", "[camera] how far near-white parts exceed white (default 3)"},
    {"--vignetting", "V", "[camera] light lost at the corners (default 0.2)"},
    {"--codec", nullptr, "[camera] the frames go through H.264 at a phone's bitrate"},
    {"--duration", "S", "[camera] seconds of sweep (default: as long as 180 degrees needs)"},
    {"--start", "DEG", "[camera] where the sweep starts along its axis (yaw or pitch)"},
    {"--pano", "P", "[camera] equirect (default) or cylindrical: the photograph's projection"},
    {"--pano-fov", "HxV", "[camera] what the photograph covers, degrees (default 360x180)"},
    {"--truth-panorama", "PNG", "[camera] the swept band at one exposure, for comparison"},
    {"--jitter", "PX", "[slide] hand wander across the sweep"},
    {"--drift", "PX", "[slide] steady motion across the sweep, per frame"},
    {"--exposure", "F", "[slide] brightness change over the sweep (0.1 = +10 %)"},
    {"--too-fast-at", "N", "[slide] frame N jumps three strips at once"},
    {"--backward-at", "N", "[slide] frames N.. move backwards (--backward-frames, default 8)"},
    {"--backward-frames", "N", "[slide] how many"},
    {"--steady", nullptr, "[slide] every step exactly --speed pixels"},
    {"--plain", "W", "[slide] a plain wall W frame widths long across the middle"},
    {"--frames", "N", "[slide] number of frames (default: a full sweep and a margin)"},
    {"-y", nullptr, "overwrite an existing SWEEP"},
    {"-n", nullptr, "never overwrite it"},
};

bool OfModel(const Option& o, const char* model) {
  return std::string_view(o.help).rfind(std::string("[") + model + "]", 0) == 0;
}

// The numeric options, each in its own range: one line of why for the first bad one.
std::string ReadNumbers(const Parsed& p, double* speed, double* noise, CameraSimOptions* c,
                        SimOptions* s) {
  struct Number {
    const char* name;
    double* target;
    double lo, hi;
  };
  const Number numbers[] = {
      {"--speed", speed, 0, 1000},
      {"--noise", noise, 0, 100},
      {"--fov", &c->fov, 10, 150},
      {"--wobble", &c->wobble, 0, 30},
      {"--jerks", &c->jerks, 0, 20},
      {"--readout-ms", &c->readout_ms, 0, 100},
      {"--highlights", &c->highlights, 0, 100},
      {"--vignetting", &c->vignetting, 0, 1},
      {"--duration", &c->duration, 0, 600},
      {"--start", &c->start, -360, 360},
      {"--jitter", &s->jitter, 0, 1000},
      {"--drift", &s->drift, -1000, 1000},
      {"--exposure", &s->exposure, -1, 10},
      {"--plain", &s->plain, 0, 100},
  };
  for (const Number& n : numbers) {
    if (!p.Has(n.name)) continue;
    double v = 0;
    if (!ParseDouble(p.Get(n.name), &v) || v < n.lo || v > n.hi)
      return std::string(n.name) + " takes a number from " +
             std::to_string(static_cast<int>(n.lo)) + " to " +
             std::to_string(static_cast<int>(n.hi));
    *n.target = v;
  }
  const std::pair<const char*, int*> whole[] = {{"--too-fast-at", &s->too_fast_at},
                                                {"--backward-at", &s->backward_at},
                                                {"--backward-frames", &s->backward_frames},
                                                {"--frames", &s->frames}};
  for (const auto& [name, target] : whole) {
    long long v = 0;
    if (!p.Has(name)) continue;
    if (!ParseInt(p.Get(name), -1, 100000, &v)) return std::string(name) + " takes a whole number";
    *target = static_cast<int>(v);
  }
  return "";
}

// What the camera model's photograph is: its projection and field of view.
std::string ReadPanorama(const Parsed& p, CameraSimOptions* c) {
  if (p.Has("--pano")) {
    const std::string pano = p.Get("--pano");
    if (pano != "equirect" && pano != "cylindrical") return "--pano is equirect or cylindrical";
    c->projection =
        pano == "equirect" ? PanoProjection::kEquirectangular : PanoProjection::kCylindrical;
  }
  if (p.Has("--pano-fov")) {
    int hf = 0, vf = 0;
    if (!ParseSize(p.Get("--pano-fov"), &hf, &vf) || hf > 360 || vf > 180)
      return "--pano-fov takes HxV degrees, e.g. 120x60";
    c->pano_hfov = hf;
    c->pano_vfov = vf;
  }
  return "";
}

}  // namespace

const CommandSpec kSimulate{
    "simulate", "PHOTO -o SWEEP.y4m",
    "Frames of a hand-held sweep over PHOTO, with the truth of every frame. The camera model\n"
    "turns a pinhole camera inside a panoramic photograph (equirectangular, 360 x 180, unless\n"
    "--pano says otherwise) with rolling shutter, motion blur, sensor noise, an exposure loop\n"
    "that clips highlights, vignetting and optionally H.264; the slide model cuts windows out\n"
    "of a flat photograph.\n",
    kSimulateOptions};

Reading ReadSimulate(std::span<const std::string> args, SimulateOptions* out) {
  Reading r;
  Parsed p;
  if (!StartReading(kSimulate, args, &p, &r)) return r;
  if (p.positional.size() != 1 || p.Get("-o").empty())
    return UsageError("simulate needs PHOTO and -o SWEEP.y4m (see lumivex simulate --help)");
  out->photo = p.positional[0];
  out->output = p.Get("-o");
  out->truth = p.Get("--truth");
  out->truth_panorama = p.Get("--truth-panorama");
  const std::string model = p.Get("--model", "camera");
  if (model != "camera" && model != "slide") return UsageError("--model is camera or slide");
  out->camera = model == "camera";
  for (const Option& o : kSimulateOptions) {
    const bool given = p.Has(o.name) || p.Flag(o.name);
    const char* other = out->camera ? "slide" : "camera";
    if (given && OfModel(o, other))
      return UsageError(std::string(o.name) + " is an option of --model " + other);
  }
  int w = 640, h = 480;
  if (p.Has("--size") && !ParseSize(p.Get("--size"), &w, &h))
    return UsageError("--size takes WxH, e.g. 640x480");
  std::string size_error;
  if (!CheckFrameSize(w, h, &size_error)) return UsageError(size_error);
  int direction = 0;
  if (p.Has("--direction") && !ParseDirection(p.Get("--direction"), &direction))
    return UsageError("--direction is right, left, down or up");
  long long seed = 1;
  if (p.Has("--seed") && !ParseInt(p.Get("--seed"), 0, INT64_MAX, &seed))
    return UsageError("--seed takes a whole number");
  CameraSimOptions& c = out->cam;
  SimOptions& s = out->slide;
  double speed = 0, noise = -1;
  if (const std::string error = ReadNumbers(p, &speed, &noise, &c, &s); !error.empty())
    return UsageError(error);
  c.width = s.width = w;
  c.height = s.height = h;
  c.direction = s.direction = direction;
  c.seed = s.seed = static_cast<std::uint64_t>(seed);
  c.speed = s.speed = speed;
  if (noise >= 0) c.noise = s.noise = noise;
  if (p.Has("--light") && !ParseLight(p.Get("--light"), &c.light))
    return UsageError("--light is day, dusk, night or a number above 0");
  if (const std::string error = ReadPanorama(p, &c); !error.empty()) return UsageError(error);
  s.steady = p.Flag("--steady");
  out->codec = p.Flag("--codec");
  out->overwrite = p.Flag("-y");
  out->keep = p.Flag("-n");
  return r;
}

int Simulate(const SimulateOptions& o) {
  CleanUpOnInterrupt();
  const bool to_stdout = o.output == "-";
  OutputFile out;
  std::string error;
  if (!to_stdout) {
    if (const int status = CheckOverwrite(o.output, o.overwrite, o.keep); status != kOk)
      return status;
    if (!out.Open(o.output, &error)) return Fail(kWriteFailed, error);
  }
  Rgb photo;
  if (!ReadImage(o.photo, &photo, &error)) return Fail(kBadInput, error);
  std::string truth = o.truth;
  if (truth.empty() && !to_stdout)
    truth = std::filesystem::path(o.output).replace_extension(".csv").string();
  Y4mWriter writer;
  if (!writer.Open(to_stdout ? "-" : out.temp_path(), o.cam.width, o.cam.height, 30, &error))
    return Fail(kWriteFailed, error);
  int frames = 0;
  if (o.camera) {
    CameraSim sim(photo, o.cam);
    H264RoundTrip codec;
    if (o.codec && !codec.Open(o.cam.width, o.cam.height, o.cam.fps, kPhoneBitsPerPixel, &error))
      return Fail(kBadInput, error);
    Yuv420 frame;
    while (sim.Next(&frame)) {
      if (o.codec && !codec.Process(&frame, &error)) return Fail(kBadInput, error);
      if (!writer.Write(frame)) return Fail(kWriteFailed, "cannot write " + o.output);
    }
    frames = sim.rendered();
    if (!truth.empty() && !sim.WriteTruth(truth, &error)) return Fail(kWriteFailed, error);
    if (!o.truth_panorama.empty()) {
      const TruthPanorama t = sim.Panorama(sim.rendered() - 1);
      Yuv420 img(t.width, t.height, ZMOS_FORMAT_I420);
      std::copy(t.y.begin(), t.y.end(), img.y());
      std::copy(t.u.begin(), t.u.end(), img.chroma());
      std::copy(t.v.begin(), t.v.end(), img.chroma() + t.u.size());
      const ZMOSIMAGE view = img.Image();
      if (!WriteImage(o.truth_panorama, ImageToRgb(view), &error)) return Fail(kWriteFailed, error);
    }
  } else {
    const SlideSim sim(photo, o.slide);
    for (int k = 0; k < sim.frames(); ++k)
      if (!writer.Write(sim.Frame(k))) return Fail(kWriteFailed, "cannot write " + o.output);
    frames = sim.frames();
    if (!truth.empty() && !sim.WriteTruth(truth, &error)) return Fail(kWriteFailed, error);
  }
  if (!writer.Close(&error)) return Fail(kWriteFailed, error);
  if (!to_stdout && !out.Commit(&error)) return Fail(kWriteFailed, error);
  std::fprintf(stderr, "%d frames of %dx%d, %s%s%s\n", frames, o.cam.width, o.cam.height,
               DirectionName(o.cam.direction), truth.empty() ? "" : ", truth in ", truth.c_str());
  return kOk;
}

}  // namespace lumivex::tools::cli
