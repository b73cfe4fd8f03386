// Raw frames one after another, in the layout the engine is fed (NV21 or I420).
#ifndef LUMIVEX_TOOLS_IO_RAW_READER_H_
#define LUMIVEX_TOOLS_IO_RAW_READER_H_

#include <cstdio>
#include <memory>

#include "tools/io/frame_source.h"

namespace lumivex::tools {

// Frames of w x h from `f` (closed at the end when `owned`).
std::unique_ptr<FrameSource> OpenRaw(std::FILE* f, bool owned, int w, int h, std::uint32_t format);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_IO_RAW_READER_H_
