#include "tools/frame_source.h"

#include "tools/video_source.h"

#include <string.h>  // strverscmp

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace lumivex::tools {

// Frames are 4:2:0, so sizes are even; the engine needs at least kMinFrameWidth x
// kMinFrameHeight (below that it cannot lay out a strip or its trackers), and frames above
// kMaxPictureSide a side would not fit its 32-bit work buffer.
bool CheckFrameSize(int w, int h, std::string* error) {
  const std::string size = std::to_string(w) + "x" + std::to_string(h);
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

void NaturalSort(std::vector<std::string>* names) {
  // glibc's version order: runs of digits compare by value.
  std::stable_sort(names->begin(), names->end(), [](const std::string& a, const std::string& b) {
    return strverscmp(a.c_str(), b.c_str()) < 0;
  });
}

namespace {

// Reads `need` bytes into `buffer`, growing it only as the data arrives, so a header that
// promises a huge frame costs nothing until the file really holds it. False when the input
// ends first (`*got` says how much came).
bool ReadExactly(std::FILE* f, std::size_t need, std::vector<std::uint8_t>* buffer,
                 std::size_t* got) {
  constexpr std::size_t kChunk = 1 << 20;
  buffer->clear();
  *got = 0;
  while (*got < need) {
    const std::size_t want = std::min(kChunk, need - *got);
    buffer->resize(*got + want);
    const std::size_t n = std::fread(buffer->data() + *got, 1, want, f);
    *got += n;
    if (n < want) {
      buffer->resize(*got);
      return false;
    }
  }
  return true;
}

// Raw frames, one after another, in the layout the engine is fed (NV21 or I420).
class RawSource : public FrameSource {
 public:
  RawSource(std::FILE* f, bool owned, int w, int h, std::uint32_t format)
      : f_(f), owned_(owned), w_(w), h_(h), format_(format) {}
  ~RawSource() override {
    if (owned_) std::fclose(f_);
  }
  bool Next(Yuv420* frame) override {
    const std::size_t bytes = static_cast<std::size_t>(w_) * h_ * 3 / 2;
    std::size_t got = 0;
    if (!ReadExactly(f_, bytes, &buffer_, &got)) {
      if (got > 0)
        warning_ = "the input ends in the middle of frame " + std::to_string(frames_ + 1) + " (" +
                   std::to_string(got) + " of " + std::to_string(bytes) +
                   " bytes); stitched the frames before it";
      return false;
    }
    *frame = Yuv420(w_, h_, format_);
    std::memcpy(frame->data(), buffer_.data(), bytes);
    ++frames_;
    return true;
  }

 private:
  std::FILE* f_;
  bool owned_;
  int w_, h_;
  std::uint32_t format_;
  int frames_ = 0;
  std::vector<std::uint8_t> buffer_;
};

class PictureSource : public FrameSource {
 public:
  PictureSource(std::vector<std::string> paths, std::uint32_t format)
      : paths_(std::move(paths)), format_(format) {}
  bool Next(Yuv420* frame) override {
    if (next_ >= paths_.size()) return false;
    Rgb rgb;
    if (!ReadImage(paths_[next_++], &rgb, &error_)) return false;
    if (!CheckFrameSize(rgb.width & ~1, rgb.height & ~1, &error_)) return false;
    if (width_ == 0) {
      width_ = rgb.width & ~1;
      height_ = rgb.height & ~1;
    } else if ((rgb.width & ~1) != width_ || (rgb.height & ~1) != height_) {
      error_ = paths_[next_ - 1] + ": frame size differs from the first frame";
      return false;
    }
    *frame = RgbToYuv420(rgb, format_);
    return true;
  }

 private:
  std::vector<std::string> paths_;
  std::size_t next_ = 0;
  std::uint32_t format_;
  int width_ = 0, height_ = 0;
};

bool IsPicture(const std::string& p) {
  return EndsWith(p, ".jpg") || EndsWith(p, ".jpeg") || EndsWith(p, ".png");
}

// The picture paths of a frame list (one a line, relative to the list's folder, # for
// comments); empty when the file is not such a list.
std::vector<std::string> ReadFrameList(const std::string& input) {
  namespace fs = std::filesystem;
  std::error_code ec;
  std::vector<std::string> paths;
  if (fs::file_size(input, ec) > (1u << 20) || ec) return paths;  // videos are larger
  std::ifstream list(input);
  const fs::path base = fs::path(input).parent_path();
  for (std::string line; std::getline(list, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (!IsPicture(line)) return {};
    const fs::path p(line);
    paths.push_back((p.is_absolute() ? p : base / p).string());
  }
  return paths;
}

}  // namespace

std::unique_ptr<FrameSource> OpenFrames(const std::string& input, int raw_width, int raw_height,
                                        std::uint32_t format, std::string* error) {
  namespace fs = std::filesystem;
  std::error_code ec;
  if (input != "-" && fs::is_directory(input, ec)) {
    std::vector<std::string> paths;
    for (const auto& entry : fs::directory_iterator(input, ec))
      if (entry.is_regular_file() && IsPicture(entry.path().string()))
        paths.push_back(entry.path().string());
    NaturalSort(&paths);
    if (paths.empty()) {
      *error = input + ": no .jpg or .png frames in this folder";
      return nullptr;
    }
    return std::make_unique<PictureSource>(std::move(paths), format);
  }
  if (input != "-" && !fs::exists(input, ec)) {
    *error = "cannot open " + input + ": no such file or folder";
    return nullptr;
  }
  if (raw_width > 0) {
    if (!CheckFrameSize(raw_width, raw_height, error)) return nullptr;
    std::FILE* f = input == "-" ? stdin : std::fopen(input.c_str(), "rb");
    if (f == nullptr) {
      *error = "cannot open " + input + ": " + std::strerror(errno);
      return nullptr;
    }
    return std::make_unique<RawSource>(f, input != "-", raw_width, raw_height, format);
  }
  if (IsPicture(input)) {
    *error = input + ": a single picture is not a sweep (give a folder or a list of frames)";
    return nullptr;
  }
  if (input != "-") {
    if (std::vector<std::string> paths = ReadFrameList(input); !paths.empty())
      return std::make_unique<PictureSource>(std::move(paths), format);
  }
  std::string why;
  if (auto video = OpenVideo(input, format, &why)) return video;
  *error = input + ": not a video ffmpeg can read (" + why +
           "), a frame list or a folder; raw NV21 or I420 frames need --size WxH";
  return nullptr;
}

bool Y4mWriter::Open(const std::string& path, int width, int height, int fps, std::string* error) {
  owned_ = path != "-";
  file_ = owned_ ? std::fopen(path.c_str(), "wb") : stdout;
  if (file_ == nullptr) {
    *error = "cannot write " + path + ": " + std::strerror(errno);
    return false;
  }
  width_ = width;
  height_ = height;
  // Full-range samples, as a phone camera delivers them; readers assume limited otherwise.
  std::fprintf(file_, "YUV4MPEG2 W%d H%d F%d:1 Ip A1:1 C420jpeg XCOLORRANGE=FULL\n", width, height,
               fps);
  return true;
}

bool Y4mWriter::Write(const Yuv420& frame) {
  std::fputs("FRAME\n", file_);
  std::fwrite(frame.y(), 1, frame.luma_size(), file_);
  const std::size_t c = static_cast<std::size_t>(width_ / 2) * (height_ / 2);
  if (frame.format() == ZMOS_FORMAT_I420) {
    std::fwrite(frame.chroma(), 1, 2 * c, file_);
  } else {
    std::vector<std::uint8_t> planes(2 * c);
    for (std::size_t i = 0; i < c; ++i) {
      planes[i] = frame.chroma()[2 * i + 1];  // U
      planes[c + i] = frame.chroma()[2 * i];  // V
    }
    std::fwrite(planes.data(), 1, planes.size(), file_);
  }
  return std::ferror(file_) == 0;
}

bool Y4mWriter::Close(std::string* error) {
  if (file_ == nullptr) return true;
  const bool ok = std::fflush(file_) == 0 && std::ferror(file_) == 0;
  if (owned_) std::fclose(file_);
  file_ = nullptr;
  if (!ok) *error = std::string("write failed: ") + std::strerror(errno);
  return ok;
}

Y4mWriter::~Y4mWriter() {
  std::string ignored;
  Close(&ignored);
}

}  // namespace lumivex::tools
