// The profile each engine runs (see lumivex/engine.h), as the policy its decision points
// consult.
#ifndef LUMIVEX_SRC_ENGINE_PROFILE_H_
#define LUMIVEX_SRC_ENGINE_PROFILE_H_

#include "lumivex/engine.h"
#include "src/engine/policy.h"
#include "src/select/frame_selector.h"

namespace lumivex::engine {

// The policy of `engine`: exact unless it was switched to quality.
const Policy& PolicyOf(const ZMOSSWEEPSTITCHER* engine);
// False when no more engines can run the quality profile at once.
bool SetQuality(const ZMOSSWEEPSTITCHER* engine, bool quality);
void ForgetProfile(const ZMOSSWEEPSTITCHER* engine);
// What a quality engine remembers from frame to frame.
struct QualityState {
  lumivex::select::Coasting coasting;  // the speed carried through plain stretches
  // The last laid frame's travel along the sweep a frame (refined, in sixteenths of a
  // pixel) and the frame count it was laid at; -1 before the first.
  std::int32_t laid_speed16 = 0;
  std::int32_t laid_at = -1;
};

// The state of a quality engine; null for exact engines.
QualityState* QualityOf(const ZMOSSWEEPSTITCHER* engine);
// The speed a quality engine carries through plain stretches; null for exact engines.
lumivex::select::Coasting* CoastingOf(const ZMOSSWEEPSTITCHER* engine);

}  // namespace lumivex::engine

#endif  // LUMIVEX_SRC_ENGINE_PROFILE_H_
