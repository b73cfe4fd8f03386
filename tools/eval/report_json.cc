#include <sstream>

#include "tools/capture/capture.h"
#include "tools/eval/report.h"

namespace lumivex::tools {

std::string JsonQuote(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    if (static_cast<unsigned char>(c) >= 0x20) out += c;
  }
  return out + "\"";
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
        << ", \"photo_too_small\": " << (s.photo_too_small ? "true" : "false");
    if (s.camera) {
      out << ", \"camera\": true, \"codec\": " << (s.codec ? "true" : "false")
          << ", \"light\": " << JsonQuote(s.light) << ", \"pairs\": " << s.pairs
          << ", \"plain_pairs\": " << s.plain_pairs << ", \"pairs_within1\": " << s.pairs_within1
          << ", \"pairs_exact\": " << s.pairs_exact << ", \"pair_err_max\": " << s.pair_err_max
          << ", \"image_within1\": " << s.image_within1 << ", \"image_exact\": " << s.image_exact
          << ", \"image_err_max\": " << s.image_err_max
          << ", \"seam_mis_mean\": " << s.seam_mis_mean << ", \"seam_mis_max\": " << s.seam_mis_max
          << ", \"mean_luma\": " << s.mean_luma << ", \"clipped\": " << s.clipped
          << ", \"exposure_step\": " << s.exposure_step << ", \"ev_range\": " << s.ev_range
          << ", \"verdict\": " << JsonQuote(s.verdict);
    }
    out << "}"
        << (i + 1 < scores.size() ? "," : "") << "\n";
  }
  out << "]\n";
  return out.str();
}

}  // namespace lumivex::tools
