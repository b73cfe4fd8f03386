// The report's columns: each named, explained for the legend, and how its cell is made.
#ifndef LUMIVEX_TOOLS_EVAL_REPORT_COLUMNS_H_
#define LUMIVEX_TOOLS_EVAL_REPORT_COLUMNS_H_

#include <string>
#include <vector>

#include "tools/eval/score.h"

namespace lumivex::tools {

enum class Rows { kAll, kSlid, kCamera };  // which sweeps have the column

struct Column {
  const char* name;
  const char* meaning;
  Rows rows;
  std::string (*value)(const Score&);
};

const std::vector<Column>& Columns();
// Whether the table of camera-true (or slid) sweeps has the column.
bool Shows(const Column& column, bool camera);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_EVAL_REPORT_COLUMNS_H_
