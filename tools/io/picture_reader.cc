#include "tools/io/picture_reader.h"

#include "tools/io/image_files.h"

namespace lumivex::tools {
namespace {

class PictureSource : public FrameSource {
 public:
  PictureSource(std::vector<std::string> paths, std::uint32_t format)
      : paths_(std::move(paths)), format_(format) {}
  bool Next(Yuv420* frame) override {
    if (next_ >= paths_.size()) return false;
    const std::string& path = paths_[next_++];
    Rgb rgb;
    if (!ReadImage(path, &rgb, &error_)) return false;
    const int w = rgb.width & ~1, h = rgb.height & ~1;
    if (!CheckFrameSize(w, h, &error_)) {
      error_ = path + ": " + error_;
      return false;
    }
    if (width_ == 0) {
      width_ = w;
      height_ = h;
    } else if (w != width_ || h != height_) {
      error_ = path + ": frame size " + SizeText(w, h) + " differs from the first frame's " +
               SizeText(width_, height_);
      return false;
    }
    *frame = RgbToYuv420(rgb, format_);
    return true;
  }
  // The rest are counted, not decoded.
  int SkipRest() override {
    const auto rest = static_cast<int>(paths_.size() - next_);
    next_ = paths_.size();
    return rest;
  }

 private:
  std::vector<std::string> paths_;
  std::size_t next_ = 0;
  std::uint32_t format_;
  int width_ = 0, height_ = 0;
};

}  // namespace

std::unique_ptr<FrameSource> OpenPictures(std::vector<std::string> paths, std::uint32_t format) {
  return std::make_unique<PictureSource>(std::move(paths), format);
}

}  // namespace lumivex::tools
