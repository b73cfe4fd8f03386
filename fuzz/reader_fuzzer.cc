// The program's input readers on hostile files: Y4M, raw frames and JPEG/PNG pictures.
// Run with -malloc_limit_mb so a header that asks for gigabytes is a finding.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "fuzz/fuzz_support.h"
#include "tools/io/open_frames.h"
#include "tools/io/image_files.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lumivex::fuzz::Input in(data, size);
  static const char* const kKinds[] = {".y4m", ".raw", ".jpg", ".png"};
  const int kind = in.Range(0, 3);
  const std::int32_t raw_w = in.Range(0, 400), raw_h = in.Range(0, 300);
  const std::uint32_t format = in.Bool() ? ZMOS_FORMAT_NV21 : ZMOS_FORMAT_I420;
  const std::string path = "/tmp/lumivex-reader-fuzz-" + std::to_string(getpid()) + kKinds[kind];
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return 0;
  std::fwrite(in.rest(), 1, in.left(), f);
  std::fclose(f);
  std::string error;
  if (kind >= 2) {
    lumivex::tools::Rgb rgb;
    if (lumivex::tools::ReadImage(path, &rgb, &error)) {
      lumivex::fuzz::Check(
          rgb.pixels.size() == static_cast<std::size_t>(rgb.width) * rgb.height * 3,
          "a picture's pixels do not match its size");
    } else {
      lumivex::fuzz::Check(!error.empty() && error.find('\n') == std::string::npos,
                           "a refused picture needs one line saying why");
    }
  } else {
    auto source = lumivex::tools::OpenFrames(path, raw_w, raw_h, format, &error);
    if (source != nullptr) {
      lumivex::tools::Yuv420 frame;
      for (int k = 0; k < 64 && source->Next(&frame); ++k)
        lumivex::fuzz::Check(frame.size() == frame.luma_size() * 3 / 2, "a frame's size is wrong");
    } else {
      lumivex::fuzz::Check(!error.empty(), "a refused input needs a reason");
    }
  }
  std::remove(path.c_str());
  return 0;
}
