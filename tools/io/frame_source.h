// Where the tools' frames come from: the interface every reader implements.
#ifndef LUMIVEX_TOOLS_IO_FRAME_SOURCE_H_
#define LUMIVEX_TOOLS_IO_FRAME_SOURCE_H_

#include <string>

#include "tools/io/picture.h"

namespace lumivex::tools {

// The smallest frames the engine can sweep with.
inline constexpr int kMinFrameWidth = 96;
inline constexpr int kMinFrameHeight = 32;

class FrameSource {
 public:
  virtual ~FrameSource() = default;
  // The next frame in the requested format; false at the end or on an error (then
  // error() is non-empty).
  virtual bool Next(Yuv420* frame) = 0;
  // Reads the rest of the input without making frames of it (a pipe's writer finishes
  // cleanly) and says how many frames it held: what a capture that has ended left unused.
  virtual int SkipRest() = 0;
  const std::string& error() const { return error_; }
  // Set when the input ended badly but the frames before were good (a cut file).
  const std::string& warning() const { return warning_; }

 protected:
  std::string error_;
  std::string warning_;
};

// "WxH".
std::string SizeText(int w, int h);
// Bad for frames of w x h (odd, too small for the engine or too large): false with why.
bool CheckFrameSize(int w, int h, std::string* error);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_IO_FRAME_SOURCE_H_
