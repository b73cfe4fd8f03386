#include "tools/frame_source.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace lumivex::tools {
namespace {

// Frames are 4:2:0, so sizes are even; the engine needs at least kMinFrameWidth x
// kMinFrameHeight (below that it cannot lay out a strip or its trackers), and frames above
// kMaxPictureSide a side would not fit its 32-bit work buffer.
bool CheckSize(int w, int h, std::string* error) {
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

// I420 planes into the requested layout.
void FromI420(const std::uint8_t* y, const std::uint8_t* u, const std::uint8_t* v, Yuv420* out) {
  const int w = out->width(), h = out->height();
  std::memcpy(out->y(), y, out->luma_size());
  const std::size_t c = static_cast<std::size_t>(w / 2) * (h / 2);
  if (out->format() == ZMOS_FORMAT_I420) {
    std::memcpy(out->chroma(), u, c);
    std::memcpy(out->chroma() + c, v, c);
    return;
  }
  for (std::size_t i = 0; i < c; ++i) {
    out->chroma()[2 * i] = v[i];  // NV21: V then U
    out->chroma()[2 * i + 1] = u[i];
  }
}

// A header's size field; anything that is not a plain number in int range reads as 0.
int Dimension(const char* text) {
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(text, &end, 10);
  return end != text && *end == '\0' && errno == 0 && v > 0 && v <= (1 << 20) ? static_cast<int>(v)
                                                                              : 0;
}

class Y4mSource : public FrameSource {
 public:
  Y4mSource(std::FILE* f, bool owned, std::uint32_t format)
      : f_(f), owned_(owned), format_(format) {}
  ~Y4mSource() override {
    if (owned_ && f_ != nullptr) std::fclose(f_);
  }
  bool ReadHeader() {
    std::string line;
    if (!ReadLine(&line) || line.rfind("YUV4MPEG2", 0) != 0) {
      error_ = "not a Y4M stream (no YUV4MPEG2 header)";
      return false;
    }
    std::istringstream words(line.substr(9));
    std::string word;
    std::string colour = "420jpeg";
    while (words >> word) {
      if (word[0] == 'W') width_ = Dimension(word.c_str() + 1);
      if (word[0] == 'H') height_ = Dimension(word.c_str() + 1);
      if (word[0] == 'C') colour = word.substr(1);
      if (word[0] == 'I' && word.size() > 1 && word[1] != 'p' && word[1] != '?') interlaced_ = true;
    }
    if (colour.rfind("420", 0) != 0) {
      error_ = "Y4M colour space C" + colour + " is not supported (4:2:0 only)";
      return false;
    }
    if (interlaced_) {
      error_ = "interlaced Y4M is not supported";
      return false;
    }
    return CheckSize(width_, height_, &error_);
  }
  bool Next(Yuv420* frame) override {
    std::string line;
    if (!ReadLine(&line)) {
      if (!line.empty()) error_ = "truncated Y4M frame header";
      return false;  // otherwise a clean end of stream
    }
    if (line.rfind("FRAME", 0) != 0) {
      error_ = "malformed Y4M: expected FRAME";
      return false;
    }
    const std::size_t luma = static_cast<std::size_t>(width_) * height_;
    const std::size_t chroma = static_cast<std::size_t>(width_ / 2) * (height_ / 2);
    std::size_t got = 0;
    if (!ReadExactly(f_, luma + 2 * chroma, &buffer_, &got)) {
      error_ = "truncated Y4M frame";
      return false;
    }
    *frame = Yuv420(width_, height_, format_);
    FromI420(buffer_.data(), buffer_.data() + luma, buffer_.data() + luma + chroma, frame);
    return true;
  }

 private:
  // False at the end of the stream (with what was read of an unfinished line).
  bool ReadLine(std::string* line) {
    line->clear();
    for (int c; (c = std::fgetc(f_)) != EOF;) {
      if (c == '\n') return true;
      if (line->size() > 4096) return false;
      line->push_back(static_cast<char>(c));
    }
    return false;
  }
  std::FILE* f_;
  bool owned_;
  std::uint32_t format_;
  int width_ = 0, height_ = 0;
  bool interlaced_ = false;
  std::vector<std::uint8_t> buffer_;
};

class RawSource : public FrameSource {
 public:
  RawSource(std::FILE* f, int w, int h, std::uint32_t format)
      : f_(f), w_(w), h_(h), format_(format) {}
  ~RawSource() override { std::fclose(f_); }
  bool Next(Yuv420* frame) override {
    const std::size_t bytes = static_cast<std::size_t>(w_) * h_ * 3 / 2;
    std::size_t got = 0;
    if (!ReadExactly(f_, bytes, &buffer_, &got)) {
      if (got > 0) error_ = "truncated raw NV21 frame";
      return false;
    }
    Yuv420 nv21(w_, h_, ZMOS_FORMAT_NV21);
    std::memcpy(nv21.data(), buffer_.data(), bytes);
    if (format_ == ZMOS_FORMAT_NV21) {
      *frame = std::move(nv21);
      return true;
    }
    // NV21 to I420.
    *frame = Yuv420(w_, h_, format_);
    std::memcpy(frame->y(), nv21.y(), nv21.luma_size());
    const std::size_t c = static_cast<std::size_t>(w_ / 2) * (h_ / 2);
    for (std::size_t i = 0; i < c; ++i) {
      frame->chroma()[i] = nv21.chroma()[2 * i + 1];
      frame->chroma()[c + i] = nv21.chroma()[2 * i];
    }
    return true;
  }

 private:
  std::FILE* f_;
  int w_, h_;
  std::uint32_t format_;
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
    if (!CheckSize(rgb.width & ~1, rgb.height & ~1, &error_)) return false;
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

}  // namespace

std::unique_ptr<FrameSource> OpenFrames(const std::string& input, int raw_width, int raw_height,
                                        std::uint32_t format, std::string* error) {
  namespace fs = std::filesystem;
  if (input == "-" || EndsWith(input, ".y4m")) {
    std::FILE* f = input == "-" ? stdin : std::fopen(input.c_str(), "rb");
    if (f == nullptr) {
      *error = "cannot open " + input + ": " + std::strerror(errno);
      return nullptr;
    }
    auto src = std::make_unique<Y4mSource>(f, input != "-", format);
    if (!src->ReadHeader()) {
      *error = input + ": " + src->error();
      return nullptr;
    }
    return src;
  }
  std::error_code ec;
  if (fs::is_directory(input, ec)) {
    std::vector<std::string> paths;
    for (const auto& entry : fs::directory_iterator(input, ec))
      if (entry.is_regular_file() && IsPicture(entry.path().string()))
        paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    if (paths.empty()) {
      *error = input + ": no .jpg or .png frames in this folder";
      return nullptr;
    }
    return std::make_unique<PictureSource>(std::move(paths), format);
  }
  if (!fs::exists(input, ec)) {
    *error = "cannot open " + input + ": no such file or folder";
    return nullptr;
  }
  if (raw_width > 0) {
    if (!CheckSize(raw_width, raw_height, error)) return nullptr;
    std::FILE* f = std::fopen(input.c_str(), "rb");
    if (f == nullptr) {
      *error = "cannot open " + input + ": " + std::strerror(errno);
      return nullptr;
    }
    return std::make_unique<RawSource>(f, raw_width, raw_height, format);
  }
  if (IsPicture(input)) {
    *error = input + ": a single picture is not a sweep (give a folder or a list of frames)";
    return nullptr;
  }
  // A list of picture paths, one a line, relative to the list's folder.
  std::ifstream list(input);
  std::vector<std::string> paths;
  const fs::path base = fs::path(input).parent_path();
  for (std::string line; std::getline(list, line);) {
    if (line.empty() || line[0] == '#') continue;
    const fs::path p(line);
    paths.push_back((p.is_absolute() ? p : base / p).string());
  }
  if (paths.empty() || !std::all_of(paths.begin(), paths.end(), IsPicture)) {
    *error = input + ": not a Y4M file, a frame list or a folder (raw NV21 needs --size WxH)";
    return nullptr;
  }
  return std::make_unique<PictureSource>(std::move(paths), format);
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
  std::fprintf(file_, "YUV4MPEG2 W%d H%d F%d:1 Ip A1:1 C420jpeg\n", width, height, fps);
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
