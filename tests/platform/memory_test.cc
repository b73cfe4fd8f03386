#include "src/platform/memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "lumivex/platform.h"
#include "tests/support/test_support.h"

namespace lumivex::platform {
namespace {

using test::Rng;

constexpr std::uint8_t kOutside = 0x5C;
constexpr std::size_t kGuard = 256;

// A work buffer with guard zones on both sides, deliberately misaligned.
struct WorkBuffer {
  explicit WorkBuffer(std::size_t size, std::size_t misalign = 3)
      : bytes(size + 2 * kGuard + misalign, kOutside), start(kGuard + misalign), size(size) {}
  void* data() { return bytes.data() + start; }
  bool GuardsIntact() const {
    for (std::size_t i = 0; i < bytes.size(); ++i)
      if ((i < start || i >= start + size) && bytes[i] != kOutside) return false;
    return true;
  }
  bool Contains(const void* p, std::size_t n) const {
    auto* b = static_cast<const std::uint8_t*>(p);
    return b >= bytes.data() + start && b + n <= bytes.data() + start + size;
  }
  std::vector<std::uint8_t> bytes;
  std::size_t start, size;
};

struct Live {
  std::uint8_t* p;
  std::size_t size;
  std::uint8_t fill;
};

bool Intact(const Live& b) {
  for (std::size_t i = 0; i < b.size; ++i)
    if (b.p[i] != b.fill) return false;
  return true;
}

// Thousands of random allocations and frees, checked against a model: every block is
// inside the buffer, 16-aligned, keeps its contents until freed, and the heap's tags
// stay consistent. Freeing everything must coalesce back to one block.
TEST(MemoryManager, RandomSequencesMatchModel) {
  for (std::uint64_t seed = 1; seed <= 4; ++seed) {
    WorkBuffer work(96 * 1024, seed % 16);
    MHandle mgr = MMemMgrCreate(work.data(), static_cast<std::int32_t>(work.size));
    ASSERT_NE(mgr, nullptr);
    MemStats fresh;
    ASSERT_TRUE(CheckHeap(mgr, &fresh));
    Rng rng(seed);
    std::vector<Live> live;
    int failures = 0;
    for (int op = 0; op < 6000; ++op) {
      const bool alloc = live.empty() || rng.Range(0, 99) < 55;
      if (alloc) {
        // Mostly small scratch blocks, sometimes a canvas-sized one.
        const int size = rng.Range(0, 9) == 0 ? rng.Range(4000, 30000) : rng.Range(0, 700);
        auto* p = static_cast<std::uint8_t*>(MMemAlloc(mgr, size));
        if (p == nullptr) {
          ++failures;
          MemStats s;
          ASSERT_TRUE(CheckHeap(mgr, &s));
          EXPECT_LT(s.largest_free, static_cast<std::size_t>(size));
          continue;
        }
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
        ASSERT_TRUE(work.Contains(p, size));
        const auto fill = static_cast<std::uint8_t>(rng.Next());
        std::memset(p, fill, size);
        live.push_back({p, static_cast<std::size_t>(size), fill});
      } else {
        const std::size_t i = rng.Next() % live.size();
        ASSERT_TRUE(Intact(live[i])) << "block overwritten at op " << op;
        MMemFree(mgr, live[i].p);
        live[i] = live.back();
        live.pop_back();
      }
      if (op % 97 == 0) {
        MemStats s;
        ASSERT_TRUE(CheckHeap(mgr, &s)) << "op " << op;
        ASSERT_EQ(s.used_blocks, static_cast<int>(live.size()));
      }
    }
    EXPECT_GT(failures, 0) << "the sequence should reach exhaustion at least once";
    for (const Live& b : live) {
      ASSERT_TRUE(Intact(b));
      MMemFree(mgr, b.p);
    }
    MemStats end;
    ASSERT_TRUE(CheckHeap(mgr, &end));
    EXPECT_EQ(end.free_blocks, 1);
    EXPECT_EQ(end.free_bytes, fresh.free_bytes);
    EXPECT_TRUE(work.GuardsIntact());
  }
}

TEST(MemoryManager, ExhaustionReturnsNullThenRecovers) {
  WorkBuffer work(16 * 1024);
  MHandle mgr = MMemMgrCreate(work.data(), static_cast<std::int32_t>(work.size));
  ASSERT_NE(mgr, nullptr);
  std::vector<void*> blocks;
  while (void* p = MMemAlloc(mgr, 100)) blocks.push_back(p);
  ASSERT_GT(blocks.size(), 50u);
  EXPECT_EQ(MMemAlloc(mgr, 100), nullptr);
  EXPECT_EQ(MMemAlloc(mgr, 1 << 20), nullptr);
  EXPECT_EQ(MMemAlloc(mgr, -1), nullptr);
  EXPECT_EQ(MMemAlloc(mgr, INT32_MAX), nullptr);

  // Free every other block: small requests succeed again, a large one needs neighbours.
  for (std::size_t i = 0; i < blocks.size(); i += 2) MMemFree(mgr, blocks[i]);
  EXPECT_EQ(MMemAlloc(mgr, 1000), nullptr);
  void* small = MMemAlloc(mgr, 100);
  EXPECT_NE(small, nullptr);
  MMemFree(mgr, small);
  for (std::size_t i = 1; i < blocks.size(); i += 2) MMemFree(mgr, blocks[i]);

  MemStats s;
  ASSERT_TRUE(CheckHeap(mgr, &s));
  EXPECT_EQ(s.free_blocks, 1);
  void* big = MMemAlloc(mgr, static_cast<std::int32_t>(s.largest_free));
  EXPECT_NE(big, nullptr);
  EXPECT_EQ(MMemAlloc(mgr, 0), nullptr);
  MMemFree(mgr, big);
  EXPECT_TRUE(work.GuardsIntact());
}

TEST(MemoryManager, RejectsBadBuffersAndIgnoresBadFrees) {
  std::vector<std::uint8_t> tiny(40);
  EXPECT_EQ(MMemMgrCreate(nullptr, 1 << 16), nullptr);
  EXPECT_EQ(MMemMgrCreate(tiny.data(), 0), nullptr);
  EXPECT_EQ(MMemMgrCreate(tiny.data(), -5), nullptr);
  EXPECT_EQ(MMemMgrCreate(tiny.data(), static_cast<std::int32_t>(tiny.size())), nullptr);

  WorkBuffer work(4096);
  MHandle mgr = MMemMgrCreate(work.data(), static_cast<std::int32_t>(work.size));
  ASSERT_NE(mgr, nullptr);
  auto* a = static_cast<std::uint8_t*>(MMemAlloc(mgr, 64));
  auto* b = static_cast<std::uint8_t*>(MMemAlloc(mgr, 64));
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  std::uint8_t outside[32];
  MMemFree(mgr, nullptr);
  MMemFree(mgr, outside);  // not ours
  MMemFree(mgr, a + 16);   // inside a block
  MMemFree(mgr, a);
  MMemFree(mgr, a);  // twice
  MemStats s;
  ASSERT_TRUE(CheckHeap(mgr, &s));
  EXPECT_EQ(s.used_blocks, 1);
  // A block merged into both neighbours, freed again: its stale tag must not pass, nor
  // payload bytes laid out like a tag.
  auto* c = static_cast<std::uint8_t*>(MMemAlloc(mgr, 64));
  auto* d = static_cast<std::uint8_t*>(MMemAlloc(mgr, 64));
  auto* e = static_cast<std::uint8_t*>(MMemAlloc(mgr, 64));
  ASSERT_NE(e, nullptr);
  std::memcpy(e + 32, e - 16, 16);  // a copy of e's own tag inside its payload
  MMemFree(mgr, e + 48);
  MMemFree(mgr, b);
  MMemFree(mgr, d);
  MMemFree(mgr, c);
  MMemFree(mgr, c);
  ASSERT_TRUE(CheckHeap(mgr, &s));
  EXPECT_EQ(s.used_blocks, 1);
  auto* big = static_cast<std::uint8_t*>(MMemAlloc(mgr, 192));
  ASSERT_NE(big, nullptr);
  EXPECT_TRUE(big + 192 <= e - 16 || big >= e + 64) << "a new block overlaps a live one";
  MMemFree(mgr, e);
  MMemFree(mgr, big);
  // A handle that is not a manager allocates nothing.
  EXPECT_EQ(MMemAlloc(outside, 16), nullptr);
  EXPECT_TRUE(work.GuardsIntact());
}

TEST(MemoryManager, NullHandleUsesProcessHeap) {
  for (int size : {0, 1, 17, 4096, 100000}) {
    void* p = MMemAlloc(nullptr, size);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
    MMemSet(p, 0x11, size);
    MMemFree(nullptr, p);
  }
  EXPECT_EQ(MMemAlloc(nullptr, -1), nullptr);
}

TEST(MemoryHelpers, CopyHandlesOverlapAndSetFills) {
  std::uint8_t buf[16];
  for (int i = 0; i < 16; ++i) buf[i] = static_cast<std::uint8_t>(i);
  MMemCpy(buf, buf + 4, 8);  // forward overlap, as the in-place crops do
  for (int i = 0; i < 8; ++i) EXPECT_EQ(buf[i], i + 4);
  MMemCpy(buf + 4, buf, 8);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(buf[i + 4], i + 4);
  MMemSet(buf, 0xEE, 16);
  for (std::uint8_t b : buf) EXPECT_EQ(b, 0xEE);
  MMemSet(buf, 0, -1);  // ignored
  MMemCpy(nullptr, buf, 4);
  EXPECT_EQ(buf[0], 0xEE);
}

}  // namespace
}  // namespace lumivex::platform
