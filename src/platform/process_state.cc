// The library's state outside any engine; see process_state.h for what each piece is for.
#include "src/platform/process_state.h"

namespace lumivex::track {

BandTextureTable& BandTexture() {
  static thread_local BandTextureTable table{};
  return table;
}

}  // namespace lumivex::track

namespace lumivex::engine {

WrongAxisSums& WrongAxis() {
  static thread_local WrongAxisSums sums{};
  return sums;
}

}  // namespace lumivex::engine

namespace lumivex::stitch {

std::unique_lock<std::recursive_mutex> LockBlendTable() {
  static std::recursive_mutex mutex;
  return std::unique_lock<std::recursive_mutex>(mutex);
}

std::uint32_t g_PathSearchThreshold = 80;
MHandle g_hBlendTableMemMgr = nullptr;
std::int32_t g_BlendTableWidth = 0;
std::int32_t* g_BlendTable = nullptr;
std::int32_t g_BlendTableStatic[10] = {};
MHandle g_BlendTableOwner = nullptr;

}  // namespace lumivex::stitch
