#include "tools/io/output_file.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace lumivex::tools {
namespace {

// The temporary files an interrupt must remove, in storage the handler may read: fixed
// arrays, a slot in use once its flag is set (after the path is written).
constexpr int kSlots = 8;
constexpr std::size_t kPathMax = 4096;
char g_paths[kSlots][kPathMax];
volatile sig_atomic_t g_used[kSlots];

int Claim(const std::string& path) {
  if (path.size() >= kPathMax) return -1;
  for (int i = 0; i < kSlots; ++i) {
    if (g_used[i]) continue;
    std::memcpy(g_paths[i], path.c_str(), path.size() + 1);
    g_used[i] = 1;
    return i;
  }
  return -1;
}

void Release(int slot) {
  if (slot >= 0) g_used[slot] = 0;
}

// Only async-signal-safe calls: unlink, write, _exit.
extern "C" void OnInterrupt(int sig) {
  bool removed = false;
  for (int i = 0; i < kSlots; ++i) {
    if (!g_used[i]) continue;
    unlink(g_paths[i]);
    removed = true;
  }
  static const char kRemoved[] = "\nlumivex: interrupted; the unfinished output was removed\n";
  static const char kPlain[] = "\nlumivex: interrupted\n";
  const ssize_t ignored = removed ? write(STDERR_FILENO, kRemoved, sizeof(kRemoved) - 1)
                                  : write(STDERR_FILENO, kPlain, sizeof(kPlain) - 1);
  (void)ignored;
  _exit(128 + sig);
}

}  // namespace

void CleanUpOnInterrupt() {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  for (const int sig : {SIGINT, SIGTERM, SIGHUP}) sigaction(sig, &action, nullptr);
}

bool OutputFile::Open(const std::string& target, std::string* error) {
  namespace fs = std::filesystem;
  target_ = target;
  const fs::path path(target);
  std::error_code ec;
  if (fs::is_directory(path, ec)) {
    *error = "cannot write " + target + ": it is a folder";
    return false;
  }
  const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
  std::string pattern = (folder / ("." + path.filename().string() + ".lumivex-XXXXXX")).string();
  // Signals wait while the path is made and registered, so none is left behind unnamed.
  sigset_t all, previous;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &previous);
  const int fd = mkstemp(pattern.data());
  const int made = errno;
  if (fd >= 0) slot_ = Claim(pattern);
  sigprocmask(SIG_SETMASK, &previous, nullptr);
  if (fd < 0) {
    *error = "cannot write " + target + ": " + std::strerror(made);
    return false;
  }
  // Files the program writes are as readable as any other the user makes.
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(fd, 0666 & ~mask);
  close(fd);
  temp_ = pattern;
  return true;
}

bool OutputFile::Commit(std::string* error) {
  if (temp_.empty()) {
    *error = "nothing to write";
    return false;
  }
  if (std::rename(temp_.c_str(), target_.c_str()) != 0) {
    *error = "cannot write " + target_ + ": " + std::strerror(errno);
    return false;
  }
  Release(slot_);
  slot_ = -1;
  temp_.clear();
  return true;
}

OutputFile::~OutputFile() {
  if (temp_.empty()) return;
  std::remove(temp_.c_str());
  Release(slot_);
}

}  // namespace lumivex::tools
