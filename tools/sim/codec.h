// A round trip through H.264 at a phone's bitrate (libx264 through libavcodec, then
// libavcodec's decoder): the blocking, smoothing and ringing a recorded clip carries.
#ifndef LUMIVEX_TOOLS_SIM_CODEC_H_
#define LUMIVEX_TOOLS_SIM_CODEC_H_

#include <memory>
#include <string>

#include "tools/io/picture.h"

namespace lumivex::tools {

// Phones record 1080p at about 17 Mbit/s: a quarter of a bit a pixel at 30 frames a second.
inline constexpr double kPhoneBitsPerPixel = 0.27;

class H264RoundTrip {
 public:
  H264RoundTrip();
  ~H264RoundTrip();
  H264RoundTrip(const H264RoundTrip&) = delete;
  H264RoundTrip& operator=(const H264RoundTrip&) = delete;

  // Frames of w x h at `fps`, coded at `bits_per_pixel` a pixel (a second's frames over a
  // second's bits), one key frame a second.
  bool Open(int width, int height, double fps, double bits_per_pixel, std::string* error);
  // Codes `frame` and replaces it with the decoded picture (same size and format). Frames
  // come out in order, one for one, without delay.
  bool Process(Yuv420* frame, std::string* error);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_SIM_CODEC_H_
