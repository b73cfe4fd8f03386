// Introspection of the work-buffer memory manager, for tests and diagnostics.
#ifndef LUMIVEX_SRC_PLATFORM_MEMORY_H_
#define LUMIVEX_SRC_PLATFORM_MEMORY_H_

#include <cstddef>
#include <cstdint>

#include "lumivex/platform.h"

namespace lumivex::platform {

struct MemStats {
  std::size_t capacity = 0;      // bytes of all blocks, headers included
  std::size_t free_bytes = 0;    // bytes of free blocks, headers included
  std::size_t largest_free = 0;  // largest payload a single request can get
  int free_blocks = 0;
  int used_blocks = 0;
  std::size_t peak_used = 0;  // most bytes in use at once since creation
};

// Walks every block and checks the boundary tags and the free list against each
// other. Returns false (and leaves `stats` partly filled) on any inconsistency.
bool CheckHeap(MHandle mgr, MemStats* stats);

// Bytes a request of `size` takes from a work buffer (header and rounding included), and
// the bytes a work buffer loses to the manager itself when its start has the worst
// alignment. Sizing functions add these up; -1 for a request no buffer can meet.
std::int64_t BlockBytes(std::int64_t size);
std::int64_t ManagerOverheadBytes();

// Called with every manager MMemMgrCreate lays: whatever the process kept from an earlier
// manager at that address lived in bytes the new one has just overwritten.
using NewArenaHook = void (*)(MHandle);
void SetNewArenaHook(NewArenaHook hook);

}  // namespace lumivex::platform

#endif  // LUMIVEX_SRC_PLATFORM_MEMORY_H_
