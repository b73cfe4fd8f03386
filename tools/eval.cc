#include "tools/eval.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>

namespace lumivex::tools {
namespace {

// PSNR of the panorama's luma against the photograph, at the best alignment within a few
// pixels of where the sweep's starting edge puts it.
double Psnr(const Yuv420& pano, const Simulator& sim, int x, int y) {
  double best = 1e30;
  const int w = sim.photo_width(), h = sim.photo_height();
  for (int dy = -6; dy <= 6; ++dy) {
    for (int dx = -6; dx <= 6; ++dx) {
      double err = 0;
      long n = 0;
      for (int r = 0; r < pano.height(); r += 2) {
        for (int c = 0; c < pano.width(); c += 2) {
          const int px = x + dx + c, py = y + dy + r;
          if (px < 0 || py < 0 || px >= w || py >= h) continue;
          const int d = pano.y()[static_cast<std::size_t>(r) * pano.width() + c] -
                        sim.luma()[static_cast<std::size_t>(py) * w + px];
          err += d * d;
          ++n;
        }
      }
      if (n > 0) best = std::min(best, err / n);
    }
  }
  if (best >= 1e30) return 0;
  return best > 0 ? 10 * std::log10(255.0 * 255.0 / best) : 99.0;
}

std::string Code(const Score& s) {
  if (s.complete) return "complete";
  if (s.end_code == ZMOS_ERR_SWEEP_WRONG) return "0x7001 gone wrong";
  if (s.end_code == ZMOS_ERR_TOO_FAST) return "0x7003 too fast";
  if (s.end_code != 0) return std::to_string(s.end_code) + " " + Describe(s.end_code);
  return "incomplete";
}

std::string Svg(const Score& s) {
  std::ostringstream out;
  const int w = 360, h = 160, pad = 28;
  double top = 1;
  for (double v : s.truth) top = std::max(top, std::abs(v));
  for (double v : s.estimate) top = std::max(top, std::abs(v));
  const std::size_t n = std::max<std::size_t>(s.truth.size(), 2);
  auto point = [&](std::size_t i, double v) {
    std::ostringstream p;
    p << pad + (w - 2 * pad) * double(i) / double(n - 1) << ','
      << h - pad - (h - 2 * pad) * (v / top + 1) / 2;
    return p.str();
  };
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << w << "\" height=\"" << h
      << "\" font-family=\"sans-serif\" font-size=\"10\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
      << "<line x1=\"" << pad << "\" y1=\"" << h / 2 << "\" x2=\"" << w - pad << "\" y2=\"" << h / 2
      << "\" stroke=\"#ccc\"/>\n";
  for (int line = 0; line < 2; ++line) {
    const auto& v = line == 0 ? s.truth : s.estimate;
    out << "<polyline fill=\"none\" stroke=\"" << (line == 0 ? "#999" : "#d22")
        << "\" stroke-width=\"" << (line == 0 ? 3 : 1.2) << "\" points=\"";
    for (std::size_t i = 0; i < v.size(); ++i) out << point(i, v[i]) << ' ';
    out << "\"/>\n";
  }
  out << "<text x=\"" << pad
      << "\" y=\"14\">travel along the sweep (px): true (grey), engine (red), "
      << "+-" << static_cast<int>(top) << "</text>\n</svg>\n";
  return out.str();
}

std::string Quote(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    if (static_cast<unsigned char>(c) >= 0x20) out += c;
  }
  return out + "\"";
}

}  // namespace

Score RunScenario(const Rgb& photo, const std::string& photo_name, const std::string& name,
                  const SimOptions& options) {
  Score s;
  s.photo = photo_name;
  s.name = name;
  s.width = options.width;
  s.height = options.height;
  s.direction = options.direction;
  const Simulator sim(photo, options);
  Capture cap(options.width, options.height, options.format, CaptureOptions{"", false, false});
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

  // Tracking: the engine reports the travel since the detecting frame (y negated).
  const int d = cap.detected_at();
  if (d >= 0) {
    const auto [x0, y0] = sim.Position(d);
    double sum = 0;
    int n = 0;
    for (const FrameRecord& r : cap.records()) {
      if (r.index < d || r.result != 0) continue;
      const auto [x, y] = sim.Position(r.index);
      const double ex = r.offset_x - (x - x0), ey = -r.offset_y - (y - y0);
      const double e = std::hypot(ex, ey);
      sum += e;
      ++n;
      s.track_max = std::max(s.track_max, e);
      const bool horizontal = options.direction < 2;
      s.truth.push_back(horizontal ? x - x0 : y - y0);
      s.estimate.push_back(horizontal ? r.offset_x : -r.offset_y);
    }
    s.track_mean = n > 0 ? sum / n : 0;
    if (!cap.narrow() && s.pano_width > 0) {
      const int fw = options.width, fh = options.height;
      const int ex = options.direction == 1 ? x0 + fw - s.pano_width : x0;
      const int ey = options.direction == 3 ? y0 + fh - s.pano_height : y0;
      s.psnr = Psnr(cap.panorama(), sim, ex, ey);
    }
  }
  return s;
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
  std::fputs(
      "# lumivex evaluation\n\n"
      "| photo | scenario | frame | direction | result | frames | kept | panorama | "
      "track mean | track max | PSNR | ms/frame |\n"
      "|---|---|---|---|---|---:|---:|---|---:|---:|---:|---:|\n",
      md);
  for (std::size_t i = 0; i < scores.size(); ++i) {
    const Score& s = scores[i];
    std::fprintf(md,
                 "| %s | %s | %dx%d | %s | %s | %d | %d | %dx%d%s | %.2f | %.1f | %.1f | %.2f |\n",
                 s.photo.c_str(), s.name.c_str(), s.width, s.height, DirectionName(s.direction),
                 Code(s).c_str(), s.frames, s.kept, s.pano_width, s.pano_height,
                 s.narrow ? " (narrow)" : "", s.track_mean, s.track_max, s.psnr, s.ms_per_frame);
  }
  std::fputs(
      "\nTracking error: distance between the engine's reported travel and the true one, "
      "per frame after direction detection. PSNR: panorama luma against the photograph "
      "(99 = identical).\n\n",
      md);
  for (std::size_t i = 0; i < scores.size(); ++i) {
    const std::string svg = "scenario-" + std::to_string(i + 1) + ".svg";
    if (std::FILE* f = std::fopen((dir + "/" + svg).c_str(), "w")) {
      std::fputs(Svg(scores[i]).c_str(), f);
      std::fclose(f);
    }
    std::fprintf(md, "%zu. %s, %s, %dx%d: ![travel](%s)\n", i + 1, scores[i].photo.c_str(),
                 scores[i].name.c_str(), scores[i].width, scores[i].height, svg.c_str());
  }
  std::fclose(md);
  return true;
}

std::string ToJson(const std::vector<Score>& scores) {
  std::ostringstream out;
  out << "[\n";
  for (std::size_t i = 0; i < scores.size(); ++i) {
    const Score& s = scores[i];
    out << "  {\"photo\": " << Quote(s.photo) << ", \"scenario\": " << Quote(s.name)
        << ", \"width\": " << s.width << ", \"height\": " << s.height
        << ", \"direction\": " << s.direction
        << ", \"complete\": " << (s.complete ? "true" : "false") << ", \"end_code\": " << s.end_code
        << ", \"frames\": " << s.frames << ", \"kept\": " << s.kept
        << ", \"narrow\": " << (s.narrow ? "true" : "false") << ", \"panorama\": [" << s.pano_width
        << ", " << s.pano_height << "], \"track_mean\": " << s.track_mean
        << ", \"track_max\": " << s.track_max << ", \"psnr\": " << s.psnr
        << ", \"ms_per_frame\": " << s.ms_per_frame << "}" << (i + 1 < scores.size() ? "," : "")
        << "\n";
  }
  out << "]\n";
  return out.str();
}

}  // namespace lumivex::tools
