// The profile each engine runs (see lumivex/engine.h), as the policy its decision points
// consult.
#ifndef LUMIVEX_SRC_ENGINE_PROFILE_H_
#define LUMIVEX_SRC_ENGINE_PROFILE_H_

#include "lumivex/engine.h"
#include "src/platform/policy.h"
#include "src/select/frame_selector.h"

namespace lumivex::engine {

// The policy of `engine`: exact unless it was switched to quality.
const Policy& PolicyOf(const ZMOSSWEEPSTITCHER* engine);
// False when no more engines can run the quality profile at once.
bool SetQuality(const ZMOSSWEEPSTITCHER* engine, bool quality);
void ForgetProfile(const ZMOSSWEEPSTITCHER* engine);
// The speed a quality engine carries through plain stretches; null for exact engines.
lumivex::select::Coasting* CoastingOf(const ZMOSSWEEPSTITCHER* engine);

}  // namespace lumivex::engine

#endif  // LUMIVEX_SRC_ENGINE_PROFILE_H_
