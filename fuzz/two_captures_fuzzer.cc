// Two captures in one process, the first one's work buffer freed before the second
// starts: nothing engine-wide may still point into it.
#include "fuzz/capture_driver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lumivex::fuzz::Input in(data, size);
  const std::size_t half = in.left() / 2;
  lumivex::fuzz::Input first(in.rest(), half);
  lumivex::fuzz::RunCapture(first);
  in.Skip(half);
  lumivex::fuzz::RunCapture(in);
  return 0;
}
