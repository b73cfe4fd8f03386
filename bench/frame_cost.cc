// Runs a fixed piece of work so that an instruction counter (callgrind on x86, the qemu
// plugin beside this file on ARM) can measure it: the difference between two modes over
// the same setup is the cost of what one mode adds.
//   frame_cost MODE WIDTH HEIGHT FRAMES [exact|quality [SWEEP.y4m]]
//   MODE: setup   build the scene and the engine only
//         frames  ... then FRAMES preview frames, as a phone host feeds them
//         floor   ... then read every luma byte of FRAMES frames once
//         sweep   ... then a whole 180-degree sweep (FRAMES is ignored)
//         stitch  ... then a whole sweep and its stitch
// With SWEEP.y4m (I420 frames of WIDTH x HEIGHT, as `lumivex simulate` writes them) the
// frames are that recording's, read whole before the engine starts (in every mode, so the
// reading cancels out), instead of windows slid over a synthetic scene.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_scene.h"

namespace {

// One pass that reads each luma byte once: the least any per-frame path can cost.
__attribute__((noinline)) std::uint64_t ReadLuma(const ZMOSIMAGE& frame) {
  std::uint64_t acc = 0;
  for (int y = 0; y < frame.lHeight; ++y) {
    const std::uint8_t* row = frame.pPlane[0] + static_cast<std::ptrdiff_t>(y) * frame.lPitch[0];
    for (int x = 0; x + 8 <= frame.lWidth; x += 8) {
      std::uint64_t v;
      std::memcpy(&v, row + x, 8);
      acc += v;
    }
  }
  return acc;
}

// The frames of a Y4M recording (I420, WIDTH x HEIGHT); empty when it is not one.
std::vector<std::vector<std::uint8_t>> LoadY4m(const char* path, int w, int h) {
  std::ifstream in(path, std::ios::binary);
  std::string header;
  std::getline(in, header);
  std::vector<std::vector<std::uint8_t>> frames;
  const std::string size = " W" + std::to_string(w) + " H" + std::to_string(h) + " ";
  if (header.rfind("YUV4MPEG2", 0) != 0 || (header + " ").find(size) == std::string::npos)
    return frames;
  const std::size_t bytes = static_cast<std::size_t>(w) * h * 3 / 2;
  std::string tag;
  while (std::getline(in, tag) && tag.rfind("FRAME", 0) == 0) {
    std::vector<std::uint8_t> f(bytes);
    if (!in.read(reinterpret_cast<char*>(f.data()), static_cast<std::streamsize>(bytes))) break;
    frames.push_back(std::move(f));
  }
  return frames;
}

ZMOSIMAGE I420(std::vector<std::uint8_t>& f, int w, int h) {
  ZMOSIMAGE img{ZMOS_FORMAT_I420, w, h, {}, {}};
  img.pPlane[0] = f.data();
  img.pPlane[1] = f.data() + static_cast<std::size_t>(w) * h;
  img.pPlane[2] = img.pPlane[1] + static_cast<std::size_t>(w / 2) * (h / 2);
  img.lPitch[0] = w;
  img.lPitch[1] = img.lPitch[2] = w / 2;
  return img;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fputs(
        "usage: frame_cost setup|frames|floor|sweep|stitch WIDTH HEIGHT FRAMES "
        "[exact|quality [SWEEP.y4m]]\n",
        stderr);
    return 1;
  }
  const char* mode = argv[1];
  const int w = std::atoi(argv[2]), h = std::atoi(argv[3]), frames = std::atoi(argv[4]);
  const std::int32_t profile =
      argc > 5 && std::strcmp(argv[5], "quality") == 0 ? ZMOS_PROFILE_QUALITY : ZMOS_PROFILE_EXACT;
  const int step = std::max(4, w / 48);
  const bool whole = std::strcmp(mode, "sweep") == 0 || std::strcmp(mode, "stitch") == 0;
  std::vector<std::vector<std::uint8_t>> recorded;
  if (argc > 6) {
    recorded = LoadY4m(argv[6], w, h);
    if (recorded.empty()) {
      std::fprintf(stderr, "frame_cost: %s holds no %dx%d Y4M frames\n", argv[6], w, h);
      return 1;
    }
  }
  // The synthetic scene is built either way, so that runs with and without a recording
  // differ only in their frames.
  lumivex::bench::Scene scene(w + std::max(step * frames, 3 * w) + 64, h + 64);
  auto engine = std::make_unique<lumivex::bench::Engine>(w, h, profile);
  std::uint64_t sink = 0;
  if (std::strcmp(mode, "setup") != 0) {
    const auto more = [&](int k) {
      if (!recorded.empty())
        return k < static_cast<int>(recorded.size()) && (whole ? engine->angle < 180 : k < frames);
      return whole ? step * k + w <= scene.width && engine->angle < 180 : k < frames;
    };
    for (int k = 0; more(k); ++k) {
      ZMOSIMAGE frame = recorded.empty() ? scene.Frame(step * k, 32, w, h) : I420(recorded[k], w, h);
      if (std::strcmp(mode, "floor") == 0) {
        sink += ReadLuma(frame);
      } else {
        sink += static_cast<std::uint64_t>(engine->Feed(&frame));
      }
    }
    if (std::strcmp(mode, "stitch") == 0) {
      ZMOSIMAGE result{};
      sink += static_cast<std::uint64_t>(ZMOS_Stitch(engine->engine, &result, nullptr));
    }
  }
  std::printf("%llu\n", static_cast<unsigned long long>(sink & 1));
  return 0;
}
