// The stitch command's INPUT, whatever it is: a folder of pictures, a list of them, raw
// frames, or a video.
#ifndef LUMIVEX_TOOLS_IO_OPEN_FRAMES_H_
#define LUMIVEX_TOOLS_IO_OPEN_FRAMES_H_

#include <memory>
#include <string>
#include <vector>

#include "tools/io/frame_source.h"

namespace lumivex::tools {

// Sorts names as people number them: "2.jpg" before "10.jpg".
void NaturalSort(std::vector<std::string>* names);

// A folder of JPEG/PNG frames (numeric order), a text file listing them, raw frames in
// `format` (raw_width > 0; "-" is stdin), or any video ffmpeg reads ("-" is stdin, e.g. a
// Y4M stream). Null with one line of why otherwise.
std::unique_ptr<FrameSource> OpenFrames(const std::string& input, int raw_width, int raw_height,
                                        std::uint32_t format, std::string* error);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_IO_OPEN_FRAMES_H_
