// lumivex command-line program.
#include <cstdio>
#include <cstring>

#include "lumivex/lumivex.h"

namespace {

int PrintVersion() {
  ZMOSVERSION v;
  if (ZMOS_GetVersion(&v) != ZMOS_OK) return 1;
  std::printf("%s (%s)\n%s\n", v.szVersion, v.szDate, v.szCopyright);
  return 0;
}

void Usage(std::FILE* out) {
  std::fprintf(out,
               "usage: lumivex <command>\n"
               "commands:\n"
               "  version   print the engine version\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    Usage(stderr);
    return 2;
  }
  if (std::strcmp(argv[1], "version") == 0 || std::strcmp(argv[1], "--version") == 0)
    return PrintVersion();
  if (std::strcmp(argv[1], "help") == 0 || std::strcmp(argv[1], "--help") == 0) {
    Usage(stdout);
    return 0;
  }
  std::fprintf(stderr, "lumivex: unknown command '%s'\n", argv[1]);
  Usage(stderr);
  return 2;
}
