// A whole capture through the engine API, everything about it chosen by the input.
#include "fuzz/capture_driver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lumivex::fuzz::Input in(data, size);
  lumivex::fuzz::RunCapture(in);
  return 0;
}
