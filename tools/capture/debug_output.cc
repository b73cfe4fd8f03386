#include "tools/capture/debug_output.h"

#include <algorithm>
#include <cstdio>

namespace lumivex::tools {
namespace {

// Digits 0-9 in a 3 x 5 bitmap font, a row of three bits per line.
constexpr std::uint8_t kDigits[10][5] = {
    {7, 5, 5, 5, 7}, {2, 6, 2, 2, 7}, {7, 1, 7, 4, 7}, {7, 1, 7, 1, 7}, {5, 5, 7, 1, 1},
    {7, 4, 7, 1, 7}, {7, 4, 7, 5, 7}, {7, 1, 1, 1, 1}, {7, 5, 7, 5, 7}, {7, 5, 7, 1, 7}};

void Blend(Rgb* rgb, int x, int y, const std::uint8_t colour[3], int alpha) {
  if (x < 0 || y < 0 || x >= rgb->width || y >= rgb->height) return;
  std::uint8_t* p = rgb->pixels.data() + (static_cast<std::size_t>(y) * rgb->width + x) * 3;
  for (int c = 0; c < 3; ++c)
    p[c] = static_cast<std::uint8_t>((p[c] * (256 - alpha) + colour[c] * alpha) / 256);
}

// The number in black on a white box, 2 x scale, its top-left corner at (x, y).
void Label(Rgb* rgb, int x, int y, int number) {
  const std::string text = std::to_string(number);
  constexpr std::uint8_t kWhite[3] = {255, 255, 255}, kBlack[3] = {0, 0, 0};
  const int w = static_cast<int>(text.size()) * 8 + 2, h = 14;
  for (int dy = 0; dy < h; ++dy)
    for (int dx = 0; dx < w; ++dx) Blend(rgb, x + dx, y + dy, kWhite, 200);
  for (std::size_t k = 0; k < text.size(); ++k)
    for (int row = 0; row < 5; ++row)
      for (int col = 0; col < 3; ++col)
        if (kDigits[text[k] - '0'][row] >> (2 - col) & 1)
          for (int sy = 0; sy < 2; ++sy)
            for (int sx = 0; sx < 2; ++sx)
              Blend(rgb, x + 2 + static_cast<int>(k) * 8 + 2 * col + sx, y + 2 + 2 * row + sy,
                    kBlack, 256);
}

}  // namespace

// Overlap bands lightly tinted, each seam a thin half-transparent red line, and every
// Nth seam numbered (about twenty labels at most), so a hundred seams stay readable.
void DrawSeams(Rgb* rgb, const std::vector<Capture::Seam>& seams, bool horizontal) {
  constexpr std::uint8_t kTint[3] = {255, 200, 0}, kRed[3] = {255, 0, 0};
  const int extent = horizontal ? rgb->width : rgb->height;
  const int across = horizontal ? rgb->height : rgb->width;
  auto at = [&](int a, int c, const std::uint8_t colour[3], int alpha) {
    horizontal ? Blend(rgb, a, c, colour, alpha) : Blend(rgb, c, a, colour, alpha);
  };
  const int every = std::max<int>(1, static_cast<int>((seams.size() + 19) / 20));
  for (std::size_t i = 0; i < seams.size(); ++i) {
    const Capture::Seam& s = seams[i];
    for (int a = std::max(s.start, 0); a < std::min(s.end, extent); ++a)
      for (int c = 0; c < across; ++c) at(a, c, kTint, 40);
    const int line = s.start + (s.end - s.start - 1) / 2;
    if (line < 0 || line >= extent) continue;
    for (int c = 0; c < across; ++c) at(line, c, kRed, 128);
    if (i % every == 0)
      horizontal ? Label(rgb, line + 2, 2, static_cast<int>(i) + 1)
                 : Label(rgb, 2, line + 2, static_cast<int>(i) + 1);
  }
}

void WriteFramesJson(const std::string& path, const std::vector<FrameRecord>& records) {
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) return;
  std::fputs("[\n", f);
  for (std::size_t i = 0; i < records.size(); ++i) {
    const FrameRecord& r = records[i];
    std::fprintf(
        f,
        "  {\"frame\": %d, \"result\": %d, \"kept\": %s, \"angle\": %d, \"offset\": [%d, %d], "
        "\"direction\": %d, \"coasting\": %s, \"laid_too_fast\": %s}%s\n",
        r.index, r.result, r.kept ? "true" : "false", r.angle, r.offset_x, r.offset_y, r.direction,
        r.coasting ? "true" : "false", r.laid_too_fast ? "true" : "false",
        i + 1 < records.size() ? "," : "");
  }
  std::fputs("]\n", f);
  std::fclose(f);
}

}  // namespace lumivex::tools
