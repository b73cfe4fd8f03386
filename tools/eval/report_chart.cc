#include <algorithm>
#include <cmath>
#include <sstream>

#include "tools/capture/capture.h"
#include "tools/eval/report.h"

namespace lumivex::tools {

// The tracking error of one sweep on both axes against the frame number, with its axes,
// units and a caption naming the sweep.
std::string Chart(const Score& s) {
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

}  // namespace lumivex::tools
