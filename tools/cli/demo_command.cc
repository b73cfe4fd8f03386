// lumivex demo: a camera-true sweep over the bundled photograph, stitched as a phone would.
#include <chrono>
#include <cstdio>
#include <filesystem>

#include "tools/cli/commands.h"
#include "tools/io/image_files.h"

namespace lumivex::tools::cli {
namespace {

constexpr Option kDemoOptions[] = {
    {"-o", "DIR", "where the panorama, the preview and the truth go (default lumivex-demo)"},
    {"--profile", "P", "exact or quality (default)"},
};

// The simulated camera, fed to the capture as a camera delivers its frames.
class SimSource : public FrameSource {
 public:
  explicit SimSource(CameraSim& sim) : sim_(sim) {}
  bool Next(Yuv420* frame) override { return sim_.Next(frame); }
  // Frames the sweep did not need are not rendered at all.
  int SkipRest() override { return sim_.frames() - sim_.rendered(); }

 private:
  CameraSim& sim_;
};

}  // namespace

const CommandSpec kDemo{
    "demo", "",
    "Simulates a phone turning through a 180-degree sweep (640 x 480, left to right, a hand\n"
    "that wobbles, daylight) inside the panoramic photograph in assets/, and stitches it as\n"
    "a phone would. Writes DIR/panorama.jpg, DIR/preview.png and DIR/sweep.csv.\n",
    kDemoOptions};

Reading ReadDemo(std::span<const std::string> args, DemoOptions* out) {
  Reading r;
  Parsed p;
  if (!StartReading(kDemo, args, &p, &r)) return r;
  if (!p.positional.empty()) return UsageError("demo takes no INPUT (see lumivex demo --help)");
  if (!ParseProfile(p.Get("--profile", "quality"), &out->profile)) {
    r.status = kUsage;
    r.error = "--profile is exact or quality";
    return r;
  }
  out->dir = p.Get("-o", out->dir);
  return r;
}

int Demo(const DemoOptions& d, const std::string& program) {
  CleanUpOnInterrupt();
  const std::string photo_path = AssetsDir(program) + "/mountain-360-5000x2500.jpg";
  Rgb photo;
  std::string error;
  if (!ReadImage(photo_path, &photo, &error)) return Fail(kBadInput, error);
  std::error_code ec;
  std::filesystem::create_directories(d.dir, ec);
  if (ec) return Fail(kWriteFailed, "cannot create " + d.dir + ": " + ec.message());
  OutputFile out;
  if (!out.Open(d.dir + "/panorama.jpg", &error)) return Fail(kWriteFailed, error);
  const auto t0 = std::chrono::steady_clock::now();
  CameraSim sim(photo, CameraSimOptions{});
  SimSource source(sim);
  std::printf("simulated sweep  %dx%d, %s, over %s (CC BY-SA 3.0, Matthew Petroff)\n",
              sim.options().width, sim.options().height, "left to right", photo_path.c_str());
  Yuv420 first;
  if (!source.Next(&first)) return Fail(kBadInput, "the simulated sweep is empty");
  StitchOptions options;
  options.output = out.target();
  options.profile = d.profile;
  const int status = StitchFrames(source, std::move(first), options, out, d.dir + "/preview.png");
  if (!sim.WriteTruth(d.dir + "/sweep.csv", &error)) return Fail(kWriteFailed, error);
  std::printf("total time       %.1f s\n",
              std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
  return status;
}

}  // namespace lumivex::tools::cli
