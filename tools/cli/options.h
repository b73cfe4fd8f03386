// Command-line options from one table a command: the same table parses the arguments and
// writes the command's help, so the two cannot disagree.
#ifndef LUMIVEX_TOOLS_CLI_OPTIONS_H_
#define LUMIVEX_TOOLS_CLI_OPTIONS_H_

#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace lumivex::tools::cli {

struct Option {
  const char* name;   // "--size" or "-o"
  const char* value;  // the value's name in the help ("WxH"); null for a flag
  const char* help;   // what it does; lines after the first are continuations
};

struct CommandSpec {
  const char* name;
  const char* arguments;    // what follows the command name in the usage line
  const char* description;  // a paragraph, or null
  std::span<const Option> options;
};

// What the arguments said: positional arguments in order, values by option name, flags.
struct Parsed {
  std::vector<std::string> positional;
  std::map<std::string, std::string> values;
  std::set<std::string> flags;
  bool Flag(const std::string& name) const { return flags.count(name) > 0; }
  bool Has(const std::string& name) const { return values.count(name) > 0; }
  std::string Get(const std::string& name, const std::string& fallback = "") const;
};

// Parses the arguments after the command name: "--opt value", "--opt=value", "-o value",
// flags, "--help" (or "-h"); "-" alone is an argument (stdin or stdout), "--" ends the
// options. False with one line of why for an unknown option, a flag given a value or an
// option missing its value.
bool Parse(const CommandSpec& spec, std::span<const std::string> args, Parsed* out,
           std::string* error);

// "usage: lumivex NAME ARGUMENTS [options]", the description and every option, aligned.
std::string Help(const CommandSpec& spec);

// Number parsing for option values: whole numbers and finite decimals only.
bool ParseInt(const std::string& text, long long lo, long long hi, long long* out);
bool ParseDouble(const std::string& text, double* out);
bool ParseSize(const std::string& text, int* w, int* h);
// Comma-separated items, empty ones dropped.
std::vector<std::string> Split(const std::string& text);

}  // namespace lumivex::tools::cli

#endif  // LUMIVEX_TOOLS_CLI_OPTIONS_H_
