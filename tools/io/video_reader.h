// Frames of a video read through ffmpeg's libraries.
#ifndef LUMIVEX_TOOLS_IO_VIDEO_READER_H_
#define LUMIVEX_TOOLS_IO_VIDEO_READER_H_

#include <memory>
#include <string>

#include "tools/io/frame_source.h"

namespace lumivex::tools {

// Any container and codec ffmpeg reads ("-" is stdin), as full-range BT.601 frames in
// `format`, upright. Null with the reason in `error` when it cannot be read as a video.
std::unique_ptr<FrameSource> OpenVideo(const std::string& input, std::uint32_t format,
                                       std::string* error);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_IO_VIDEO_READER_H_
