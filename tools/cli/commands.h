// The lumivex program's commands, each an options record read from its own option table
// (tested without running the program) and a function that does the work.
#ifndef LUMIVEX_TOOLS_CLI_COMMANDS_H_
#define LUMIVEX_TOOLS_CLI_COMMANDS_H_

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "lumivex/lumivex.h"
#include "tools/cli/options.h"
#include "tools/io/frame_source.h"
#include "tools/io/output_file.h"
#include "tools/sim/camera_sim.h"
#include "tools/sim/slide_sim.h"

namespace lumivex::tools::cli {

// Exit statuses, one per kind of failure.
enum Exit {
  kOk = 0,
  kUsage = 1,
  kBadInput = 2,
  kEngineInit = 3,
  kWriteFailed = 4,
  kLowTexture = 5,
  kWentWrong = 6,
  kTooFast = 7,
  kTooShort = 8,
};

// Prints "lumivex: MESSAGE" on stderr and returns `status`.
int Fail(int status, const std::string& message);

// Reading a command's arguments: kOk with the options filled, kUsage with one line of
// why, or the help asked for (`help` set).
struct Reading {
  int status = kOk;
  std::string error;
  bool help = false;
};

// A usage error: status kUsage and its one line.
inline Reading UsageError(std::string why) {
  Reading r;
  r.status = kUsage;
  r.error = std::move(why);
  return r;
}

// How every command's reader starts: `args` parsed by `spec` into *parsed. False when the
// reading is already decided in *r: a usage error (pointing at the command's help) or
// --help.
bool StartReading(const CommandSpec& spec, std::span<const std::string> args, Parsed* parsed,
                  Reading* r);

struct StitchOptions {
  std::string input, output;
  int raw_width = 0, raw_height = 0;  // raw input's size (--size)
  std::uint32_t format = ZMOS_FORMAT_NV21;
  std::string debug_dir;
  std::int32_t profile = ZMOS_PROFILE_QUALITY;
  std::int32_t angle = 180;
  int quality = 92;
  bool json = false, quiet = false, overwrite = false, keep = false;
};
extern const CommandSpec kStitch;
Reading ReadStitch(std::span<const std::string> args, StitchOptions* out);
int Stitch(const StitchOptions& options);

struct SimulateOptions {
  std::string photo, output, truth, truth_panorama;
  bool camera = true;  // --model camera (default) or slide
  CameraSimOptions cam;
  SimOptions slide;
  bool codec = false;
  bool overwrite = false, keep = false;
};
extern const CommandSpec kSimulate;
Reading ReadSimulate(std::span<const std::string> args, SimulateOptions* out);
int Simulate(const SimulateOptions& options);

struct EvalOptions {
  std::vector<std::string> photos;
  std::vector<std::pair<int, int>> sizes{{640, 480}, {1280, 720}};
  std::vector<int> directions{0, 1, 2, 3};
  std::vector<std::int32_t> profiles{ZMOS_PROFILE_EXACT, ZMOS_PROFILE_QUALITY};
  bool hand_held = true, corrections = true, camera = false;
  double jitter = 1;
  int seeds = 3;
  std::vector<bool> codecs{false, true};
  std::string report_dir = "lumivex-eval";
  bool json = false;
};
extern const CommandSpec kEval;
Reading ReadEval(std::span<const std::string> args, EvalOptions* out);
int Eval(const EvalOptions& options);

struct DemoOptions {
  std::string dir = "lumivex-demo";
  std::int32_t profile = ZMOS_PROFILE_QUALITY;
};
extern const CommandSpec kDemo;
Reading ReadDemo(std::span<const std::string> args, DemoOptions* out);
int Demo(const DemoOptions& options, const std::string& program);

// Where the demo's photograph lives: $LUMIVEX_ASSETS, beside the program, the install's
// share/lumivex, or the source tree the program was built from.
std::string AssetsDir(const std::string& program);

bool ParseProfile(const std::string& name, std::int32_t* profile);

// Stitches `first` and the rest of `source` into `out` (committed when written) and prints
// the summary; the preview too, when a path is given. The exit status.
int StitchFrames(FrameSource& source, Yuv420 first, const StitchOptions& options, OutputFile& out,
                 const std::string& preview_path);

// -y overwrites an existing output, -n keeps it; without either a terminal is asked and
// anything else is refused (kWriteFailed with a line) rather than losing a file unasked.
int CheckOverwrite(const std::string& path, bool overwrite, bool keep);

}  // namespace lumivex::tools::cli

#endif  // LUMIVEX_TOOLS_CLI_COMMANDS_H_
