// One capture through the engine API as a careless host might drive it: frame size,
// format, padding, a separate tracking image, the work buffer and the call order all
// come from the input. Frames are windows of a textured scene at input-chosen motion, so
// the trackers lock on and the capture reaches its later stages, or raw input bytes.
#ifndef LUMIVEX_FUZZ_CAPTURE_DRIVER_H_
#define LUMIVEX_FUZZ_CAPTURE_DRIVER_H_

#include "fuzz/fuzz_support.h"

namespace lumivex::fuzz {

// Runs one capture from a fresh heap work buffer and frees the buffer at the end.
void RunCapture(Input& in);

}  // namespace lumivex::fuzz

#endif  // LUMIVEX_FUZZ_CAPTURE_DRIVER_H_
