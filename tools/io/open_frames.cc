#include "tools/io/open_frames.h"

#include <string.h>  // strverscmp

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tools/io/image_files.h"
#include "tools/io/picture_reader.h"
#include "tools/io/raw_reader.h"
#include "tools/io/video_reader.h"

namespace lumivex::tools {

void NaturalSort(std::vector<std::string>* names) {
  // glibc's version order: runs of digits compare by value.
  std::stable_sort(names->begin(), names->end(), [](const std::string& a, const std::string& b) {
    return strverscmp(a.c_str(), b.c_str()) < 0;
  });
}

namespace {

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
    return OpenPictures(std::move(paths), format);
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
    return OpenRaw(f, input != "-", raw_width, raw_height, format);
  }
  if (IsPicture(input)) {
    *error = input + ": a single picture is not a sweep (give a folder or a list of frames)";
    return nullptr;
  }
  if (input != "-") {
    if (std::vector<std::string> paths = ReadFrameList(input); !paths.empty())
      return OpenPictures(std::move(paths), format);
  }
  std::string why;
  if (auto video = OpenVideo(input, format, &why)) return video;
  *error = input + ": not a video ffmpeg can read (" + why +
           "), a frame list or a folder; raw NV21 or I420 frames need --size WxH";
  return nullptr;
}

}  // namespace lumivex::tools
