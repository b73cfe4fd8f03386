#include "tools/io/frame_source.h"

namespace lumivex::tools {

std::string SizeText(int w, int h) {
  return std::to_string(w) + "x" + std::to_string(h);
}

// Frames are 4:2:0, so sizes are even; the engine needs at least kMinFrameWidth x
// kMinFrameHeight (below that it cannot lay out a strip or its trackers), and frames above
// kMaxPictureSide a side would not fit its 32-bit work buffer.
bool CheckFrameSize(int w, int h, std::string* error) {
  const std::string size = SizeText(w, h);
  if ((w & 1) || (h & 1)) {
    *error = "frame size " + size + " is odd: 4:2:0 frames need even sizes";
    return false;
  }
  if (w < kMinFrameWidth || h < kMinFrameHeight) {
    *error = "frame size " + size + " is too small: the smallest that works is " +
             std::to_string(kMinFrameWidth) + "x" + std::to_string(kMinFrameHeight);
    return false;
  }
  if (w > kMaxPictureSide || h > kMaxPictureSide) {
    *error = "frame size " + size + " is too large: at most " + std::to_string(kMaxPictureSide) +
             " a side";
    return false;
  }
  return true;
}

}  // namespace lumivex::tools
