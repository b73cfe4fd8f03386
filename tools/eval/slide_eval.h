// Scoring slid sweeps (tools/sim/slide_sim.h) against the photograph they were cut from.
#ifndef LUMIVEX_TOOLS_EVAL_SLIDE_EVAL_H_
#define LUMIVEX_TOOLS_EVAL_SLIDE_EVAL_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/eval/score.h"
#include "tools/sim/slide_sim.h"

namespace lumivex::tools {

// Photographs are enlarged at most this much to hold a sweep; a scenario that needs more is
// reported as "photo too small" rather than scored on a blurred picture.
inline constexpr double kMaxPhotoScale = 2.0;

// Simulates one sweep, then captures and scores it under each profile.
std::vector<Score> RunScenario(const Rgb& photo, const std::string& photo_name,
                               const std::string& name, const SimOptions& options,
                               const std::vector<std::int32_t>& profiles);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_EVAL_SLIDE_EVAL_H_
