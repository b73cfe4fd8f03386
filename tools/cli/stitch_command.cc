// lumivex stitch: a recorded sweep into one panorama.
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>

#include "tools/capture/capture.h"
#include "tools/cli/commands.h"
#include "tools/eval/report.h"
#include "tools/io/image_files.h"
#include "tools/io/open_frames.h"
#include "tools/io/output_file.h"

namespace lumivex::tools::cli {
namespace {

constexpr Option kStitchOptions[] = {
    {"-o", "PANO", "the panorama to write (.jpg, .jpeg or .png)"},
    {"--angle", "DEG", "the sweep to capture, 30 to 360 degrees (default 180, as the phone)"},
    {"--size", "WxH", "frame size of raw input"},
    {"--format", "nv21|i420",
     "the layout of raw input and the one fed to the engine (default nv21)"},
    {"--debug-dir", "DIR",
     "previews after each kept frame, frames.csv and frames.json (every\n"
     "frame), panorama-seams.png (seams numbered, overlaps tinted)"},
    {"--profile", "P",
     "exact (the engine as defined) or quality (default: the corrections\n"
     "listed by 'lumivex version')"},
    {"--quality", "N", "JPEG quality, 1 to 100 (default 92)"},
    {"--json", nullptr, "the summary as one JSON object on stdout"},
    {"-y", nullptr, "overwrite an existing PANO"},
    {"-n", nullptr,
     "never overwrite it (without either, a terminal is asked and anything\n"
     "else refused)"},
    {"--quiet", nullptr, "no progress bar"},
};

}  // namespace

const CommandSpec kStitch{
    "stitch", "INPUT -o PANO",
    "INPUT: any video ffmpeg reads (clip.mp4, a .y4m file, - for a stream on stdin), a\n"
    "folder of JPEG/PNG frames (in numeric order), a text file listing them, or raw frames\n"
    "(with --size; - for stdin). The panorama is written to a temporary file beside PANO and\n"
    "renamed over it when complete: an interrupted run leaves no partial file.\n",
    kStitchOptions};

Reading ReadStitch(std::span<const std::string> args, StitchOptions* out) {
  Reading r;
  Parsed p;
  if (!StartReading(kStitch, args, &p, &r)) return r;
  if (p.positional.size() > 1) {
    std::string given;
    for (const std::string& s : p.positional) given += (given.empty() ? "" : ", ") + s;
    return UsageError("stitch takes one INPUT (given " + std::to_string(p.positional.size()) +
                      ": " + given + ")");
  }
  if (p.positional.empty() || p.Get("-o").empty())
    return UsageError("stitch needs INPUT and -o OUTPUT (see lumivex stitch --help)");
  out->input = p.positional[0];
  out->output = p.Get("-o");
  if (p.Has("--size") && !ParseSize(p.Get("--size"), &out->raw_width, &out->raw_height))
    return UsageError("--size takes WxH, e.g. 640x480");
  const std::string fmt = p.Get("--format", "nv21");
  if (fmt != "nv21" && fmt != "i420") return UsageError("--format is nv21 or i420");
  out->format = fmt == "i420" ? ZMOS_FORMAT_I420 : ZMOS_FORMAT_NV21;
  if (!ParseProfile(p.Get("--profile", "quality"), &out->profile))
    return UsageError("--profile is exact or quality");
  long long v = 0;
  if (p.Has("--angle")) {
    if (!ParseInt(p.Get("--angle"), 30, 360, &v))
      return UsageError("--angle takes whole degrees from 30 to 360, e.g. --angle 360");
    out->angle = static_cast<std::int32_t>(v);
  }
  if (p.Has("--quality")) {
    if (!ParseInt(p.Get("--quality"), 1, 100, &v))
      return UsageError("--quality takes a JPEG quality from 1 to 100, e.g. --quality 95");
    out->quality = static_cast<int>(v);
  }
  if (!EndsWith(out->output, ".jpg") && !EndsWith(out->output, ".jpeg") &&
      !EndsWith(out->output, ".png"))
    return UsageError("the output must end in .jpg, .jpeg or .png");
  out->debug_dir = p.Get("--debug-dir");
  out->json = p.Flag("--json");
  out->quiet = p.Flag("--quiet");
  out->overwrite = p.Flag("-y");
  out->keep = p.Flag("-n");
  return r;
}

namespace {

int ExitFor(const Capture& cap) {
  switch (cap.end_code()) {
    case 0:
      return cap.narrow() ? kTooShort : kOk;
    case ZMOS_ERR_NO_TEXTURE:
      return kLowTexture;
    case ZMOS_ERR_SWEEP_WRONG:
      return kWentWrong;
    case ZMOS_ERR_TOO_FAST:
      return kTooFast;
    default:
      return kEngineInit;
  }
}

std::string Ended(const Capture& cap) {
  if (cap.complete()) return "complete";
  if (cap.end_code() != 0) return ZMOS_ResultName(cap.end_code(), ZMOS_RESULTS_CAPTURE);
  return "end of input";
}

void PrintSummary(const Capture& cap, const std::string& output, int unused) {
  std::printf("frames read      %d\n", cap.frames_read() + unused);
  std::printf("frames kept      %d", cap.frames_kept());
  if (cap.frames_laid_too_fast() > 0)
    std::printf(" (%d of them laid one strip on after a too-fast step)",
                cap.frames_laid_too_fast());
  std::printf("\n");
  if (cap.frames_coasted() > 0)
    std::printf("frames coasted   %d (too plain to measure; the recent speed was carried)\n",
                cap.frames_coasted());
  std::printf("direction        %s\n", DirectionName(cap.direction()));
  const std::string ended = cap.complete()
                                ? "sweep complete (" + std::to_string(cap.max_angle()) + " degrees)"
                                : Ended(cap);
  std::printf("ended            %s\n", ended.c_str());
  if (unused > 0)
    std::printf(
        "frames unused    %d (after the capture ended%s)\n", unused,
        cap.complete() && cap.max_angle() < 360 ? "; --angle 360 takes a longer sweep" : "");
  std::printf("panorama         %d x %d%s\n", cap.panorama().width(), cap.panorama().height(),
              cap.narrow() ? " (narrow: the sweep was too short, this is the first frame)" : "");
  std::printf("time per frame   %.2f ms (selection and preview)\n", cap.ms_per_frame());
  if (!output.empty()) std::printf("wrote            %s\n", output.c_str());
}

void PrintJson(const Capture& cap, const std::string& output, int unused, int status) {
  std::printf(
      "{\"output\": %s, \"frames_read\": %d, \"frames_kept\": %d, \"frames_laid_too_fast\": %d, "
      "\"frames_unused\": %d, \"frames_coasted\": %d, \"direction\": %s, \"ended\": %s, "
      "\"max_angle\": %d, \"panorama\": [%d, %d], \"narrow\": %s, \"ms_per_frame\": %.3f, "
      "\"exit_status\": %d}\n",
      JsonQuote(output).c_str(), cap.frames_read() + unused, cap.frames_kept(),
      cap.frames_laid_too_fast(), unused, cap.frames_coasted(),
      JsonQuote(DirectionName(cap.direction())).c_str(), JsonQuote(Ended(cap)).c_str(),
      cap.max_angle(), cap.panorama().width(), cap.panorama().height(),
      cap.narrow() ? "true" : "false", cap.ms_per_frame(), status);
}

}  // namespace

int StitchFrames(FrameSource& source, Yuv420 first, const StitchOptions& o, OutputFile& out,
                 const std::string& preview_path) {
  CaptureOptions options{o.debug_dir, !o.quiet, true};
  options.profile = o.profile;
  options.max_angle = o.angle;
  Capture cap(first.width(), first.height(), first.format(), options);
  if (cap.init_result() != 0)
    return Fail(kEngineInit, std::string("the engine could not start: ") +
                                 ZMOS_ResultName(cap.init_result(), ZMOS_RESULTS_CAPTURE));
  bool more = cap.Feed(first);
  Yuv420 frame;
  while (more && source.Next(&frame)) {
    if (frame.width() != first.width() || frame.height() != first.height())
      return Fail(kBadInput, "frame " + std::to_string(cap.frames_read() + 1) + " is " +
                                 SizeText(frame.width(), frame.height()) + ", the first was " +
                                 SizeText(first.width(), first.height()));
    more = cap.Feed(frame);
  }
  if (!source.error().empty()) return Fail(kBadInput, source.error());
  // What the capture did not need is counted, not converted (a pipe's writer still
  // finishes cleanly).
  const int unused = more ? 0 : source.SkipRest();
  if (!source.warning().empty())
    std::fprintf(stderr, "lumivex: warning: %s\n", source.warning().c_str());
  const std::int32_t stitched = cap.Finish();
  if (stitched != 0 || cap.panorama().width() == 0)
    return Fail(kEngineInit, std::string("stitching failed: ") +
                                 ZMOS_ResultName(stitched != 0 ? stitched : ZMOS_ERR_NO_MEMORY,
                                                 ZMOS_RESULTS_CAPTURE));
  std::string error;
  ZMOSIMAGE pano = const_cast<Yuv420&>(cap.panorama()).Image();
  const std::string step = "writing " + std::filesystem::path(out.target()).filename().string();
  if (!WriteImage(
          out.temp_path(), ImageToRgb(pano), &error, o.quality,
          [&](double done) { cap.ShowStep(step, done); }, out.target()) ||
      !out.Commit(&error))
    return Fail(kWriteFailed, error);
  cap.ShowStep(step, 1);
  if (!preview_path.empty() && cap.preview().width > 0 &&
      !WriteImage(preview_path, cap.preview(), &error))
    return Fail(kWriteFailed, error);
  const int status = ExitFor(cap);
  if (o.json) {
    PrintJson(cap, out.target(), unused, status);
    return status;
  }
  PrintSummary(cap, out.target(), unused);
  if (!preview_path.empty() && cap.preview().width > 0)
    std::printf("preview          %s\n", preview_path.c_str());
  return status;
}

int Stitch(const StitchOptions& o) {
  CleanUpOnInterrupt();
  if (const int status = CheckOverwrite(o.output, o.overwrite, o.keep); status != kOk)
    return status;
  // A place that cannot be written fails now, not after the whole clip.
  OutputFile out;
  std::string error;
  if (!out.Open(o.output, &error)) return Fail(kWriteFailed, error);
  if (!o.debug_dir.empty()) {
    std::error_code ec;
    std::filesystem::create_directories(o.debug_dir, ec);
    if (ec || !std::filesystem::is_directory(o.debug_dir, ec))
      return Fail(kWriteFailed, "cannot create the debug folder " + o.debug_dir);
  }
  auto source = OpenFrames(o.input, o.raw_width, o.raw_height, o.format, &error);
  if (!source) return Fail(kBadInput, error);
  Yuv420 first;
  if (!source->Next(&first))
    return Fail(kBadInput, source->error().empty() ? "the input holds no frame" : source->error());
  return StitchFrames(*source, std::move(first), o, out, "");
}

}  // namespace lumivex::tools::cli
