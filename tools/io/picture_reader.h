// Frames from still pictures (JPEG or PNG), in a given order.
#ifndef LUMIVEX_TOOLS_IO_PICTURE_READER_H_
#define LUMIVEX_TOOLS_IO_PICTURE_READER_H_

#include <memory>
#include <string>
#include <vector>

#include "tools/io/frame_source.h"

namespace lumivex::tools {

std::unique_ptr<FrameSource> OpenPictures(std::vector<std::string> paths, std::uint32_t format);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_IO_PICTURE_READER_H_
