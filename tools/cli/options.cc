#include "tools/cli/options.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace lumivex::tools::cli {
namespace {

const Option* Find(const CommandSpec& spec, const std::string& name) {
  for (const Option& o : spec.options)
    if (name == o.name) return &o;
  return nullptr;
}

}  // namespace

std::string Parsed::Get(const std::string& name, const std::string& fallback) const {
  const auto it = values.find(name);
  return it != values.end() ? it->second : fallback;
}

bool Parse(const CommandSpec& spec, std::span<const std::string> args, Parsed* out,
           std::string* error) {
  bool options_over = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (options_over || arg == "-" || arg.empty() || arg[0] != '-') {
      out->positional.push_back(arg);
      continue;
    }
    if (arg == "--") {
      options_over = true;
      continue;
    }
    if (arg == "--help" || arg == "-h") {
      out->flags.insert("--help");
      continue;
    }
    const std::size_t eq = arg.rfind("--", 0) == 0 ? arg.find('=') : std::string::npos;
    const std::string name = arg.substr(0, eq);
    const Option* o = Find(spec, name);
    if (o == nullptr) {
      *error = "unknown option " + name;
      return false;
    }
    if (o->value == nullptr) {
      if (eq != std::string::npos) {
        *error = name + " takes no value";
        return false;
      }
      out->flags.insert(name);
      continue;
    }
    if (eq != std::string::npos) {
      out->values[name] = arg.substr(eq + 1);
    } else if (i + 1 < args.size()) {
      out->values[name] = args[++i];
    } else {
      *error = name + " needs a value";
      return false;
    }
  }
  return true;
}

std::string Help(const CommandSpec& spec) {
  std::string out = std::string("usage: lumivex ") + spec.name + " " + spec.arguments +
                    (spec.options.empty() ? "" : " [options]") + "\n";
  if (spec.description != nullptr) out += spec.description;
  std::size_t width = 0;
  for (const Option& o : spec.options)
    width = std::max(width, std::string(o.name).size() + (o.value ? std::string(o.value).size() + 1 : 0));
  width = std::min<std::size_t>(width + 2, 22);
  for (const Option& o : spec.options) {
    std::string head = std::string("  ") + o.name + (o.value ? std::string(" ") + o.value : "");
    const std::string help = o.help;
    std::size_t start = 0;
    bool first = true;
    while (start <= help.size()) {
      const std::size_t nl = help.find('\n', start);
      const std::string line = help.substr(start, nl == std::string::npos ? std::string::npos : nl - start);
      std::string lead = first ? head : "";
      if (lead.size() + 1 > width + 2) {
        out += lead + "\n";
        lead.clear();
      }
      lead.resize(width + 2, ' ');
      out += lead + line + "\n";
      first = false;
      if (nl == std::string::npos) break;
      start = nl + 1;
    }
  }
  out += "Options may also be given as --option=value.\n";
  return out;
}

bool ParseInt(const std::string& text, long long lo, long long hi, long long* out) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
  *out = v;
  return true;
}

bool ParseDouble(const std::string& text, double* out) {
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end != '\0' || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

bool ParseSize(const std::string& text, int* w, int* h) {
  char x = 0;
  int a = 0, b = 0;
  char tail = 0;
  if (std::sscanf(text.c_str(), "%d%c%d%c", &a, &x, &b, &tail) != 3 || (x != 'x' && x != 'X') ||
      a <= 0 || b <= 0)
    return false;
  *w = a;
  *h = b;
  return true;
}

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t comma = text.find(',', start);
    std::string part = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    if (!part.empty()) parts.push_back(std::move(part));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return parts;
}

}  // namespace lumivex::tools::cli
