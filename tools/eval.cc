#include "tools/eval.h"

extern "C" {
#include <libavutil/base64.h>
}

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>

namespace lumivex::tools {
namespace {

// Where the panorama lies on the photograph: the best alignment within a few pixels of
// where the sweep's starting edge puts it, by luma.
std::pair<int, int> Align(const Yuv420& pano, const Simulator& sim, int x, int y) {
  double best = 1e30;
  std::pair<int, int> at{x, y};
  const int w = sim.photo_width(), h = sim.photo_height();
  for (int dy = -6; dy <= 6; ++dy) {
    for (int dx = -6; dx <= 6; ++dx) {
      double err = 0;
      long n = 0;
      for (int r = 0; r < pano.height(); r += 4) {
        for (int c = 0; c < pano.width(); c += 4) {
          const int px = x + dx + c, py = y + dy + r;
          if (px < 0 || py < 0 || px >= w || py >= h) continue;
          const int d = pano.y()[static_cast<std::size_t>(r) * pano.width() + c] -
                        sim.luma()[static_cast<std::size_t>(py) * w + px];
          err += d * d;
          ++n;
        }
      }
      if (n > 0 && err / n < best) best = err / n, at = {x + dx, y + dy};
    }
  }
  return at;
}

double PsnrOf(double squared, long n) {
  if (n == 0) return 0;
  return squared > 0 ? 10 * std::log10(255.0 * 255.0 * n / squared) : 99.0;
}

// Luma and chroma PSNR at the alignment, and the brightness drift.
void ScorePanorama(const Yuv420& pano, const Simulator& sim, int x, int y, Score* s) {
  const int w = sim.photo_width(), h = sim.photo_height();
  double luma = 0, chroma = 0;
  long nl = 0, nc = 0;
  constexpr int kBlock = 64;
  const int bw = (pano.width() + kBlock - 1) / kBlock, bh = (pano.height() + kBlock - 1) / kBlock;
  std::vector<double> got(static_cast<std::size_t>(bw) * bh), want(got.size());
  const bool nv21 = pano.format() == ZMOS_FORMAT_NV21;
  for (int r = 0; r < pano.height(); ++r) {
    for (int c = 0; c < pano.width(); ++c) {
      const int px = x + c, py = y + r;
      if (px < 0 || py < 0 || px >= w || py >= h) continue;
      const std::size_t i = static_cast<std::size_t>(py) * w + px;
      const int v = pano.y()[static_cast<std::size_t>(r) * pano.width() + c];
      luma += double(v - sim.luma()[i]) * (v - sim.luma()[i]);
      ++nl;
      const std::size_t b = static_cast<std::size_t>(r / kBlock) * bw + c / kBlock;
      got[b] += v;
      want[b] += sim.luma()[i];
      // Chroma at the even samples, against the photograph's at the sample's first pixel
      // (the simulator averages four; this is close enough to score phase errors).
      if ((r & 1) || (c & 1) || !nv21) continue;
      const std::uint8_t* vu =
          pano.chroma() + static_cast<std::size_t>(r / 2) * pano.width() + (c & ~1);
      const double dv = vu[0] - sim.cr()[i], du = vu[1] - sim.cb()[i];
      chroma += dv * dv + du * du;
      nc += 2;
    }
  }
  // Brightness against the photograph in slices of 16 lines across the sweep: the largest
  // change from one slice to the next is the step a seam shows.
  const bool horizontal = s->direction < 2;
  const int slices = (horizontal ? pano.width() : pano.height()) / 16;
  double last = 0;
  for (int k = 0; k < slices; ++k) {
    double a = 0, b = 0;
    for (int r = 0; r < (horizontal ? pano.height() : 16); ++r)
      for (int c = 0; c < (horizontal ? 16 : pano.width()); ++c) {
        const int pr = horizontal ? r : 16 * k + r, pc = horizontal ? 16 * k + c : c;
        const int px = x + pc, py = y + pr;
        if (px < 0 || py < 0 || px >= w || py >= h) continue;
        a += pano.y()[static_cast<std::size_t>(pr) * pano.width() + pc];
        b += sim.luma()[static_cast<std::size_t>(py) * w + px];
      }
    const double ratio = b > 0 ? a / b : 1;
    if (k > 0) s->seam_step = std::max(s->seam_step, 100 * std::abs(ratio - last));
    last = ratio;
  }
  s->psnr = PsnrOf(luma, nl);
  s->chroma_psnr = PsnrOf(chroma, nc);
  for (std::size_t b = 0; b < got.size(); ++b)
    if (want[b] > 0) s->drift = std::max(s->drift, 100 * std::abs(got[b] / want[b] - 1));
}

// The tracking error of one sweep on both axes against the frame number, with its axes,
// units and a caption naming the sweep.
std::string Svg(const Score& s) {
  std::ostringstream out;
  const int w = 480, h = 220, left = 46, right = 12, top_pad = 30, bottom = 34;
  double top = 1;
  for (double v : s.error_along) top = std::max(top, std::abs(v));
  for (double v : s.error_across) top = std::max(top, std::abs(v));
  top = std::ceil(top);
  const std::size_t n = std::max(s.error_along.size(), std::size_t{2});
  const double pw = w - left - right, ph = h - top_pad - bottom;
  auto px = [&](double i) { return left + pw * i / double(n - 1); };
  auto py = [&](double v) { return top_pad + ph * (1 - (v / top + 1) / 2); };
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << w << "\" height=\"" << h
      << "\" font-family=\"sans-serif\" font-size=\"10\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
      << "<text x=\"" << left << "\" y=\"13\" font-size=\"11\">" << s.name << ", " << s.width << "x"
      << s.height << ", " << DirectionName(s.direction) << ", " << ProfileName(s.profile) << ": "
      << OutcomeOf(s) << "</text>\n"
      << "<text x=\"" << left << "\" y=\"25\">tracking error, reported minus true travel: "
      << "<tspan fill=\"#d22\">along the sweep</tspan>, "
      << "<tspan fill=\"#26c\">across it</tspan></text>\n";
  // Axes with ticks: pixels up the side, frames along the bottom.
  for (const double v : {-top, -top / 2, 0.0, top / 2, top}) {
    out << "<line x1=\"" << left << "\" y1=\"" << py(v) << "\" x2=\"" << w - right << "\" y2=\""
        << py(v) << "\" stroke=\"" << (v == 0 ? "#888" : "#eee") << "\"/>\n"
        << "<text x=\"" << left - 4 << "\" y=\"" << py(v) + 3 << "\" text-anchor=\"end\">" << v
        << "</text>\n";
  }
  for (int t = 0; t <= 4; ++t) {
    const double i = double(n - 1) * t / 4;
    out << "<text x=\"" << px(i) << "\" y=\"" << h - bottom + 13 << "\" text-anchor=\"middle\">"
        << s.first_frame + static_cast<int>(i) << "</text>\n";
  }
  out << "<line x1=\"" << left << "\" y1=\"" << top_pad << "\" x2=\"" << left << "\" y2=\""
      << h - bottom << "\" stroke=\"#444\"/>\n"
      << "<text x=\"" << left + pw / 2 << "\" y=\"" << h - 6
      << "\" text-anchor=\"middle\">frame</text>\n"
      << "<text x=\"10\" y=\"" << top_pad + ph / 2 << "\" transform=\"rotate(-90 10 "
      << top_pad + ph / 2 << ")\" text-anchor=\"middle\">error (px)</text>\n";
  for (int line = 0; line < 2; ++line) {
    const auto& v = line == 0 ? s.error_along : s.error_across;
    out << "<polyline fill=\"none\" stroke=\"" << (line == 0 ? "#d22" : "#26c")
        << "\" stroke-width=\"1.2\" points=\"";
    for (std::size_t i = 0; i < v.size(); ++i) out << px(double(i)) << ',' << py(v[i]) << ' ';
    out << "\"/>\n";
  }
  out << "</svg>\n";
  return out.str();
}

std::string Base64(const std::vector<std::uint8_t>& bytes) {
  std::string out(AV_BASE64_SIZE(bytes.size()), '\0');
  av_base64_encode(out.data(), static_cast<int>(out.size()), bytes.data(),
                   static_cast<int>(bytes.size()));
  out.resize(out.size() - 1);  // the terminating zero
  return out;
}

std::string Html(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '<')
      out += "&lt;";
    else if (c == '>')
      out += "&gt;";
    else if (c == '&')
      out += "&amp;";
    else if (c == '"')
      out += "&quot;";
    else
      out += c;
  }
  return out;
}

// One file with everything: the table, then per scenario each profile's panorama and
// tracking chart. A script counts the pictures and charts that rendered (for tests).
bool WriteHtml(const std::vector<Score>& scores, const std::string& path, std::string* error) {
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) {
    *error = "cannot write " + path;
    return false;
  }
  std::fputs(
      "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>lumivex evaluation</title>\n"
      "<style>body{font-family:sans-serif;margin:1.5em;color:#222}table{border-collapse:"
      "collapse;font-size:13px}td,th{border:1px solid #ccc;padding:3px 6px;text-align:right}"
      "td:nth-child(-n+6),th{text-align:left}.bad{color:#b00}figure{display:inline-block;"
      "vertical-align:top;margin:0 1em 1em 0}img{max-width:480px;max-height:480px;border:1px "
      "solid #ccc}</style></head>\n<body>\n<h1>lumivex evaluation</h1>\n<table>\n<tr><th>photo"
      "</th><th>scenario</th><th>frame</th><th>direction</th><th>profile</th><th>result</th>"
      "<th>frames</th><th>kept</th><th>panorama</th><th>track mean (px)</th><th>track max (px)"
      "</th><th>PSNR (dB)</th><th>chroma PSNR (dB)</th><th>drift %</th><th>ms/frame</th></tr>\n",
      f);
  for (const Score& s : scores) {
    std::fprintf(f,
                 "<tr><td>%s</td><td>%s</td><td>%dx%d</td><td>%s</td><td>%s</td><td%s>%s</td>"
                 "<td>%d</td><td>%d</td><td>%dx%d</td><td>%.2f</td><td>%.1f</td><td>%.1f</td>"
                 "<td>%.1f</td><td>%.1f</td><td>%.2f</td></tr>\n",
                 Html(s.photo).c_str(), Html(s.name).c_str(), s.width, s.height,
                 DirectionName(s.direction), ProfileName(s.profile),
                 s.complete ? "" : " class=\"bad\"", Html(OutcomeOf(s)).c_str(), s.frames, s.kept,
                 s.pano_width, s.pano_height, s.track_mean, s.track_max, s.psnr, s.chroma_psnr,
                 s.drift, s.ms_per_frame);
  }
  std::fputs("</table>\n", f);
  for (std::size_t i = 0; i < scores.size(); ++i) {
    const Score& s = scores[i];
    if (i == 0 || s.photo != scores[i - 1].photo || s.name != scores[i - 1].name ||
        s.direction != scores[i - 1].direction || s.width != scores[i - 1].width)
      std::fprintf(f, "<h2>%s, %s, %dx%d, %s</h2>\n", Html(s.photo).c_str(), Html(s.name).c_str(),
                   s.width, s.height, DirectionName(s.direction));
    std::fprintf(f, "<figure><figcaption>%s: %s</figcaption>\n", ProfileName(s.profile),
                 Html(OutcomeOf(s)).c_str());
    if (!s.thumbnail.empty())
      std::fprintf(f,
                   "<img class=\"pano\" alt=\"panorama\" src=\"data:image/jpeg;base64,%s\"><br>\n",
                   Base64(s.thumbnail).c_str());
    std::fprintf(f, "<div class=\"chart\">%s</div></figure>\n", Svg(s).c_str());
  }
  std::fputs(
      "<script>window.addEventListener('load', () => {\n"
      "  const imgs = [...document.images];\n"
      "  const charts = [...document.querySelectorAll('.chart svg')];\n"
      "  document.body.dataset.images = imgs.length;\n"
      "  document.body.dataset.imagesShown = imgs.filter(i => i.complete && i.naturalWidth > "
      "0).length;\n"
      "  document.body.dataset.charts = charts.length;\n"
      "  document.body.dataset.chartsShown = charts.filter(c => c.getBBox().width > 0).length;\n"
      "});</script>\n</body></html>\n",
      f);
  const bool ok = std::fclose(f) == 0;
  if (!ok) *error = "cannot write " + path;
  return ok;
}

}  // namespace

std::string JsonQuote(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    if (static_cast<unsigned char>(c) >= 0x20) out += c;
  }
  return out + "\"";
}

namespace {

Score Capture1(const Simulator& sim, const std::string& photo_name, const std::string& name,
               const SimOptions& options, std::int32_t profile) {
  Score s;
  s.profile = profile;
  s.photo = photo_name;
  s.name = name;
  s.width = options.width;
  s.height = options.height;
  s.direction = options.direction;
  CaptureOptions capture_options{"", false, false};
  capture_options.profile = profile;
  Capture cap(options.width, options.height, options.format, capture_options);
  for (int k = 0; k < sim.frames(); ++k) {
    Yuv420 frame = sim.Frame(k);
    if (!cap.Feed(frame)) break;
  }
  cap.Finish();
  s.complete = cap.complete();
  s.end_code = cap.end_code();
  s.frames = cap.frames_read();
  s.kept = cap.frames_kept();
  s.narrow = cap.narrow();
  s.pano_width = cap.panorama().width();
  s.pano_height = cap.panorama().height();
  s.ms_per_frame = cap.ms_per_frame();
  if (cap.panorama().width() > 0) {
    std::string ignored;
    ZMOSIMAGE pano = const_cast<Yuv420&>(cap.panorama()).Image();
    EncodeJpeg(Shrink(ImageToRgb(pano), 480), 85, &s.thumbnail, &ignored);
  }

  // Tracking: the engine reports the travel since the detecting frame (y negated).
  const int d = cap.detected_at();
  if (d >= 0) {
    const auto [x0, y0] = sim.Position(d);
    double sum = 0;
    int n = 0;
    s.first_frame = d;
    for (const FrameRecord& r : cap.records()) {
      if (r.index < d || r.result != 0) continue;
      const auto [x, y] = sim.Position(r.index);
      const double ex = r.offset_x - (x - x0), ey = -r.offset_y - (y - y0);
      const double e = std::hypot(ex, ey);
      sum += e;
      ++n;
      s.track_max = std::max(s.track_max, e);
      const bool horizontal = options.direction < 2;
      s.error_along.push_back(horizontal ? ex : ey);
      s.error_across.push_back(horizontal ? ey : ex);
    }
    s.track_mean = n > 0 ? sum / n : 0;
    if (!cap.narrow() && s.pano_width > 0) {
      const int fw = options.width, fh = options.height;
      const int ex = options.direction == 1 ? x0 + fw - s.pano_width : x0;
      const int ey = options.direction == 3 ? y0 + fh - s.pano_height : y0;
      const auto [ax, ay] = Align(cap.panorama(), sim, ex, ey);
      ScorePanorama(cap.panorama(), sim, ax, ay, &s);
    }
  }
  return s;
}

}  // namespace

std::string OutcomeOf(const Score& s) {
  if (s.photo_too_small) {
    char text[64];
    std::snprintf(text, sizeof(text), "photo too small (x%.1f)", s.photo_scale);
    return text;
  }
  if (s.complete) return "complete";
  if (s.end_code == ZMOS_ERR_SWEEP_WRONG) return "0x7001 gone wrong";
  if (s.end_code == ZMOS_ERR_TOO_FAST) return "0x7003 too fast";
  if (s.end_code != 0) return std::to_string(s.end_code) + " " + Describe(s.end_code);
  return "incomplete";
}

std::vector<Score> RunScenario(const Rgb& photo, const std::string& photo_name,
                               const std::string& name, const SimOptions& options,
                               const std::vector<std::int32_t>& profiles) {
  SimOptions bounded = options;
  bounded.max_scale = kMaxPhotoScale;
  const Simulator sim(photo, bounded);
  std::vector<Score> scores;
  for (std::int32_t profile : profiles) {
    if (sim.too_small()) {
      Score s;
      s.photo = photo_name, s.name = name, s.profile = profile;
      s.width = options.width, s.height = options.height, s.direction = options.direction;
      s.photo_scale = sim.scale();
      s.photo_too_small = true;
      scores.push_back(s);
      continue;
    }
    scores.push_back(Capture1(sim, photo_name, name, options, profile));
    scores.back().photo_scale = sim.scale();
  }
  return scores;
}

bool WriteReport(const std::vector<Score>& scores, const std::string& dir, std::string* error) {
  namespace fs = std::filesystem;
  std::error_code ec;
  fs::create_directories(dir, ec);
  std::FILE* md = std::fopen((dir + "/report.md").c_str(), "w");
  if (md == nullptr) {
    *error = "cannot write " + dir + "/report.md";
    return false;
  }
  std::fputs("# lumivex evaluation\n\n## The profiles side by side\n\n", md);
  // One row a sweep: every profile's outcome next to the others'.
  std::vector<std::int32_t> profiles;
  for (const Score& s : scores)
    if (std::find(profiles.begin(), profiles.end(), s.profile) == profiles.end())
      profiles.push_back(s.profile);
  std::fputs("| photo | scenario | frame | direction |", md);
  for (const char* column :
       {"result", "track mean", "PSNR", "chroma PSNR", "drift %", "seam step %"})
    for (std::int32_t p : profiles) std::fprintf(md, " %s (%s) |", column, ProfileName(p));
  std::fputs("\n|---|---|---|---|", md);
  for (std::size_t i = 0; i < 6 * profiles.size(); ++i) std::fputs("---:|", md);
  std::fputs("\n", md);
  for (std::size_t i = 0; i < scores.size(); i += profiles.size()) {
    const Score& first = scores[i];
    std::fprintf(md, "| %s | %s | %dx%d | %s |", first.photo.c_str(), first.name.c_str(),
                 first.width, first.height, DirectionName(first.direction));
    const std::size_t n = std::min(profiles.size(), scores.size() - i);
    for (std::size_t k = 0; k < n; ++k) std::fprintf(md, " %s |", OutcomeOf(scores[i + k]).c_str());
    for (std::size_t k = 0; k < n; ++k) std::fprintf(md, " %.2f |", scores[i + k].track_mean);
    for (std::size_t k = 0; k < n; ++k) std::fprintf(md, " %.1f |", scores[i + k].psnr);
    for (std::size_t k = 0; k < n; ++k) std::fprintf(md, " %.1f |", scores[i + k].chroma_psnr);
    for (std::size_t k = 0; k < n; ++k) std::fprintf(md, " %.1f |", scores[i + k].drift);
    for (std::size_t k = 0; k < n; ++k) std::fprintf(md, " %.2f |", scores[i + k].seam_step);
    std::fputs("\n", md);
  }
  std::fputs(
      "\n## Every capture\n\n"
      "| photo | scenario | frame | direction | profile | result | frames | kept | panorama | "
      "track mean | track max | PSNR | chroma PSNR | drift % | ms/frame |\n"
      "|---|---|---|---|---|---|---:|---:|---|---:|---:|---:|---:|---:|---:|\n",
      md);
  for (const Score& s : scores) {
    std::fprintf(md,
                 "| %s | %s | %dx%d | %s | %s | %s | %d | %d | %dx%d%s | %.2f | %.1f | %.1f | "
                 "%.1f | %.1f | %.2f |\n",
                 s.photo.c_str(), s.name.c_str(), s.width, s.height, DirectionName(s.direction),
                 ProfileName(s.profile), OutcomeOf(s).c_str(), s.frames, s.kept, s.pano_width,
                 s.pano_height, s.narrow ? " (narrow)" : "", s.track_mean, s.track_max, s.psnr,
                 s.chroma_psnr, s.drift, s.ms_per_frame);
  }
  std::fputs(
      "\nTracking error: distance between the engine's reported travel and the true one, "
      "per frame after direction detection. PSNR: panorama luma (and chroma) against the "
      "photograph at the best alignment (99 = identical). Drift: the largest brightness "
      "departure from the photograph over 64-pixel blocks. Seam step: the largest change of "
      "that brightness from one 16-line slice to the next along the sweep.\n\n",
      md);
  for (std::size_t i = 0; i < scores.size(); ++i) {
    const std::string svg = "scenario-" + std::to_string(i + 1) + ".svg";
    if (std::FILE* f = std::fopen((dir + "/" + svg).c_str(), "w")) {
      std::fputs(Svg(scores[i]).c_str(), f);
      std::fclose(f);
    }
    std::fprintf(md, "%zu. %s, %s, %dx%d, %s: ![travel](%s)\n", i + 1, scores[i].photo.c_str(),
                 scores[i].name.c_str(), scores[i].width, scores[i].height,
                 ProfileName(scores[i].profile), svg.c_str());
  }
  std::fclose(md);
  return WriteHtml(scores, dir + "/report.html", error);
}

std::string ToJson(const std::vector<Score>& scores) {
  std::ostringstream out;
  out << "[\n";
  for (std::size_t i = 0; i < scores.size(); ++i) {
    const Score& s = scores[i];
    out << "  {\"photo\": " << JsonQuote(s.photo) << ", \"scenario\": " << JsonQuote(s.name)
        << ", \"profile\": " << JsonQuote(ProfileName(s.profile)) << ", \"width\": " << s.width
        << ", \"height\": " << s.height << ", \"direction\": " << s.direction
        << ", \"complete\": " << (s.complete ? "true" : "false") << ", \"end_code\": " << s.end_code
        << ", \"frames\": " << s.frames << ", \"kept\": " << s.kept
        << ", \"narrow\": " << (s.narrow ? "true" : "false") << ", \"panorama\": [" << s.pano_width
        << ", " << s.pano_height << "], \"track_mean\": " << s.track_mean
        << ", \"track_max\": " << s.track_max << ", \"psnr\": " << s.psnr
        << ", \"chroma_psnr\": " << s.chroma_psnr << ", \"drift\": " << s.drift
        << ", \"seam_step\": " << s.seam_step << ", \"ms_per_frame\": " << s.ms_per_frame
        << ", \"photo_scale\": " << s.photo_scale
        << ", \"photo_too_small\": " << (s.photo_too_small ? "true" : "false") << "}"
        << (i + 1 < scores.size() ? "," : "") << "\n";
  }
  out << "]\n";
  return out.str();
}

}  // namespace lumivex::tools
