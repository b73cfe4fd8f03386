// What the commands share: failing in one line, profile names, overwriting, the assets.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tools/cli/commands.h"

namespace lumivex::tools::cli {

int Fail(int status, const std::string& message) {
  std::fprintf(stderr, "lumivex: %s\n", message.c_str());
  return status;
}

bool ParseProfile(const std::string& name, std::int32_t* profile) {
  if (name == "exact") {
    *profile = ZMOS_PROFILE_EXACT;
  } else if (name == "quality") {
    *profile = ZMOS_PROFILE_QUALITY;
  } else {
    return false;
  }
  return true;
}

int CheckOverwrite(const std::string& path, bool overwrite, bool keep) {
  std::error_code ec;
  if (!std::filesystem::exists(path, ec) || overwrite) return kOk;
  if (keep) return Fail(kWriteFailed, path + " already exists; not overwritten (-n)");
  if (isatty(STDIN_FILENO) && isatty(STDERR_FILENO)) {
    std::fprintf(stderr, "File '%s' already exists. Overwrite? [y/N] ", path.c_str());
    char answer[16] = {};
    if (std::fgets(answer, sizeof(answer), stdin) != nullptr &&
        (answer[0] == 'y' || answer[0] == 'Y'))
      return kOk;
    return Fail(kWriteFailed, "not overwriting " + path);
  }
  return Fail(kWriteFailed, path + " already exists: -y overwrites it, -n keeps it");
}

std::string AssetsDir(const std::string& program) {
  if (const char* env = std::getenv("LUMIVEX_ASSETS")) return env;
  namespace fs = std::filesystem;
  std::error_code ec;
  // Beside the program, in the install's share/lumivex, else the source tree it was built
  // from.
  fs::path exe = fs::canonical("/proc/self/exe", ec);
  if (ec) exe = fs::canonical(fs::path(program), ec);
  for (const fs::path& p :
       {exe.parent_path() / "assets", exe.parent_path().parent_path() / "share/lumivex/assets",
        exe.parent_path().parent_path() / "share/lumivex"})
    if (fs::exists(p / "mountain-360-5000x2500.jpg", ec)) return p.string();
  return LUMIVEX_ASSETS_DIR;
}

bool StartReading(const CommandSpec& spec, std::span<const std::string> args, Parsed* parsed,
                  Reading* r) {
  std::string error;
  if (!Parse(spec, args, parsed, &error)) {
    *r = UsageError(error + " (see lumivex " + spec.name + " --help)");
    return false;
  }
  r->help = parsed->Flag("--help");
  return !r->help;
}

}  // namespace lumivex::tools::cli
