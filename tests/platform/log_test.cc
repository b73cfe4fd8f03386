#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lumivex/platform.h"

namespace {

void Collect(void* user, const char* line) {
  static_cast<std::vector<std::string>*>(user)->push_back(line);
}

TEST(Log, FormatsLinesToTheSinkOrStderr) {
  std::vector<std::string> lines;
  MLogSetSink(Collect, &lines);
  _LOG2FILE("JNI_InitRVK <----");
  _LOG2FILE("AndroidBitmap_getInfo nRet:%d\n", -3);
  _LOG2FILE("%s", std::string(3000, 'x').c_str());  // truncated, not dropped
  MLogSetSink(nullptr, nullptr);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "JNI_InitRVK <----");
  EXPECT_EQ(lines[1], "AndroidBitmap_getInfo nRet:-3");
  EXPECT_GT(lines[2].size(), 500u);

  testing::internal::CaptureStderr();
  _LOG2FILE("frame %d of %d", 3, 9);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "frame 3 of 9\n");

  // Switched off, nothing reaches the sink or stderr until it is switched back on.
  MLogSetSink(Collect, &lines);
  MLogSetEnabled(0);
  _LOG2FILE("dropped %d", 1);
  MLogSetEnabled(1);
  _LOG2FILE("kept %d", 2);
  MLogSetSink(nullptr, nullptr);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[3], "kept 2");
}

}  // namespace
