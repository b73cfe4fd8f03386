// lumivex eval: simulated sweeps under each profile, scored against their truth.
#include <cstdio>
#include <filesystem>

#include "tools/capture/capture.h"
#include "tools/cli/commands.h"
#include "tools/eval/camera_eval.h"
#include "tools/eval/report.h"
#include "tools/eval/slide_eval.h"
#include "tools/io/image_files.h"

namespace lumivex::tools::cli {
namespace {

constexpr Option kEvalOptions[] = {
    {"--cases", "LIST",
     "hand-held (slid), corrections (slid: steady 5 and 8 px steps, 854x480 frames,\n"
     "a too-fast frame, an exposure ramp, a plain stretch) and camera (camera-true\n"
     "sweeps: each size, direction, seed and codec setting); default all three"},
    {"--sizes", "LIST", "frame sizes, e.g. 640x480,480x640 (default 640x480,1280x720)"},
    {"--directions", "LIST", "e.g. right,left (default right,left,down,up)"},
    {"--profiles", "LIST", "exact, quality or both (default exact,quality)"},
    {"--seeds", "N", "camera-true sweeps a case (default 1; seeds 1, 2, 3 are day, dusk, night)"},
    {"--codec", "LIST", "camera-true frames through H.264: off, on or off,on (default off)"},
    {"--jitter", "PX", "hand wander of the hand-held slid sweeps (default 1)"},
    {"--report-dir", "DIR", "where the report goes (default lumivex-eval)"},
    {"--json", nullptr, "print the scores as JSON on stdout"},
};

}  // namespace

const CommandSpec kEval{
    "eval", "PHOTO...",
    "Simulates sweeps over each photograph, stitches them under each profile and scores\n"
    "them against their truth. Writes DIR/report.html (one file: the headline, the tables,\n"
    "a legend, every panorama and its tracking-error chart), DIR/report.md with one SVG\n"
    "chart a sweep, and DIR/pairs.csv (every laid pair of the camera-true sweeps). A slid\n"
    "scenario the photograph is too small for (more than 2x enlargement) is reported as\n"
    "such, not scored.\n",
    kEvalOptions};

Reading ReadEval(std::span<const std::string> args, EvalOptions* out) {
  Reading r;
  Parsed p;
  if (!StartReading(kEval, args, &p, &r)) return r;
  if (p.positional.empty())
    return UsageError("eval needs at least one PHOTO (see lumivex eval --help)");
  out->photos = p.positional;
  if (p.Has("--sizes")) {
    out->sizes.clear();
    for (const std::string& s : Split(p.Get("--sizes"))) {
      int w = 0, h = 0;
      std::string why;
      if (!ParseSize(s, &w, &h) || w > 4096 || h > 4096 || !CheckFrameSize(w, h, &why))
        return UsageError("bad size in --sizes: " + s);
      out->sizes.push_back({w, h});
    }
  }
  if (p.Has("--directions")) {
    out->directions.clear();
    for (const std::string& d : Split(p.Get("--directions"))) {
      int code = 0;
      if (!ParseDirection(d, &code)) return UsageError("bad direction in --directions: " + d);
      out->directions.push_back(code);
    }
  }
  if (p.Has("--profiles")) {
    out->profiles.clear();
    for (const std::string& name : Split(p.Get("--profiles")))
      if (!ParseProfile(name, &out->profiles.emplace_back()))
        return UsageError("bad profile in --profiles: " + name);
  }
  if (p.Has("--cases")) {
    out->hand_held = out->corrections = out->camera = false;
    for (const std::string& c : Split(p.Get("--cases"))) {
      if (c == "hand-held") {
        out->hand_held = true;
      } else if (c == "corrections") {
        out->corrections = true;
      } else if (c == "camera") {
        out->camera = true;
      } else {
        return UsageError("bad case in --cases: " + c);
      }
    }
  } else {
    out->camera = true;
  }
  long long seeds = 1;
  if (p.Has("--seeds") && !ParseInt(p.Get("--seeds"), 1, 100, &seeds))
    return UsageError("--seeds takes a count from 1 to 100");
  out->seeds = static_cast<int>(seeds);
  out->codecs = {false};
  if (p.Has("--codec")) {
    out->codecs.clear();
    for (const std::string& c : Split(p.Get("--codec"))) {
      if (c != "off" && c != "on") return UsageError("--codec takes off, on or off,on");
      out->codecs.push_back(c == "on");
    }
  }
  if (p.Has("--jitter") && !ParseDouble(p.Get("--jitter"), &out->jitter))
    return UsageError("--jitter takes a number");
  out->report_dir = p.Get("--report-dir", out->report_dir);
  out->json = p.Flag("--json");
  return r;
}

namespace {

// The slid sweeps each correction of the quality profile is about, at 640x480 unless named
// otherwise.
std::vector<std::pair<std::string, SimOptions>> SlidCases(const EvalOptions& e) {
  std::vector<std::pair<std::string, SimOptions>> cases;
  if (e.hand_held) {
    for (const auto& [w, h] : e.sizes)
      for (int d : e.directions) {
        SimOptions o;
        o.width = w, o.height = h, o.direction = d, o.jitter = e.jitter, o.noise = 1.5, o.seed = 7;
        cases.push_back({"hand-held", o});
      }
  }
  if (e.corrections) {
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
  return cases;
}

// Every size, direction, seed and codec setting: daylight, dusk and a night street in turn.
std::vector<CameraCase> CameraCases(const EvalOptions& e) {
  std::vector<CameraCase> cases;
  if (!e.camera) return cases;
  constexpr const char* kLights[] = {"night", "day", "dusk"};
  for (const auto& [w, h] : e.sizes)
    for (int d : e.directions)
      for (int seed = 1; seed <= e.seeds; ++seed)
        for (const bool coded : e.codecs) {
          CameraCase c;
          c.sim.width = w, c.sim.height = h, c.sim.direction = d;
          c.sim.seed = static_cast<std::uint64_t>(seed);
          c.sim.light = seed % 3 == 1 ? kDaylight : seed % 3 == 2 ? kDusk : kNight;
          c.codec = coded;
          c.name = std::string("camera ") + kLights[seed % 3] + " s" + std::to_string(seed) +
                   (coded ? " h264" : "");
          cases.push_back(c);
        }
  return cases;
}

void PrintLine(const std::string& photo, const Score& s) {
  std::fprintf(stderr, "%s %-20s %5dx%-5d %-13s %-7s %s", photo.c_str(), s.name.c_str(), s.width,
               s.height, DirectionName(s.direction), ProfileName(s.profile), OutcomeOf(s).c_str());
  if (s.camera)
    std::fprintf(stderr, "  pairs %d+%d within 1 px %.1f %% worst %.1f px", s.pairs, s.plain_pairs,
                 100 * s.pairs_within1, s.pair_err_max);
  std::fputc('\n', stderr);
}

}  // namespace

int Eval(const EvalOptions& e) {
  const auto slid = SlidCases(e);
  const auto camera = CameraCases(e);
  std::vector<Score> scores;
  std::string error;
  for (const std::string& path : e.photos) {
    Rgb photo;
    if (!ReadImage(path, &photo, &error)) return Fail(kBadInput, error);
    const std::string name = std::filesystem::path(path).filename().string();
    for (const auto& [label, o] : slid)
      for (const Score& s : RunScenario(photo, name, label, o, e.profiles)) {
        PrintLine(name, s);
        scores.push_back(s);
      }
    for (const CameraCase& c : camera)
      for (const Score& s : RunCameraScenario(photo, name, c, e.profiles)) {
        PrintLine(name, s);
        scores.push_back(s);
      }
  }
  if (!WriteReport(scores, e.report_dir, &error)) return Fail(kWriteFailed, error);
  if (e.json) {
    std::fputs(ToJson(scores).c_str(), stdout);
  } else {
    for (const std::string& line : Headline(scores)) std::printf("%s\n", line.c_str());
    std::printf("report           %s/report.html (and report.md)\n", e.report_dir.c_str());
  }
  return kOk;
}

}  // namespace lumivex::tools::cli
