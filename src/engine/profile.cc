// Which engines run the quality profile. The engine's record keeps its fixed layout, so
// the choice lives beside it: an engine enters this table through ZMOS_SetProfile and
// leaves it when it is released, so no other engine (nor a later one at the same address)
// ever sees it.
#include "src/engine/profile.h"

#include <array>

namespace lumivex::engine {
namespace {

// One capture runs at a time per process; a few slots leave room for hosts that keep
// an engine around while starting the next.
std::array<const ZMOSSWEEPSTITCHER*, 8> g_quality_engines{};

}  // namespace

const Policy& PolicyOf(const ZMOSSWEEPSTITCHER* engine) {
  for (const ZMOSSWEEPSTITCHER* e : g_quality_engines)
    if (e != nullptr && e == engine) return kQualityPolicy;
  return kExactPolicy;
}

bool SetQuality(const ZMOSSWEEPSTITCHER* engine, bool quality) {
  ForgetProfile(engine);
  if (!quality) return true;
  for (const ZMOSSWEEPSTITCHER*& e : g_quality_engines) {
    if (e == nullptr) {
      e = engine;
      return true;
    }
  }
  return false;
}

void ForgetProfile(const ZMOSSWEEPSTITCHER* engine) {
  for (const ZMOSSWEEPSTITCHER*& e : g_quality_engines)
    if (e == engine) e = nullptr;
}

}  // namespace lumivex::engine
