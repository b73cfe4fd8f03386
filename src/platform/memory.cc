// Memory manager laid over a caller's buffer.
//
// Design: Knuth's boundary-tag allocator (TAOCP vol. 1, 2.5) with an explicit,
// address-ordered free list searched first-fit, splitting on allocation and
// coalescing both neighbours on free. Address-ordered first fit keeps fragmentation
// low for the engine's pattern (a few long-lived canvases plus per-overlap scratch
// blocks allocated and freed in turn). Every byte of bookkeeping lives inside the
// buffer: an arena record at its (16-aligned) start, a two-word tag in front of each
// block and a zero-sized, always-used sentinel at its end.
#include "src/platform/memory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace lumivex::platform {
namespace {

constexpr std::size_t kAlign = 16;
constexpr std::size_t kUsed = 1;
constexpr std::uint32_t kMagic = 0x4C4D454Du;

constexpr std::size_t AlignUp(std::size_t v) {
  return (v + kAlign - 1) & ~(kAlign - 1);
}

// Tag in front of every block. `prev_size` lets a block find its lower neighbour;
// sizes include the tag and are multiples of 16, so bit 0 is free for the used flag.
struct alignas(kAlign) Tag {
  std::size_t prev_size;
  std::size_t size_flags;
};

// Free blocks keep their list links in the payload.
struct FreeLinks {
  Tag* next;
  Tag* prev;
};

constexpr std::size_t kTag = sizeof(Tag);
constexpr std::size_t kMinBlock = AlignUp(kTag + sizeof(FreeLinks));
static_assert(kTag % kAlign == 0, "payloads must stay 16-byte aligned");

struct alignas(kAlign) Arena {
  std::uint32_t magic;
  std::uint8_t* begin;  // first block
  Tag* sentinel;        // zero-sized used block closing the heap
  Tag* free_head;       // lowest-addressed free block
  std::size_t used;     // bytes of used blocks, tags included
  std::size_t peak;     // the most `used` has been
};

std::size_t SizeOf(const Tag* t) {
  return t->size_flags & ~kUsed;
}
bool IsUsed(const Tag* t) {
  return (t->size_flags & kUsed) != 0;
}
Tag* Next(Tag* t) {
  return reinterpret_cast<Tag*>(reinterpret_cast<std::uint8_t*>(t) + SizeOf(t));
}
Tag* Prev(Tag* t) {
  return reinterpret_cast<Tag*>(reinterpret_cast<std::uint8_t*>(t) - t->prev_size);
}
FreeLinks* Links(Tag* t) {
  return reinterpret_cast<FreeLinks*>(t + 1);
}

void SetSize(Tag* t, std::size_t size, bool used) {
  t->size_flags = size | (used ? kUsed : 0);
  Next(t)->prev_size = size;
}

Arena* ArenaOf(MHandle h) {
  auto* a = static_cast<Arena*>(h);
  return (a != nullptr && a->magic == kMagic) ? a : nullptr;
}

void Unlink(Arena* a, Tag* t) {
  FreeLinks* l = Links(t);
  if (l->prev != nullptr) {
    Links(l->prev)->next = l->next;
  } else {
    a->free_head = l->next;
  }
  if (l->next != nullptr) Links(l->next)->prev = l->prev;
}

// Inserts `t` keeping the list sorted by address.
void InsertSorted(Arena* a, Tag* t) {
  Tag* prev = nullptr;
  Tag* cur = a->free_head;
  while (cur != nullptr && cur < t) {
    prev = cur;
    cur = Links(cur)->next;
  }
  Links(t)->prev = prev;
  Links(t)->next = cur;
  if (prev != nullptr) {
    Links(prev)->next = t;
  } else {
    a->free_head = t;
  }
  if (cur != nullptr) Links(cur)->prev = t;
}

// Replaces `old_node` in the list by `new_node`, which lies between the same
// neighbours, so address order holds.
void ReplaceLink(Arena* a, Tag* old_node, Tag* new_node) {
  FreeLinks links = *Links(old_node);
  *Links(new_node) = links;
  if (links.prev != nullptr) {
    Links(links.prev)->next = new_node;
  } else {
    a->free_head = new_node;
  }
  if (links.next != nullptr) Links(links.next)->prev = new_node;
}

std::size_t BlockFor(std::size_t size) {
  const std::size_t need = AlignUp(size + kTag);
  return need < kMinBlock ? kMinBlock : need;
}

void* ArenaAlloc(Arena* a, std::int32_t size) {
  const auto capacity =
      static_cast<std::size_t>(reinterpret_cast<std::uint8_t*>(a->sentinel) - a->begin);
  if (static_cast<std::size_t>(size) > capacity) return nullptr;
  const std::size_t need = BlockFor(static_cast<std::size_t>(size));
  for (Tag* t = a->free_head; t != nullptr; t = Links(t)->next) {
    const std::size_t have = SizeOf(t);
    if (have < need) continue;
    if (have - need >= kMinBlock) {
      // Split: the upper part stays free in the same list position.
      Tag* rest = reinterpret_cast<Tag*>(reinterpret_cast<std::uint8_t*>(t) + need);
      rest->prev_size = need;
      ReplaceLink(a, t, rest);
      SetSize(rest, have - need, false);
      t->size_flags = need | kUsed;
    } else {
      Unlink(a, t);
      SetSize(t, have, true);
    }
    a->used += SizeOf(t);
    if (a->used > a->peak) a->peak = a->used;
    return t + 1;
  }
  return nullptr;
}

// Finds the block whose payload is `p`, or null when `p` is not a live block of `a`.
// The tags are walked from the start rather than trusted where `p` points: stale tags of
// coalesced blocks and payload bytes that happen to look like a tag must never pass.
Tag* OwnedBlock(Arena* a, void* p) {
  auto* bytes = static_cast<std::uint8_t*>(p);
  auto* end = reinterpret_cast<std::uint8_t*>(a->sentinel);
  if (bytes < a->begin + kTag || bytes >= end) return nullptr;
  if (static_cast<std::size_t>(bytes - a->begin) % kAlign != 0) return nullptr;
  Tag* const target = reinterpret_cast<Tag*>(bytes) - 1;
  Tag* t = reinterpret_cast<Tag*>(a->begin);
  while (t < target) t = Next(t);
  return t == target && IsUsed(t) ? t : nullptr;
}

void ArenaFree(Arena* a, void* p) {
  Tag* t = OwnedBlock(a, p);
  if (t == nullptr) return;
  std::size_t size = SizeOf(t);
  a->used -= size;
  Tag* next = Next(t);
  if (!IsUsed(next)) {
    Unlink(a, next);
    size += SizeOf(next);
  }
  if (reinterpret_cast<std::uint8_t*>(t) != a->begin && !IsUsed(Prev(t))) {
    // The lower neighbour is already listed; it simply grows.
    Tag* prev = Prev(t);
    SetSize(prev, SizeOf(prev) + size, false);
    return;
  }
  SetSize(t, size, false);
  InsertSorted(a, t);
}

NewArenaHook g_new_arena_hook = nullptr;

}  // namespace

std::int64_t BlockBytes(std::int64_t size) {
  if (size < 0 || size > INT32_MAX) return -1;
  return static_cast<std::int64_t>(BlockFor(static_cast<std::size_t>(size)));
}

std::int64_t ManagerOverheadBytes() {
  // The arena record, the closing sentinel, and up to kAlign - 1 bytes before the first
  // aligned address.
  return static_cast<std::int64_t>(AlignUp(sizeof(Arena)) + kTag + kAlign - 1);
}

void SetNewArenaHook(NewArenaHook hook) {
  g_new_arena_hook = hook;
}

bool CheckHeap(MHandle mgr, MemStats* stats) {
  Arena* a = ArenaOf(mgr);
  if (a == nullptr || stats == nullptr) return false;
  *stats = MemStats{};
  stats->capacity =
      static_cast<std::size_t>(reinterpret_cast<std::uint8_t*>(a->sentinel) - a->begin);
  std::size_t prev_size = 0;
  bool prev_free = false;
  Tag* t = reinterpret_cast<Tag*>(a->begin);
  Tag* expected_free = a->free_head;
  while (t != a->sentinel) {
    const std::size_t size = SizeOf(t);
    if (size < kMinBlock || size % kAlign != 0 || t->prev_size != prev_size) return false;
    if (reinterpret_cast<std::uint8_t*>(t) + size > reinterpret_cast<std::uint8_t*>(a->sentinel))
      return false;
    if (IsUsed(t)) {
      ++stats->used_blocks;
      prev_free = false;
    } else {
      // Two free neighbours mean a missed coalesce; the list must visit blocks in order.
      if (prev_free || t != expected_free) return false;
      expected_free = Links(t)->next;
      ++stats->free_blocks;
      stats->free_bytes += size;
      if (size - kTag > stats->largest_free) stats->largest_free = size - kTag;
      prev_free = true;
    }
    prev_size = size;
    t = Next(t);
  }
  stats->peak_used = a->peak;
  return expected_free == nullptr && a->sentinel->prev_size == prev_size && IsUsed(a->sentinel) &&
         a->used == stats->capacity - stats->free_bytes;
}

}  // namespace lumivex::platform

using lumivex::platform::Arena;

extern "C" {

MHandle MMemMgrCreate(void* pBuffer, int32_t lSize) {
  using namespace lumivex::platform;
  if (pBuffer == nullptr || lSize <= 0) return nullptr;
  const auto start = reinterpret_cast<std::uintptr_t>(pBuffer);
  const std::uintptr_t first = AlignUp(start);
  const std::uintptr_t stop = (start + static_cast<std::uintptr_t>(lSize)) & ~(kAlign - 1);
  const std::size_t overhead = AlignUp(sizeof(Arena)) + kTag;  // arena + sentinel
  if (stop < first || stop - first < overhead + kMinBlock) return nullptr;

  auto* a = new (reinterpret_cast<void*>(first)) Arena{};
  a->magic = kMagic;
  a->begin = reinterpret_cast<std::uint8_t*>(first + AlignUp(sizeof(Arena)));
  a->sentinel = reinterpret_cast<Tag*>(stop - kTag);
  auto* block = reinterpret_cast<Tag*>(a->begin);
  block->prev_size = 0;
  a->sentinel->size_flags = kUsed;
  SetSize(block, reinterpret_cast<std::uint8_t*>(a->sentinel) - a->begin, false);
  Links(block)->next = nullptr;
  Links(block)->prev = nullptr;
  a->free_head = block;
  if (g_new_arena_hook != nullptr) g_new_arena_hook(a);
  return a;
}

void* MMemAlloc(MHandle hMemMgr, int32_t lSize) {
  using namespace lumivex::platform;
  if (lSize < 0) return nullptr;
  if (hMemMgr == nullptr) {
    // Process heap, with the same 16-byte alignment as the work buffer.
    // posix_memalign, not aligned_alloc: Android's C library has the latter only from
    // API 28, and the binding runs from API 21.
    const std::size_t n = AlignUp(lSize == 0 ? 1 : static_cast<std::size_t>(lSize));
    void* p = nullptr;
    return posix_memalign(&p, kAlign, n) == 0 ? p : nullptr;
  }
  Arena* a = ArenaOf(hMemMgr);
  return a != nullptr ? ArenaAlloc(a, lSize) : nullptr;
}

void MMemFree(MHandle hMemMgr, void* p) {
  using namespace lumivex::platform;
  if (p == nullptr) return;
  if (hMemMgr == nullptr) {
    std::free(p);
    return;
  }
  if (Arena* a = ArenaOf(hMemMgr)) ArenaFree(a, p);
}

void MMemSet(void* p, int32_t lValue, int32_t lSize) {
  if (p == nullptr || lSize <= 0) return;
  std::memset(p, lValue, static_cast<std::size_t>(lSize));
}

void MMemCpy(void* pDst, const void* pSrc, int32_t lSize) {
  if (pDst == nullptr || pSrc == nullptr || lSize <= 0) return;
  // memmove: the in-place crops copy rows toward the start of their own plane.
  std::memmove(pDst, pSrc, static_cast<std::size_t>(lSize));
}

}  // extern "C"
