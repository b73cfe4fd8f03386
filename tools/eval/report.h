// The evaluation's reports: report.html (one file: the headline, a legend, the table,
// every panorama and its chart), report.md with one SVG chart a scenario, pairs.csv (every
// measured pair of the camera-true sweeps), and JSON for machines.
#ifndef LUMIVEX_TOOLS_EVAL_REPORT_H_
#define LUMIVEX_TOOLS_EVAL_REPORT_H_

#include <string>
#include <vector>

#include "tools/eval/score.h"

namespace lumivex::tools {

bool WriteReport(const std::vector<Score>& scores, const std::string& dir, std::string* error);
std::string ToJson(const std::vector<Score>& scores);
// `text` as a JSON string, quotes included (control characters dropped).
std::string JsonQuote(const std::string& text);

// The headline, a line a profile: how many sweeps completed, how many of those are bad,
// and for camera-true sweeps the pairs within a pixel of the truth, the worst pair, and
// brightness and clipped white against the exact profile's.
std::vector<std::string> Headline(const std::vector<Score>& scores);
// What the columns of the tables mean, one line a column.
std::vector<std::pair<std::string, std::string>> Legend();

// Internals shared by the writers.
std::string Chart(const Score& s);  // the tracking error along and across, as SVG
bool WriteHtml(const std::vector<Score>& scores, const std::string& path, std::string* error);
bool WriteMarkdown(const std::vector<Score>& scores, const std::string& dir, std::string* error);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_EVAL_REPORT_H_
