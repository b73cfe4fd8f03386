// Where the tools' frames come from: a Y4M stream or file, raw NV21, or still pictures,
// and the Y4M writer.
#ifndef LUMIVEX_TOOLS_FRAME_SOURCE_H_
#define LUMIVEX_TOOLS_FRAME_SOURCE_H_

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tools/image_io.h"

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
  const std::string& error() const { return error_; }

 protected:
  std::string error_;
};

// INPUT as the stitch command takes it: "-" (Y4M on stdin), a .y4m file, a raw NV21 file
// (size required), a folder of JPEG/PNG frames, or a text file listing them.
std::unique_ptr<FrameSource> OpenFrames(const std::string& input, int raw_width, int raw_height,
                                        std::uint32_t format, std::string* error);

class Y4mWriter {
 public:
  // Writes 4:2:0 (C420jpeg) frames of the given size; "-" is stdout.
  bool Open(const std::string& path, int width, int height, int fps, std::string* error);
  bool Write(const Yuv420& frame);
  bool Close(std::string* error);
  ~Y4mWriter();

 private:
  std::FILE* file_ = nullptr;
  bool owned_ = false;
  int width_ = 0, height_ = 0;
};

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_FRAME_SOURCE_H_
