// The memory manager against a model: blocks never overlap, stay aligned and inside
// the buffer, keep their contents, and double, interior and foreign frees are ignored.
#include <algorithm>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "src/platform/memory.h"

namespace {

using lumivex::fuzz::Check;
using lumivex::fuzz::GuardedBuffer;
using lumivex::fuzz::Input;

struct Block {
  std::uint8_t* p;
  std::int32_t size;
  std::uint8_t fill;
};

bool Intact(const Block& b) {
  return std::all_of(b.p, b.p + b.size, [&](std::uint8_t v) { return v == b.fill; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  const std::int32_t bytes = in.Range(0, 1 << 16);
  GuardedBuffer buffer(static_cast<std::size_t>(bytes));
  const std::size_t misalign = in.Range(0, 15);
  MHandle mgr = MMemMgrCreate(
      buffer.data() + std::min<std::size_t>(misalign, buffer.size()),
      bytes - static_cast<std::int32_t>(std::min<std::size_t>(misalign, buffer.size())));
  if (mgr == nullptr) return 0;
  std::vector<Block> live;
  std::vector<std::uint8_t*> dead;
  std::uint8_t foreign[64];
  std::uint8_t next_fill = 1;
  auto is_live = [&](const std::uint8_t* p) {
    return std::any_of(live.begin(), live.end(), [&](const Block& b) { return b.p == p; });
  };
  while (in.left() > 0) {
    const int op = in.Range(0, 9);
    if (op <= 3) {
      const std::int32_t want = in.Range(0, 7) == 0 ? in.Edgy(-4, 1 << 16) : in.Range(0, 2048);
      auto* p = static_cast<std::uint8_t*>(MMemAlloc(mgr, want));
      if (p == nullptr) continue;
      Check(want >= 0, "a negative request was met");
      Check(reinterpret_cast<std::uintptr_t>(p) % 16 == 0, "a block is not 16-aligned");
      Check(p >= buffer.data() && p + want <= buffer.data() + buffer.size(),
            "a block leaves the buffer");
      for (const Block& b : live)
        Check(p + want <= b.p || p >= b.p + b.size || want == 0 || b.size == 0, "blocks overlap");
      dead.erase(std::remove(dead.begin(), dead.end(), p), dead.end());
      std::fill(p, p + want, next_fill);
      live.push_back({p, want, next_fill});
      next_fill = static_cast<std::uint8_t>(next_fill % 250 + 1);
    } else if (op <= 5 && !live.empty()) {
      const std::size_t i = in.Range(0, static_cast<std::int32_t>(live.size()) - 1);
      Check(Intact(live[i]), "a live block lost its contents");
      MMemFree(mgr, live[i].p);
      dead.push_back(live[i].p);
      live.erase(live.begin() + static_cast<std::ptrdiff_t>(i));
    } else if (op == 6 && !dead.empty()) {
      std::uint8_t* again = dead[in.Range(0, static_cast<std::int32_t>(dead.size()) - 1)];
      if (!is_live(again)) MMemFree(mgr, again);
    } else if (op == 7 && !live.empty()) {
      const Block& b = live[in.Range(0, static_cast<std::int32_t>(live.size()) - 1)];
      // Payload bytes that look like a tag must not make an interior pointer pass.
      if (b.size >= 48 && in.Bool()) std::memcpy(b.p + 16, b.p - 16, 16);
      std::uint8_t* inside = b.p + 16 * in.Range(1, 4);
      if (!is_live(inside)) MMemFree(mgr, inside);
      if (b.size >= 48) std::fill(b.p + 16, b.p + 32, b.fill);
    } else if (op == 8) {
      std::uint8_t* stray = in.Bool() ? foreign + 16 : buffer.data() + in.Range(0, bytes);
      if (!is_live(stray)) MMemFree(mgr, stray);
    }
    lumivex::platform::MemStats stats;
    Check(lumivex::platform::CheckHeap(mgr, &stats), "the heap's tags and free list disagree");
    Check(stats.used_blocks == static_cast<int>(live.size()), "the manager lost count of blocks");
    buffer.CheckGuards("the manager wrote outside its buffer");
  }
  for (const Block& b : live) Check(Intact(b), "a live block lost its contents");
  return 0;
}
