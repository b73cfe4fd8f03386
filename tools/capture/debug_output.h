// Debug output of a capture: its seams drawn over the panorama, and every frame's record.
#ifndef LUMIVEX_TOOLS_CAPTURE_DEBUG_OUTPUT_H_
#define LUMIVEX_TOOLS_CAPTURE_DEBUG_OUTPUT_H_

#include <string>
#include <vector>

#include "tools/capture/capture.h"

namespace lumivex::tools {

// Thin half-transparent seams, every Nth numbered, overlap bands tinted.
void DrawSeams(Rgb* rgb, const std::vector<Capture::Seam>& seams, bool horizontal);
void WriteFramesJson(const std::string& path, const std::vector<FrameRecord>& records);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_CAPTURE_DEBUG_OUTPUT_H_
