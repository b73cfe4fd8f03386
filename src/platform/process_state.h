// Every piece of state the library keeps outside a caller's engine, in one place. Captures
// may run in several threads at once; each entry says how that stays safe and which of
// its habits are intended.
//
// Per thread (a capture in one thread never sees another thread's):
//   - BandTexture(): the band texture measures the frame-to-frame tracker hands to the
//     reference tracker within one frame's call. Overwritten every frame.
//   - WrongAxis(): the wrong-axis sums of frame selection. Never reset, so they carry over
//     from one capture to the next run in the same thread: an intended quirk of the
//     exact behaviour.
//
// Process-wide, behind a lock:
//   - The blend table (g_BlendTable and its width, static storage and owner): one table at
//     a time for every blend. Every exported function that installs, reads or frees it
//     holds LockBlendTable() for the whole call (recursive: they call one another). A table
//     allocated from a capture's manager is forgotten, not freed, when that capture's
//     buffer goes.
//   - The quality-profile table (src/engine/profile.cc): which engines run the quality
//     profile, 16 slots under a mutex; an engine's slot is given back when it is released.
//   - The binding's handler table (src/android/camera_handler.cc): 64 slots of capture
//     handlers keyed with a generation, under a mutex.
//
// Process-wide by design, set by the host:
//   - g_PathSearchThreshold (ZMOSSetPathSearchThreshold): the seam search's threshold for
//     every blend.
//   - The log sink (src/platform/log.cc, MLogSetSink) and the switch that silences it.
//   - The arena hook of the memory manager (src/platform/memory.cc), a test seam.
#ifndef LUMIVEX_SRC_PLATFORM_PROCESS_STATE_H_
#define LUMIVEX_SRC_PLATFORM_PROCESS_STATE_H_

#include <cstdint>
#include <mutex>

#include "lumivex/platform.h"

namespace lumivex::track {

// Band texture measures of the frame-to-frame tracker, for the reference tracker.
struct BandTextureTable {
  std::int32_t prev_hori[3];  // top, middle, bottom
  std::int32_t cur_hori[3];
  std::int32_t prev_vert[3];  // left, middle, right
  std::int32_t cur_vert[3];
};
// (Through a function: a thread_local object named across files trips the sanitizers.)
BandTextureTable& BandTexture();

}  // namespace lumivex::track

namespace lumivex::engine {

// Wrong-axis sums of frame selection.
struct WrongAxisSums {
  std::int32_t sx, sy;
};
WrongAxisSums& WrongAxis();

}  // namespace lumivex::engine

namespace lumivex::stitch {

std::unique_lock<std::recursive_mutex> LockBlendTable();
extern std::uint32_t g_PathSearchThreshold;
extern MHandle g_hBlendTableMemMgr;
extern std::int32_t g_BlendTableWidth;
extern std::int32_t* g_BlendTable;
extern std::int32_t g_BlendTableStatic[10];
// The manager the installed table really came from. `g_hBlendTableMemMgr` can be
// repointed by hosts, and a capture's manager dies with its work buffer, so frees go by
// this one.
extern MHandle g_BlendTableOwner;

}  // namespace lumivex::stitch

#endif  // LUMIVEX_SRC_PLATFORM_PROCESS_STATE_H_
