// Frames written as a Y4M stream (4:2:0, full range, as a phone camera delivers them).
#ifndef LUMIVEX_TOOLS_IO_Y4M_WRITER_H_
#define LUMIVEX_TOOLS_IO_Y4M_WRITER_H_

#include <cstdio>
#include <string>

#include "tools/io/picture.h"

namespace lumivex::tools {

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

#endif  // LUMIVEX_TOOLS_IO_Y4M_WRITER_H_
