// The report's tables: one list of columns, from which the Markdown and HTML tables and
// the legend are made; the headline; and the files of a report folder.
#include "tools/eval/report.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <tuple>

#include "tools/capture/capture.h"
#include "tools/eval/report_columns.h"

namespace lumivex::tools {
namespace {

std::string Format(const char* format, double v) {
  char text[48];
  std::snprintf(text, sizeof(text), format, v);
  return text;
}

std::string Percent(double share) {
  return Format("%.1f", 100 * share);
}

// The same sweep under another profile: photo, scenario, frame size and direction.
std::tuple<std::string, std::string, int, int, int> Sweep(const Score& s) {
  return {s.photo, s.name, s.width, s.height, s.direction};
}

}  // namespace

const std::vector<Column>& Columns() {
  static const std::vector<Column> kColumns = {
      {"photo", "the photograph the sweep was simulated over", Rows::kAll,
       [](const Score& s) { return s.photo; }},
      {"scenario", "the kind of sweep (camera-true: the light, the seed, h264 when coded)",
       Rows::kAll, [](const Score& s) { return s.name; }},
      {"frame", "frame size", Rows::kAll,
       [](const Score& s) { return std::to_string(s.width) + "x" + std::to_string(s.height); }},
      {"direction", "sweep direction", Rows::kAll,
       [](const Score& s) { return std::string(DirectionName(s.direction)); }},
      {"profile", "engine profile", Rows::kAll,
       [](const Score& s) { return std::string(ProfileName(s.profile)); }},
      {"result",
       "complete, complete but bad (a verdict follows), the engine's failure, or incomplete "
       "(the simulated sweep ended first)",
       Rows::kAll, [](const Score& s) { return OutcomeOf(s); }},
      {"verdict", "what makes a complete capture bad", Rows::kAll,
       [](const Score& s) { return BadCompletion(s); }},
      {"frames", "frames fed to the engine", Rows::kAll,
       [](const Score& s) { return std::to_string(s.frames); }},
      {"kept", "frames the engine kept", Rows::kAll,
       [](const Score& s) { return std::to_string(s.kept); }},
      {"panorama", "the panorama's size (narrow: shorter than a frame, the first frame)",
       Rows::kAll,
       [](const Score& s) {
         return std::to_string(s.pano_width) + "x" + std::to_string(s.pano_height) +
                (s.narrow ? " (narrow)" : "");
       }},
      {"track mean (px)",
       "slid: mean distance of the engine's reported travel from the true one, per frame; "
       "camera: mean error of the travel between laid strips",
       Rows::kAll, [](const Score& s) { return Format("%.2f", s.track_mean); }},
      {"track max (px)", "the largest of those (camera: of the accumulated errors)", Rows::kAll,
       [](const Score& s) { return Format("%.1f", s.track_max); }},
      {"PSNR (dB)",
       "slid: luma against the photograph at the best alignment (99: identical); camera: "
       "against the truth panorama, block by block, each block's brightness matched",
       Rows::kAll, [](const Score& s) { return Format("%.1f", s.psnr); }},
      {"chroma PSNR (dB)", "chroma against the photograph's", Rows::kSlid,
       [](const Score& s) { return Format("%.1f", s.chroma_psnr); }},
      {"drift %", "the largest brightness departure from the photograph over 64-pixel blocks, "
                  "in % of full scale",
       Rows::kSlid, [](const Score& s) { return Format("%.1f", s.drift); }},
      {"seam step %", "the largest brightness change between 16-line slices along the sweep",
       Rows::kSlid, [](const Score& s) { return Format("%.2f", s.seam_step); }},
      {"pairs", "laid strip pairs whose seam has detail (+ those on sky or a plain wall)",
       Rows::kCamera,
       [](const Score& s) { return std::to_string(s.pairs) + "+" + std::to_string(s.plain_pairs); }},
      {"within 1 px %", "pairs whose travel is within a pixel of the truth on both axes",
       Rows::kCamera, [](const Score& s) { return Percent(s.pairs_within1); }},
      {"worst pair (px)", "the largest of those errors", Rows::kCamera,
       [](const Score& s) { return Format("%.1f", s.pair_err_max); }},
      {"image within 1 px %",
       "pairs within a pixel of the best whole-pixel translation of the frames' central "
       "halves (as a real clip is judged)",
       Rows::kCamera, [](const Score& s) { return Percent(s.image_within1); }},
      {"seam error (px)", "mean misalignment of the windows either side of a seam, against "
                          "the truth",
       Rows::kCamera, [](const Score& s) { return Format("%.2f", s.seam_mis_mean); }},
      {"luma", "the panorama's mean luma", Rows::kCamera,
       [](const Score& s) { return Format("%.1f", s.mean_luma); }},
      {"clipped %", "share of the panorama's pixels at white", Rows::kCamera,
       [](const Score& s) { return Format("%.2f", 100 * s.clipped); }},
      {"exposure step %", "the largest brightness step at a seam beyond the scene's own",
       Rows::kCamera, [](const Score& s) { return Format("%.1f", s.exposure_step); }},
      {"EV", "how far the camera's exposure moved over the sweep", Rows::kCamera,
       [](const Score& s) { return Format("%.2f", s.ev_range); }},
      {"ms/frame", "engine time a frame (selection and preview)", Rows::kAll,
       [](const Score& s) { return Format("%.2f", s.ms_per_frame); }},
  };
  return kColumns;
}

bool Shows(const Column& c, bool camera) {
  return c.rows == Rows::kAll || (c.rows == Rows::kCamera) == camera;
}

std::vector<std::pair<std::string, std::string>> Legend() {
  std::vector<std::pair<std::string, std::string>> legend;
  for (const Column& c : Columns()) legend.emplace_back(c.name, c.meaning);
  return legend;
}

std::vector<std::string> Headline(const std::vector<Score>& scores) {
  std::vector<std::string> lines;
  std::map<std::tuple<std::string, std::string, int, int, int>, const Score*> exact;
  for (const Score& s : scores)
    if (s.profile == ZMOS_PROFILE_EXACT) exact[Sweep(s)] = &s;
  for (const std::int32_t profile : {ZMOS_PROFILE_EXACT, ZMOS_PROFILE_QUALITY}) {
    int sweeps = 0, complete = 0, bad = 0, failed = 0, pairs = 0, plain = 0;
    double within = 0, image = 0, worst = 0;
    double luma = 0, luma_exact = 0, white = 0, white_exact = 0, step = 0, step_exact = 0;
    for (const Score& s : scores) {
      if (s.profile != profile || s.photo_too_small) continue;
      ++sweeps;
      complete += s.complete;
      bad += s.complete && !BadCompletion(s).empty();
      failed += s.end_code != 0;
      if (!s.camera) continue;
      pairs += s.pairs;
      plain += s.plain_pairs;
      within += s.pairs * s.pairs_within1;
      image += s.pairs * s.image_within1;
      worst = std::max(worst, s.pair_err_max);
      const auto e = exact.find(Sweep(s));
      if (e == exact.end() || s.mean_luma == 0 || e->second->mean_luma == 0) continue;
      luma += s.mean_luma;
      luma_exact += e->second->mean_luma;
      white += s.clipped;
      white_exact += e->second->clipped;
      step += s.exposure_step;
      step_exact += e->second->exposure_step;
    }
    if (sweeps == 0) continue;
    std::string line = std::string(ProfileName(profile)) + ": " + std::to_string(sweeps) +
                       " sweeps, " + std::to_string(complete) + " complete (" +
                       std::to_string(bad) + " of them bad), " + std::to_string(failed) +
                       " ended by the engine";
    if (pairs > 0)
      line += "; camera-true pairs within 1 px of the truth " + Percent(within / pairs) +
              " % (" + Percent(image / pairs) + " % of the best translation), worst " +
              Format("%.1f", worst) + " px, over " + std::to_string(pairs) + " pairs (" +
              std::to_string(plain) + " more on plain scenery)";
    if (profile != ZMOS_PROFILE_EXACT && luma_exact > 0)
      line += "; against exact: brightness " + Percent(luma / luma_exact) + " %, clipped white " +
              (white_exact > 0 ? Percent(white / white_exact) + " %" : std::string("none")) +
              ", exposure steps " +
              (step_exact > 0 ? Percent(step / step_exact) + " %" : std::string("none"));
    lines.push_back(line);
  }
  return lines;
}

bool WriteMarkdown(const std::vector<Score>& scores, const std::string& dir, std::string* error) {
  std::FILE* md = std::fopen((dir + "/report.md").c_str(), "w");
  if (md == nullptr) {
    *error = "cannot write " + dir + "/report.md";
    return false;
  }
  std::fputs("# lumivex evaluation\n\n", md);
  for (const std::string& line : Headline(scores)) std::fprintf(md, "- %s\n", line.c_str());
  // One row a sweep: every profile's result next to the others'.
  std::vector<std::int32_t> profiles;
  for (const Score& s : scores)
    if (std::find(profiles.begin(), profiles.end(), s.profile) == profiles.end())
      profiles.push_back(s.profile);
  std::fputs("\n## The profiles side by side\n\n| photo | scenario | frame | direction |", md);
  for (std::int32_t p : profiles) std::fprintf(md, " result (%s) |", ProfileName(p));
  std::fputs("\n|---|---|---|---|", md);
  for (std::size_t i = 0; i < profiles.size(); ++i) std::fputs("---|", md);
  std::fputs("\n", md);
  for (std::size_t i = 0; i < scores.size(); i += profiles.size()) {
    const Score& first = scores[i];
    std::fprintf(md, "| %s | %s | %dx%d | %s |", first.photo.c_str(), first.name.c_str(),
                 first.width, first.height, DirectionName(first.direction));
    for (std::size_t k = 0; k < profiles.size() && i + k < scores.size(); ++k)
      std::fprintf(md, " %s |", OutcomeOf(scores[i + k]).c_str());
    std::fputs("\n", md);
  }
  // Every capture, slid and camera-true sweeps apart (their columns differ).
  for (const bool camera : {false, true}) {
    if (std::none_of(scores.begin(), scores.end(), [&](const Score& s) { return s.camera == camera; }))
      continue;
    std::fputs(camera ? "\n## Camera-true sweeps\n\n|" : "\n## Slid sweeps\n\n|", md);
    for (const Column& c : Columns())
      if (Shows(c, camera)) std::fprintf(md, " %s |", c.name);
    std::fputs("\n|", md);
    for (const Column& c : Columns())
      if (Shows(c, camera)) std::fputs("---|", md);
    std::fputs("\n", md);
    for (const Score& s : scores) {
      if (s.camera != camera) continue;
      std::fputs("|", md);
      for (const Column& c : Columns())
        if (Shows(c, camera)) std::fprintf(md, " %s |", c.value(s).c_str());
      std::fputs("\n", md);
    }
  }
  std::fputs("\n## What the columns say\n\n", md);
  for (const auto& [name, meaning] : Legend())
    std::fprintf(md, "- **%s**: %s\n", name.c_str(), meaning.c_str());
  std::fputs("\n## Tracking error, sweep by sweep\n\n", md);
  for (std::size_t i = 0; i < scores.size(); ++i) {
    const std::string svg = "scenario-" + std::to_string(i + 1) + ".svg";
    if (std::FILE* f = std::fopen((dir + "/" + svg).c_str(), "w")) {
      std::fputs(Chart(scores[i]).c_str(), f);
      std::fclose(f);
    }
    std::fprintf(md, "%zu. %s, %s, %dx%d, %s: ![travel](%s)\n", i + 1, scores[i].photo.c_str(),
                 scores[i].name.c_str(), scores[i].width, scores[i].height,
                 ProfileName(scores[i].profile), svg.c_str());
  }
  const bool ok = std::fclose(md) == 0;
  if (!ok) *error = "cannot write " + dir + "/report.md";
  return ok;
}

bool WriteReport(const std::vector<Score>& scores, const std::string& dir, std::string* error) {
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (!WriteMarkdown(scores, dir, error)) return false;
  // Every measured pair of the camera-true sweeps, for a closer look.
  if (std::any_of(scores.begin(), scores.end(), [](const Score& s) { return s.camera; })) {
    std::FILE* f = std::fopen((dir + "/pairs.csv").c_str(), "w");
    if (f == nullptr) {
      *error = "cannot write " + dir + "/pairs.csv";
      return false;
    }
    std::fputs("scenario,frame,direction,profile,from,to,engine_x,engine_y,truth_x,truth_y,"
               "image_x,image_y\n",
               f);
    for (const Score& s : scores)
      for (const PairRecord& p : s.pair_records)
        std::fprintf(f, "%s,%dx%d,%d,%s,%d,%d,%.0f,%.0f,%.3f,%.3f,%d,%d\n", s.name.c_str(),
                     s.width, s.height, s.direction, ProfileName(s.profile), p.from, p.to,
                     p.engine_x, p.engine_y, p.truth_x, p.truth_y, p.image_x, p.image_y);
    std::fclose(f);
  }
  return WriteHtml(scores, dir + "/report.html", error);
}

}  // namespace lumivex::tools
