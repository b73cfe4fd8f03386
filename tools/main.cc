// lumivex: stitch recorded sweeps, simulate sweeps with ground truth, score the engine on
// them, and a demo that runs out of the box. A table of commands, each with its own
// options.
#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "lumivex/lumivex.h"
#include "src/engine/policy.h"
#include "tools/cli/commands.h"

namespace {

using namespace lumivex::tools::cli;

// A command: its name, one line for the overview, and how it runs.
struct Command {
  const char* name;
  const char* summary;
  int (*run)(std::span<const std::string> args, const std::string& program);
};

// Reads a command's options and runs it; its help when asked.
template <typename Options, typename Read, typename Run>
int Dispatch(const CommandSpec& spec, Read read, Run run, std::span<const std::string> args) {
  Options options;
  const Reading r = read(args, &options);
  if (r.help) return std::fputs(Help(spec).c_str(), stdout), kOk;
  if (r.status != kOk) return Fail(r.status, r.error);
  return run(options);
}

int Version(std::span<const std::string>, const std::string&) {
  ZMOSVERSION v;
  if (ZMOS_GetVersion(&v) != ZMOS_OK) return kEngineInit;
  std::printf("%s (%s)\n%s\nlumivex %s\n\nquality profile (the default; --profile exact turns it off):\n",
              v.szVersion, v.szDate, v.szCopyright, LUMIVEX_VERSION_STRING);
  for (const lumivex::Correction& c : lumivex::kCorrections)
    std::printf("  %-22s %s\n", c.name, c.summary);
  return kOk;
}

const Command kCommands[] = {
    {"demo", "simulate a sweep over the bundled photograph and stitch it",
     [](std::span<const std::string> args, const std::string& program) {
       return Dispatch<DemoOptions>(kDemo, ReadDemo,
                                    [&](const DemoOptions& o) { return Demo(o, program); }, args);
     }},
    {"stitch", "stitch a recorded sweep into PANO (.jpg or .png)",
     [](std::span<const std::string> args, const std::string&) {
       return Dispatch<StitchOptions>(kStitch, ReadStitch, Stitch, args);
     }},
    {"simulate", "simulate a hand-held sweep over a photograph, with its ground truth",
     [](std::span<const std::string> args, const std::string&) {
       return Dispatch<SimulateOptions>(kSimulate, ReadSimulate, Simulate, args);
     }},
    {"eval", "simulate, stitch and score sweeps over photographs under each profile",
     [](std::span<const std::string> args, const std::string&) {
       return Dispatch<EvalOptions>(kEval, ReadEval, Eval, args);
     }},
    {"version", "print the engine version (also --version)", Version},
};

std::string Usage() {
  std::string out = "usage: lumivex <command> [options]\n\ncommands:\n";
  for (const Command& c : kCommands) {
    std::string name = std::string("  ") + c.name;
    name.resize(12, ' ');
    out += name + c.summary + "\n";
  }
  out +=
      "\n'lumivex COMMAND --help' describes a command.\n\n"
      "exit status: 0 panorama written, 1 usage, 2 bad input, 3 engine could not start,\n"
      "4 output not written, 5 too little texture, 6 sweep went wrong, 7 too fast,\n"
      "8 sweep too short (the result is the first frame), 128 + N interrupted by signal N\n";
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs(Usage().c_str(), stderr);
    return kUsage;
  }
  const std::string command = argv[1];
  const std::vector<std::string> args(argv + 2, argv + argc);
  if (command == "--version") return Version(args, argv[0]);
  if (command == "help" || command == "--help" || command == "-h") {
    std::fputs(Usage().c_str(), stdout);
    return kOk;
  }
  for (const Command& c : kCommands)
    if (command == c.name) return c.run(args, argv[0]);
  std::fprintf(stderr, "lumivex: unknown command '%s'\n%s", command.c_str(), Usage().c_str());
  return kUsage;
}
