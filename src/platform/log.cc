// Log lines go to Android's log on Android and to stderr elsewhere, unless a host or
// test installs its own sink.
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "lumivex/platform.h"

#if defined(__ANDROID__)
#include <android/log.h>
#endif

namespace {

MLogSink g_sink = nullptr;
void* g_sink_user = nullptr;
// A camera app logs 20-odd lines a frame; release builds switch them off.
std::atomic<bool> g_enabled{true};

}  // namespace

extern "C" {

void MLogSetSink(MLogSink pfnSink, void* pUser) {
  g_sink = pfnSink;
  g_sink_user = pUser;
}

void MLogSetEnabled(int32_t bEnabled) {
  g_enabled.store(bEnabled != 0, std::memory_order_relaxed);
}

void _LOG2FILE(const char* szFormat, ...) {
  if (szFormat == nullptr || !g_enabled.load(std::memory_order_relaxed)) return;
  // Long lines are truncated rather than allocated for: logging must not fail.
  char line[1024];
  va_list args;
  va_start(args, szFormat);
  const int n = std::vsnprintf(line, sizeof(line), szFormat, args);
  va_end(args);
  if (n < 0) return;
  std::size_t len = std::strlen(line);
  while (len > 0 && line[len - 1] == '\n') line[--len] = '\0';

  if (g_sink != nullptr) {
    g_sink(g_sink_user, line);
    return;
  }
#if defined(__ANDROID__)
  __android_log_write(ANDROID_LOG_INFO, "lumivex", line);
#else
  std::fprintf(stderr, "%s\n", line);
#endif
}

}  // extern "C"
