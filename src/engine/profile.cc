// Which engines run the quality profile. The engine's record keeps its fixed layout, so
// the choice lives beside it: an engine enters this table through ZMOS_SetProfile and
// leaves it when it is released, so no other engine (nor a later one at the same address)
// ever sees it.
#include "src/engine/profile.h"

#include <array>
#include <mutex>

namespace lumivex::engine {
namespace {

struct QualityEngine {
  const ZMOSSWEEPSTITCHER* engine = nullptr;
  QualityState state;
};

// Captures may run in several threads at once, each with its own engine: the table is
// looked up and changed under a lock; a slot's state is then used by its engine alone.
std::array<QualityEngine, 16> g_quality_engines{};
std::mutex g_quality_mutex;

QualityEngine* Find(const ZMOSSWEEPSTITCHER* engine) {
  if (engine == nullptr) return nullptr;
  const std::lock_guard<std::mutex> lock(g_quality_mutex);
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
  const std::lock_guard<std::mutex> lock(g_quality_mutex);
  for (QualityEngine& q : g_quality_engines) {
    if (q.engine == nullptr) {
      q = QualityEngine{engine, QualityState{}};
      return true;
    }
  }
  return false;
}

void ForgetProfile(const ZMOSSWEEPSTITCHER* engine) {
  if (QualityEngine* q = Find(engine)) {
    const std::lock_guard<std::mutex> lock(g_quality_mutex);
    *q = QualityEngine{};
  }
}

}  // namespace lumivex::engine
