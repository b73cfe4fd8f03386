// Which engines run the quality profile. The engine's record keeps its fixed layout, so
// the choice lives beside it: an engine enters this table through ZMOS_SetProfile and
// leaves it when it is released, so no other engine (nor a later one at the same address)
// ever sees it.
#include "src/engine/profile.h"

#include <array>

namespace lumivex::engine {
namespace {

struct QualityEngine {
  const ZMOSSWEEPSTITCHER* engine = nullptr;
  QualityState state;
};

// One capture runs at a time per process; a few slots leave room for hosts that keep
// an engine around while starting the next.
std::array<QualityEngine, 8> g_quality_engines{};

QualityEngine* Find(const ZMOSSWEEPSTITCHER* engine) {
  if (engine == nullptr) return nullptr;
  for (QualityEngine& q : g_quality_engines)
    if (q.engine == engine) return &q;
  return nullptr;
}

}  // namespace

const Policy& PolicyOf(const ZMOSSWEEPSTITCHER* engine) {
  return Find(engine) != nullptr ? kQualityPolicy : kExactPolicy;
}

QualityState* QualityOf(const ZMOSSWEEPSTITCHER* engine) {
  QualityEngine* q = Find(engine);
  return q != nullptr ? &q->state : nullptr;
}

lumivex::select::Coasting* CoastingOf(const ZMOSSWEEPSTITCHER* engine) {
  QualityEngine* q = Find(engine);
  return q != nullptr ? &q->state.coasting : nullptr;
}

bool SetQuality(const ZMOSSWEEPSTITCHER* engine, bool quality) {
  ForgetProfile(engine);
  if (!quality) return true;
  for (QualityEngine& q : g_quality_engines) {
    if (q.engine == nullptr) {
      q = QualityEngine{engine, QualityState{}};
      return true;
    }
  }
  return false;
}

void ForgetProfile(const ZMOSSWEEPSTITCHER* engine) {
  if (QualityEngine* q = Find(engine)) *q = QualityEngine{};
}

}  // namespace lumivex::engine
