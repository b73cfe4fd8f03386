// lumivex: stitch recorded sweeps, simulate sweeps from photographs with ground truth,
// score the engine on them, and a demo that runs out of the box.
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "lumivex/lumivex.h"
#include "tools/capture.h"
#include "tools/eval.h"
#include "tools/frame_source.h"
#include "tools/image_io.h"
#include "tools/simulate.h"

namespace {

using namespace lumivex::tools;

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

const char kUsageText[] =
    "usage: lumivex <command> [options]\n"
    "\n"
    "commands:\n"
    "  demo                     simulate a sweep over the bundled photograph and stitch it\n"
    "  stitch INPUT -o PANO     stitch a recorded sweep into PANO (.jpg or .png)\n"
    "  simulate PHOTO -o Y4M    cut a sweep out of a photograph, with its ground truth\n"
    "  eval PHOTO...            simulate, stitch and score sweeps over photographs\n"
    "  version                  print the engine version (also --version)\n"
    "\n"
    "'lumivex COMMAND --help' describes a command.\n"
    "\n"
    "exit status: 0 panorama written, 1 usage, 2 bad input, 3 engine could not start,\n"
    "4 output not written, 5 too little texture, 6 sweep went wrong, 7 too fast,\n"
    "8 sweep too short (the result is the first frame)\n";

const std::map<std::string, std::string> kHelp = {
    {"demo",
     "usage: lumivex demo [-o DIR] [--profile exact|quality]\n"
     "Simulates a 180-degree sweep (640 x 480, left to right, a little hand shake) over the\n"
     "photograph in assets/ and stitches it as a phone would. Writes DIR/panorama.jpg,\n"
     "DIR/preview.png and DIR/sweep.csv (default DIR: lumivex-demo).\n"},
    {"stitch",
     "usage: lumivex stitch INPUT -o PANO.jpg|PANO.png [options]\n"
     "INPUT: any video ffmpeg reads (clip.mp4, a .y4m file, - for a stream on stdin), a\n"
     "folder of JPEG/PNG frames (in numeric order), a text file listing them, or raw frames\n"
     "(with --size; - for stdin).\n"
     "  --angle DEG       the sweep to capture, 30 to 360 degrees (default 180, as the phone)\n"
     "  --size WxH        frame size of raw input\n"
     "  --format nv21|i420  the layout of raw input and the one fed to the engine (default nv21)\n"
     "  --debug-dir DIR   previews after each kept frame, frames.csv and frames.json (every\n"
     "                    frame), panorama-seams.png (seams numbered, overlaps tinted)\n"
     "  --profile P       exact (the engine unchanged) or quality (default: corrects\n"
     "                    small-step drift, sky at the start and chroma at odd seams)\n"
     "  --quality N       JPEG quality, 1 to 100 (default 92)\n"
     "  --json            the summary as one JSON object on stdout\n"
     "  -y / -n           overwrite an existing PANO / never overwrite it (without either, a\n"
     "                    terminal is asked and anything else refused)\n"
     "  --quiet           no progress bar\n"
     "Options may also be given as --option=value.\n"},
    {"simulate",
     "usage: lumivex simulate PHOTO -o SWEEP.y4m [options]\n"
     "  --size WxH             frame size (default 640x480)\n"
     "  --direction D          right, left, down or up (default right)\n"
     "  --speed PX             pixels a frame along the sweep (default width/40)\n"
     "  --jitter PX            hand wander across the sweep\n"
     "  --drift PX             steady motion across the sweep, per frame\n"
     "  --noise SIGMA          sensor noise in luma steps\n"
     "  --exposure F           brightness change over the sweep (0.1 = +10 %)\n"
     "  --too-fast-at N        frame N jumps three strips at once\n"
     "  --steady               every step exactly --speed pixels, no jitter or noise unless asked\n"
     "  --plain W              a plain wall W frame widths long across the middle of the sweep\n"
     "  --backward-at N        frames N.. move backwards (--backward-frames, default 8)\n"
     "  --frames N             number of frames (default: a full sweep and a margin)\n"
     "  --seed N               random seed (default 1)\n"
     "  --truth CSV            ground truth (default: SWEEP with .csv)\n"},
    {"eval",
     "usage: lumivex eval PHOTO... [options]\n"
     "Simulates sweeps over each photograph, stitches them under each profile and scores\n"
     "completion, tracking error, luma and chroma PSNR and brightness drift. Writes\n"
     "DIR/report.html (one file: the table, every panorama and its tracking-error chart on\n"
     "both axes) and DIR/report.md with one SVG chart a scenario. A scenario the photograph\n"
     "is too small for (more than 2x enlargement) is reported as such, not scored.\n"
     "  --sizes LIST        hand-held sweeps, e.g. 640x480,1280x720 (default 640x480,1280x720)\n"
     "  --directions LIST   e.g. right,left (default right,left,down,up)\n"
     "  --jitter PX         hand wander (default 1)\n"
     "  --profiles LIST     exact, quality or both (default exact,quality)\n"
     "  --cases LIST        hand-held, corrections or both (default both): the corrections\n"
     "                      are steady 5 and 8 px steps, 854x480 frames, a too-fast frame,\n"
     "                      an exposure ramp and a plain stretch\n"
     "  --report-dir DIR    default lumivex-eval\n"
     "  --json              print the scores as JSON on stdout\n"},
};

struct Args {
  std::vector<std::string> positional;
  std::map<std::string, std::string> options;
  std::vector<std::string> flags;
  bool Flag(const std::string& f) const {
    return std::find(flags.begin(), flags.end(), f) != flags.end();
  }
  std::string Get(const std::string& key, const std::string& fallback = "") const {
    auto it = options.find(key);
    return it != options.end() ? it->second : fallback;
  }
};

int Fail(int status, const std::string& message) {
  std::fprintf(stderr, "lumivex: %s\n", message.c_str());
  return status;
}

// The command's options through getopt_long: `valued` take a value (-o PANO, --size WxH or
// --size=WxH), `flags` do not; anything else is refused. Arguments may come in any order.
bool Parse(int argc, char** argv, const std::vector<std::string>& valued,
           const std::vector<std::string>& flags, Args* out, std::string* error) {
  std::vector<option> longs;
  std::string shorts = ":";        // report a missing value as ':'
  std::vector<std::string> names;  // by getopt's index: long options at 1000 + i
  auto add = [&](const std::string& name, bool takes_value) {
    if (name.size() == 2) {  // -o, -h, -y, -n
      shorts += name[1];
      if (takes_value) shorts += ':';
      return;
    }
    names.push_back(name);
    longs.push_back(option{names.back().c_str() + 2, takes_value ? required_argument : no_argument,
                           nullptr, 1000 + static_cast<int>(names.size()) - 1});
  };
  names.reserve(valued.size() + flags.size() + 1);
  for (const std::string& v : valued) add(v, true);
  for (const std::string& f : flags) add(f, false);
  add("--help", false);
  longs.push_back(option{nullptr, 0, nullptr, 0});
  opterr = 0;
  optind = 0;                  // a fresh scan (glibc)
  const int count = argc - 1;  // from the command on
  char** args = argv + 1;
  for (int c; (c = getopt_long(count, args, shorts.c_str(), longs.data(), nullptr)) != -1;) {
    const std::string seen = optind - 1 < count ? args[optind - 1] : "";
    if (c == '?') {
      if (optopt >= 1000) {  // a known long option given a value it does not take
        *error = names[static_cast<std::size_t>(optopt - 1000)] + " takes no value";
        return false;
      }
      std::string name = seen.substr(0, seen.find('='));
      if (optopt != 0) name = {'-', static_cast<char>(optopt)};
      *error = "unknown option " + name;
      return false;
    }
    if (c == ':') {
      *error = seen.substr(0, seen.find('=')) + " needs a value";
      return false;
    }
    const std::string name = c >= 1000 ? names[static_cast<std::size_t>(c - 1000)]
                                       : std::string{'-', static_cast<char>(c)};
    if (optarg != nullptr)
      out->options[name] = optarg;
    else
      out->flags.push_back(name);
  }
  for (int i = optind; i < count; ++i) out->positional.push_back(args[i]);
  return true;
}

bool ParseSize(const std::string& text, int* w, int* h) {
  char x = 0;
  return std::sscanf(text.c_str(), "%d%c%d", w, &x, h) == 3 && (x == 'x' || x == 'X') && *w > 0 &&
         *h > 0;
}

bool ParseNumber(const std::string& text, double* v) {
  char* end = nullptr;
  *v = std::strtod(text.c_str(), &end);
  return end != text.c_str() && *end == '\0' && std::isfinite(*v);
}

int ExitFor(const Capture& cap) {
  if (cap.end_code() == ZMOS_ERR_NO_TEXTURE) return kLowTexture;
  if (cap.end_code() == ZMOS_ERR_SWEEP_WRONG) return kWentWrong;
  if (cap.end_code() == ZMOS_ERR_TOO_FAST) return kTooFast;
  if (cap.end_code() != 0) return kEngineInit;
  if (cap.narrow()) return kTooShort;
  return kOk;
}

void PrintSummary(const Capture& cap, const std::string& output, int unused) {
  std::printf("frames read      %d\n", cap.frames_read() + unused);
  std::printf("frames kept      %d\n", cap.frames_kept());
  if (cap.frames_coasted() > 0)
    std::printf("frames coasted   %d (too plain to measure; the recent speed was carried)\n",
                cap.frames_coasted());
  std::printf("direction        %s\n", DirectionName(cap.direction()));
  const std::string complete = "sweep complete (" + std::to_string(cap.max_angle()) + " degrees)";
  std::printf("ended            %s\n", cap.complete()        ? complete.c_str()
                                       : cap.end_code() != 0 ? Describe(cap.end_code()).c_str()
                                                             : "end of input");
  if (unused > 0)
    std::printf(
        "frames unused    %d (after the capture ended%s)\n", unused,
        cap.complete() && cap.max_angle() < 360 ? "; --angle 360 takes a longer sweep" : "");
  std::printf("panorama         %d x %d%s\n", cap.panorama().width(), cap.panorama().height(),
              cap.narrow() ? " (narrow: the sweep was too short, this is the first frame)" : "");
  std::printf("time per frame   %.2f ms (selection and preview)\n", cap.ms_per_frame());
  if (!output.empty()) std::printf("wrote            %s\n", output.c_str());
}

// Stitches whatever the source yields; shared by stitch and demo.
// How the stitch command writes what it made.
struct Output {
  std::string path;
  int quality = 92;   // JPEG quality
  bool json = false;  // the summary as JSON on stdout
};

// The summary as one JSON object.
void PrintJson(const Capture& cap, const Output& out, int unused, int status) {
  const std::string ended = cap.complete()        ? "complete"
                            : cap.end_code() != 0 ? Describe(cap.end_code())
                                                  : "end of input";
  std::printf(
      "{\"output\": %s, \"frames_read\": %d, \"frames_kept\": %d, \"frames_unused\": %d, "
      "\"frames_coasted\": %d, \"direction\": %s, \"ended\": %s, \"max_angle\": %d, "
      "\"panorama\": [%d, %d], \"narrow\": %s, \"ms_per_frame\": %.3f, \"exit_status\": %d}\n",
      JsonQuote(out.path).c_str(), cap.frames_read() + unused, cap.frames_kept(), unused,
      cap.frames_coasted(), JsonQuote(DirectionName(cap.direction())).c_str(),
      JsonQuote(ended).c_str(), cap.max_angle(), cap.panorama().width(), cap.panorama().height(),
      cap.narrow() ? "true" : "false", cap.ms_per_frame(), status);
}

int StitchFrames(FrameSource& source, Yuv420 first, std::uint32_t format, const Output& output,
                 CaptureOptions options, const std::string& preview_path) {
  Capture cap(first.width(), first.height(), format, options);
  if (cap.init_result() != 0)
    return Fail(kEngineInit, "the engine could not start: " + Describe(cap.init_result()));
  bool more = cap.Feed(first);
  Yuv420 frame;
  while (more && source.Next(&frame)) {
    if (frame.width() != first.width() || frame.height() != first.height())
      return Fail(kBadInput, "frame size changed in the middle of the input");
    more = cap.Feed(frame);
  }
  // The rest is read too: counted for the summary, and a pipe's writer finishes cleanly.
  int unused = 0;
  while (source.error().empty() && source.Next(&frame)) ++unused;
  if (!source.error().empty()) return Fail(kBadInput, source.error());
  if (!source.warning().empty())
    std::fprintf(stderr, "lumivex: warning: %s\n", source.warning().c_str());
  const std::int32_t stitched = cap.Finish();
  if (stitched != 0 || cap.panorama().width() == 0)
    return Fail(kEngineInit,
                "stitching failed: " + Describe(stitched != 0 ? stitched : ZMOS_ERR_NO_MEMORY));
  std::string error;
  ZMOSIMAGE pano = const_cast<Yuv420&>(cap.panorama()).Image();
  if (!WriteImage(output.path, ImageToRgb(pano), &error, output.quality))
    return Fail(kWriteFailed, error);
  if (!preview_path.empty() && cap.preview().width > 0 &&
      !WriteImage(preview_path, cap.preview(), &error))
    return Fail(kWriteFailed, error);
  if (output.json) {
    PrintJson(cap, output, unused, ExitFor(cap));
    return ExitFor(cap);
  }
  PrintSummary(cap, output.path, unused);
  if (!preview_path.empty() && cap.preview().width > 0)
    std::printf("preview          %s\n", preview_path.c_str());
  return ExitFor(cap);
}

bool ParseProfile(const std::string& name, std::int32_t* profile) {
  if (name == "exact")
    *profile = ZMOS_PROFILE_EXACT;
  else if (name == "quality")
    *profile = ZMOS_PROFILE_QUALITY;
  else
    return false;
  return true;
}

// Like ffmpeg: -y overwrites an existing output, -n keeps it; without either a terminal
// is asked, anything else is refused rather than losing a file unasked.
int CheckOverwrite(const std::string& path, const Args& args) {
  std::error_code ec;
  if (!std::filesystem::exists(path, ec) || args.Flag("-y")) return kOk;
  if (args.Flag("-n")) return Fail(kWriteFailed, path + " already exists; not overwritten (-n)");
  if (isatty(STDIN_FILENO) && isatty(STDERR_FILENO)) {
    std::fprintf(stderr, "File '%s' already exists. Overwrite? [y/N] ", path.c_str());
    char answer[16] = {};
    if (std::fgets(answer, sizeof(answer), stdin) != nullptr &&
        (answer[0] == 'y' || answer[0] == 'Y'))
      return kOk;
    return Fail(kWriteFailed, "not overwriting " + path);
  }
  return Fail(kWriteFailed, path + " already exists: -y overwrites it, -n keeps it");
}

int Stitch(int argc, char** argv) {
  Args args;
  std::string error;
  if (!Parse(argc, argv,
             {"-o", "--size", "--format", "--debug-dir", "--profile", "--angle", "--quality"},
             {"-h", "--quiet", "--json", "-y", "-n"}, &args, &error))
    return Fail(kUsage, error + " (see lumivex stitch --help)");
  if (args.Flag("--help") || args.Flag("-h"))
    return std::fputs(kHelp.at("stitch").c_str(), stdout), kOk;
  if (args.positional.size() != 1 || args.Get("-o").empty())
    return Fail(kUsage, "stitch needs INPUT and -o OUTPUT (see lumivex stitch --help)");
  int w = 0, h = 0;
  if (!args.Get("--size").empty() && !ParseSize(args.Get("--size"), &w, &h))
    return Fail(kUsage, "--size takes WxH, e.g. 640x480");
  const std::string fmt = args.Get("--format", "nv21");
  if (fmt != "nv21" && fmt != "i420") return Fail(kUsage, "--format is nv21 or i420");
  std::int32_t profile = ZMOS_PROFILE_QUALITY;
  if (!ParseProfile(args.Get("--profile", "quality"), &profile))
    return Fail(kUsage, "--profile is exact or quality");
  double angle_value = 180;
  if (!args.Get("--angle").empty() &&
      (!ParseNumber(args.Get("--angle"), &angle_value) || angle_value != std::floor(angle_value) ||
       angle_value < 30 || angle_value > 360))
    return Fail(kUsage, "--angle takes whole degrees from 30 to 360, e.g. --angle 360");
  const auto angle = static_cast<std::int32_t>(angle_value);
  const std::uint32_t format = fmt == "i420" ? ZMOS_FORMAT_I420 : ZMOS_FORMAT_NV21;
  Output output{args.Get("-o"), 92, args.Flag("--json")};
  if (!EndsWith(output.path, ".jpg") && !EndsWith(output.path, ".jpeg") &&
      !EndsWith(output.path, ".png"))
    return Fail(kUsage, "the output must end in .jpg, .jpeg or .png");
  double quality = 92;
  if (!args.Get("--quality").empty() &&
      (!ParseNumber(args.Get("--quality"), &quality) || quality != std::floor(quality) ||
       quality < 1 || quality > 100))
    return Fail(kUsage, "--quality takes a JPEG quality from 1 to 100, e.g. --quality 95");
  output.quality = static_cast<int>(quality);
  if (const int status = CheckOverwrite(output.path, args); status != kOk) return status;
  auto source = OpenFrames(args.positional[0], w, h, format, &error);
  if (!source) return Fail(kBadInput, error);
  Yuv420 first;
  if (!source->Next(&first))
    return Fail(kBadInput, source->error().empty() ? "the input holds no frame" : source->error());
  const std::string debug_dir = args.Get("--debug-dir");
  if (!debug_dir.empty()) {
    std::error_code ec;
    std::filesystem::create_directories(debug_dir, ec);
    if (ec || !std::filesystem::is_directory(debug_dir, ec))
      return Fail(kWriteFailed, "cannot create the debug folder " + debug_dir);
  }
  // In --json mode stdout is the summary alone; the progress bar stays on stderr.
  CaptureOptions options{debug_dir, !args.Flag("--quiet"), true};
  options.profile = profile;
  options.max_angle = angle;
  return StitchFrames(*source, std::move(first), format, output, options, "");
}

bool ReadSimOptions(const Args& args, SimOptions* o, std::string* error) {
  if (!args.Get("--size").empty() && !ParseSize(args.Get("--size"), &o->width, &o->height)) {
    *error = "--size takes WxH, e.g. 640x480";
    return false;
  }
  if ((o->width & 1) || (o->height & 1) || o->width < kMinFrameWidth ||
      o->height < kMinFrameHeight || o->width > kMaxPictureSide || o->height > kMaxPictureSide) {
    *error = "frame sizes must be even, from " + std::to_string(kMinFrameWidth) + "x" +
             std::to_string(kMinFrameHeight) + " to " + std::to_string(kMaxPictureSide) + " a side";
    return false;
  }
  if (!args.Get("--direction").empty() && !ParseDirection(args.Get("--direction"), &o->direction)) {
    *error = "--direction is right, left, down or up";
    return false;
  }
  const std::pair<const char*, double*> numbers[] = {
      {"--speed", &o->speed}, {"--jitter", &o->jitter},     {"--drift", &o->drift},
      {"--noise", &o->noise}, {"--exposure", &o->exposure}, {"--plain", &o->plain}};
  for (const auto& [name, target] : numbers) {
    if (args.Get(name).empty()) continue;
    if (!ParseNumber(args.Get(name), target) || *target < -1000 || *target > 1000) {
      *error = std::string(name) + " takes a number";
      return false;
    }
  }
  const std::pair<const char*, int*> integers[] = {{"--too-fast-at", &o->too_fast_at},
                                                   {"--backward-at", &o->backward_at},
                                                   {"--backward-frames", &o->backward_frames},
                                                   {"--frames", &o->frames}};
  for (const auto& [name, target] : integers) {
    if (args.Get(name).empty()) continue;
    double v = 0;
    if (!ParseNumber(args.Get(name), &v) || v < -1 || v > 100000 || v != std::floor(v)) {
      *error = std::string(name) + " takes a whole number";
      return false;
    }
    *target = static_cast<int>(v);
  }
  if (!args.Get("--seed").empty()) o->seed = std::strtoull(args.Get("--seed").c_str(), nullptr, 10);
  o->steady = args.Flag("--steady");
  return true;
}

int Simulate(int argc, char** argv) {
  Args args;
  std::string error;
  if (!Parse(argc, argv,
             {"-o", "--size", "--direction", "--speed", "--jitter", "--drift", "--noise",
              "--exposure", "--too-fast-at", "--backward-at", "--backward-frames", "--frames",
              "--seed", "--truth", "--plain"},
             {"-h", "--steady", "-y", "-n"}, &args, &error))
    return Fail(kUsage, error + " (see lumivex simulate --help)");
  if (args.Flag("--help") || args.Flag("-h"))
    return std::fputs(kHelp.at("simulate").c_str(), stdout), kOk;
  if (args.positional.size() != 1 || args.Get("-o").empty())
    return Fail(kUsage, "simulate needs PHOTO and -o SWEEP.y4m (see lumivex simulate --help)");
  SimOptions o;
  if (!ReadSimOptions(args, &o, &error)) return Fail(kUsage, error);
  if (args.Get("-o") != "-") {
    if (const int status = CheckOverwrite(args.Get("-o"), args); status != kOk) return status;
  }
  Rgb photo;
  if (!ReadImage(args.positional[0], &photo, &error)) return Fail(kBadInput, error);
  const Simulator sim(photo, o);
  const std::string out = args.Get("-o");
  Y4mWriter writer;
  if (!writer.Open(out, o.width, o.height, 30, &error)) return Fail(kWriteFailed, error);
  for (int k = 0; k < sim.frames(); ++k)
    if (!writer.Write(sim.Frame(k))) return Fail(kWriteFailed, "cannot write " + out);
  if (!writer.Close(&error)) return Fail(kWriteFailed, error);
  std::string truth = args.Get("--truth");
  if (truth.empty() && out != "-")
    truth = std::filesystem::path(out).replace_extension(".csv").string();
  if (!truth.empty() && !sim.WriteTruth(truth, &error)) return Fail(kWriteFailed, error);
  std::fprintf(stderr, "%d frames of %dx%d, %s%s%s\n", sim.frames(), o.width, o.height,
               DirectionName(o.direction), truth.empty() ? "" : ", truth in ", truth.c_str());
  return kOk;
}

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t comma = text.find(',', start);
    const std::string part =
        text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    if (!part.empty()) parts.push_back(part);
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return parts;
}

int Eval(int argc, char** argv) {
  Args args;
  std::string error;
  if (!Parse(argc, argv,
             {"--sizes", "--directions", "--jitter", "--report-dir", "--profiles", "--cases"},
             {"-h", "--json"}, &args, &error))
    return Fail(kUsage, error + " (see lumivex eval --help)");
  if (args.Flag("--help") || args.Flag("-h"))
    return std::fputs(kHelp.at("eval").c_str(), stdout), kOk;
  if (args.positional.empty())
    return Fail(kUsage, "eval needs at least one PHOTO (see lumivex eval --help)");
  std::vector<std::pair<int, int>> sizes;
  for (const std::string& s : Split(args.Get("--sizes", "640x480,1280x720"))) {
    int w = 0, h = 0;
    if (!ParseSize(s, &w, &h) || (w & 1) || (h & 1) || w < kMinFrameWidth || h < kMinFrameHeight ||
        w > 4096 || h > 4096)
      return Fail(kUsage, "bad size in --sizes: " + s);
    sizes.push_back({w, h});
  }
  std::vector<int> directions;
  for (const std::string& d : Split(args.Get("--directions", "right,left,down,up"))) {
    int code = 0;
    if (!ParseDirection(d, &code)) return Fail(kUsage, "bad direction in --directions: " + d);
    directions.push_back(code);
  }
  double jitter = 1;
  if (!args.Get("--jitter").empty() && !ParseNumber(args.Get("--jitter"), &jitter))
    return Fail(kUsage, "--jitter takes a number");
  std::vector<std::int32_t> profiles;
  for (const std::string& p : Split(args.Get("--profiles", "exact,quality"))) {
    if (!ParseProfile(p, &profiles.emplace_back()))
      return Fail(kUsage, "bad profile in --profiles: " + p);
  }
  bool hand_held = false, corrections = false;
  for (const std::string& c : Split(args.Get("--cases", "hand-held,corrections"))) {
    if (c != "hand-held" && c != "corrections") return Fail(kUsage, "bad case in --cases: " + c);
    (c == "hand-held" ? hand_held : corrections) = true;
  }
  // The named sweeps each quality correction is about, at 640x480 unless named otherwise.
  std::vector<std::pair<std::string, SimOptions>> cases;
  if (hand_held) {
    for (const auto& [w, h] : sizes)
      for (int d : directions) {
        SimOptions o;
        o.width = w, o.height = h, o.direction = d, o.jitter = jitter, o.noise = 1.5, o.seed = 7;
        cases.push_back({"hand-held", o});
      }
  }
  if (corrections) {
    SimOptions o;
    o.steady = true;
    o.speed = 5;
    cases.push_back({"steady 5 px", o});
    o.speed = 8, o.direction = 3;
    cases.push_back({"steady 8 px", o});
    o = SimOptions{};
    o.width = 854, o.jitter = 1, o.seed = 7;
    cases.push_back({"854 wide", o});
    o = SimOptions{};
    o.too_fast_at = 30, o.seed = 7;
    cases.push_back({"too fast once", o});
    o = SimOptions{};
    o.steady = true, o.speed = 12, o.exposure = 0.3;
    cases.push_back({"exposure +30 %", o});
    o = SimOptions{};
    o.steady = true, o.speed = 16, o.plain = 1.2;
    cases.push_back({"plain stretch", o});
  }
  std::vector<Score> scores;
  for (const std::string& path : args.positional) {
    Rgb photo;
    if (!ReadImage(path, &photo, &error)) return Fail(kBadInput, error);
    const std::string name = std::filesystem::path(path).filename().string();
    for (const auto& [label, o] : cases) {
      for (const Score& s : RunScenario(photo, name, label, o, profiles)) {
        scores.push_back(s);
        std::fprintf(stderr, "%s %-15s %dx%d %-13s %-7s %s\n", name.c_str(), label.c_str(), s.width,
                     s.height, DirectionName(s.direction), ProfileName(s.profile),
                     OutcomeOf(s).c_str());
      }
    }
  }
  const std::string dir = args.Get("--report-dir", "lumivex-eval");
  if (!WriteReport(scores, dir, &error)) return Fail(kWriteFailed, error);
  if (args.Flag("--json")) {
    std::fputs(ToJson(scores).c_str(), stdout);
  } else {
    std::printf("%-24s %-15s %-8s %-13s %-7s %-22s %8s %8s %6s %6s\n", "photo", "scenario", "frame",
                "direction", "profile", "result", "err mean", "err max", "PSNR", "chroma");
    for (const Score& s : scores) {
      char frame[32];
      std::snprintf(frame, sizeof(frame), "%dx%d", s.width, s.height);
      std::printf("%-24s %-15s %-8s %-13s %-7s %-22s %8.2f %8.1f %6.1f %6.1f\n",
                  s.photo.substr(0, 24).c_str(), s.name.c_str(), frame, DirectionName(s.direction),
                  ProfileName(s.profile), OutcomeOf(s).substr(0, 22).c_str(), s.track_mean,
                  s.track_max, s.psnr, s.chroma_psnr);
    }
    std::printf("report           %s/report.html (and report.md)\n", dir.c_str());
  }
  return kOk;
}

std::string AssetsDir(const char* argv0) {
  if (const char* env = std::getenv("LUMIVEX_ASSETS")) return env;
  namespace fs = std::filesystem;
  std::error_code ec;
  // Next to the program when installed, else the source tree it was built from.
  const fs::path exe = fs::canonical(fs::path(argv0), ec);
  for (const fs::path& p :
       {exe.parent_path() / "assets", exe.parent_path().parent_path() / "share/lumivex/assets"})
    if (fs::exists(p / "mountain-360-5000x2500.jpg", ec)) return p.string();
  return LUMIVEX_ASSETS_DIR;
}

int Demo(int argc, char** argv) {
  Args args;
  std::string error;
  if (!Parse(argc, argv, {"-o", "--profile"}, {"-h"}, &args, &error))
    return Fail(kUsage, error + " (see lumivex demo --help)");
  if (args.Flag("--help") || args.Flag("-h"))
    return std::fputs(kHelp.at("demo").c_str(), stdout), kOk;
  CaptureOptions options{"", true, true};
  if (!ParseProfile(args.Get("--profile", "quality"), &options.profile))
    return Fail(kUsage, "--profile is exact or quality");
  const std::string dir = args.Get("-o", "lumivex-demo");
  const std::string photo_path = AssetsDir(argv[0]) + "/mountain-360-5000x2500.jpg";
  Rgb photo;
  if (!ReadImage(photo_path, &photo, &error)) return Fail(kBadInput, error);
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec) return Fail(kWriteFailed, "cannot create " + dir + ": " + ec.message());
  SimOptions o;
  o.jitter = 1;
  o.noise = 1.5;
  const auto t0 = std::chrono::steady_clock::now();
  const Simulator sim(photo, o);
  sim.WriteTruth(dir + "/sweep.csv", &error);
  // The simulated frames, fed as a camera delivers them.
  class SimSource : public FrameSource {
   public:
    explicit SimSource(const Simulator& s) : sim_(s) {}
    bool Next(Yuv420* frame) override {
      if (next_ >= sim_.frames()) return false;
      *frame = sim_.Frame(next_++);
      return true;
    }

   private:
    const Simulator& sim_;
    int next_ = 1;
  } source(sim);
  std::printf("simulated sweep  %d frames of %dx%d over %s (CC BY-SA 3.0, Matthew Petroff)\n",
              sim.frames(), o.width, o.height, photo_path.c_str());
  const int status = StitchFrames(source, sim.Frame(0), ZMOS_FORMAT_NV21,
                                  Output{dir + "/panorama.jpg"}, options, dir + "/preview.png");
  std::printf("total time       %.1f s\n",
              std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
  return status;
}

int Version() {
  ZMOSVERSION v;
  if (ZMOS_GetVersion(&v) != ZMOS_OK) return kEngineInit;
  std::printf("%s (%s)\n%s\n", v.szVersion, v.szDate, v.szCopyright);
  return kOk;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs(kUsageText, stderr);
    return kUsage;
  }
  const std::string command = argv[1];
  if (command == "version" || command == "--version") return Version();
  if (command == "help" || command == "--help" || command == "-h") {
    std::fputs(kUsageText, stdout);
    return kOk;
  }
  if (command == "stitch") return Stitch(argc, argv);
  if (command == "simulate") return Simulate(argc, argv);
  if (command == "eval") return Eval(argc, argv);
  if (command == "demo") return Demo(argc, argv);
  std::fprintf(stderr, "lumivex: unknown command '%s'\n%s", command.c_str(), kUsageText);
  return kUsage;
}
