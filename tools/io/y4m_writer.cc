#include "tools/io/y4m_writer.h"

#include <cerrno>
#include <cstring>
#include <vector>

namespace lumivex::tools {

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
