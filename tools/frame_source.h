// Where the tools' frames come from: a video (through ffmpeg's libraries), raw NV21 or
// I420 frames, or still pictures; and the Y4M writer.
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
  // Set when the input ended badly but the frames before were good (a cut file).
  const std::string& warning() const { return warning_; }

 protected:
  std::string error_;
  std::string warning_;
};

// Bad for frames of w x h (odd, too small for the engine or too large): false with why.
bool CheckFrameSize(int w, int h, std::string* error);

// Sorts names as people number them: "2.jpg" before "10.jpg".
void NaturalSort(std::vector<std::string>* names);

// INPUT as the stitch command takes it: a folder of JPEG/PNG frames, a text file listing
// them, raw frames in `format` (raw_width > 0; "-" is stdin), or any video ffmpeg reads
// ("-" is stdin, e.g. a Y4M stream).
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
