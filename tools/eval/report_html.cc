extern "C" {
#include <libavutil/base64.h>
}

#include <algorithm>
#include <cstdio>

#include "tools/capture/capture.h"
#include "tools/eval/report.h"
#include "tools/eval/report_columns.h"

namespace lumivex::tools {
namespace {

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

}  // namespace

// One file with everything: the headline, the tables, the legend, then per scenario each
// profile's panorama and tracking chart. A script counts the pictures and charts that rendered (for tests).
bool WriteHtml(const std::vector<Score>& scores, const std::string& path, std::string* error) {
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) {
    *error = "cannot write " + path;
    return false;
  }
  std::fputs(
      "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>lumivex evaluation</title>\n"
      "<style>body{font-family:sans-serif;margin:1.5em;color:#222}table{border-collapse:"
      "collapse;font-size:13px;margin-bottom:1em}td,th{border:1px solid #ccc;padding:3px 6px;"
      "text-align:right}td:nth-child(-n+7),th{text-align:left}tr.bad td{color:#b00}"
      "dt{font-weight:bold;float:left;clear:left;width:11em}dd{margin-left:12em}"
      "figure{display:inline-block;vertical-align:top;margin:0 1em 1em 0}img{max-width:480px;"
      "max-height:480px;border:1px solid #ccc}</style></head>\n<body>\n"
      "<h1>lumivex evaluation</h1>\n<ul class=\"headline\">\n",
      f);
  for (const std::string& line : Headline(scores))
    std::fprintf(f, "<li>%s</li>\n", Html(line).c_str());
  std::fputs("</ul>\n", f);
  // Slid and camera-true sweeps apart (their columns differ); rows of failed captures,
  // and of complete ones not fit to show, in red.
  for (const bool camera : {false, true}) {
    if (std::none_of(scores.begin(), scores.end(), [&](const Score& s) { return s.camera == camera; }))
      continue;
    std::fprintf(f, "<h2>%s</h2>\n<table>\n<tr>", camera ? "Camera-true sweeps" : "Slid sweeps");
    for (const Column& c : Columns())
      if (Shows(c, camera)) std::fprintf(f, "<th title=\"%s\">%s</th>", Html(c.meaning).c_str(), c.name);
    std::fputs("</tr>\n", f);
    for (const Score& s : scores) {
      if (s.camera != camera) continue;
      const bool bad = !s.complete || !BadCompletion(s).empty();
      std::fprintf(f, "<tr%s>", bad ? " class=\"bad\"" : "");
      for (const Column& c : Columns())
        if (Shows(c, camera)) std::fprintf(f, "<td>%s</td>", Html(c.value(s)).c_str());
      std::fputs("</tr>\n", f);
    }
    std::fputs("</table>\n", f);
  }
  std::fputs("<h2>What the columns say</h2>\n<dl>\n", f);
  for (const auto& [name, meaning] : Legend())
    std::fprintf(f, "<dt>%s</dt><dd>%s</dd>\n", Html(name).c_str(), Html(meaning).c_str());
  std::fputs("</dl>\n", f);

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
    std::fprintf(f, "<div class=\"chart\">%s</div></figure>\n", Chart(s).c_str());
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

}  // namespace lumivex::tools
