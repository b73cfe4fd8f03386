#include <gtest/gtest.h>

#include <cstring>

#include "lumivex/engine.h"

namespace {

TEST(Version, FillsEveryFieldAndZeroPadsTheTexts) {
  ZMOSVERSION v;
  std::memset(&v, 0x7F, sizeof(v));
  ASSERT_EQ(ZMOS_GetVersion(&v), 0);
  EXPECT_EQ(v.lMajor, 2);
  EXPECT_EQ(v.lMinor, 3);
  EXPECT_EQ(v.lBuild, 12019);
  EXPECT_EQ(v.lRevision, 61);
  EXPECT_STREQ(v.szVersion, "Velqor_Lumivex_2.3.12019.61");
  EXPECT_STREQ(v.szDate, "06/20/2013");
  EXPECT_GT(std::strlen(v.szCopyright), 0u);
  EXPECT_LT(std::strlen(v.szCopyright), 50u);
  for (const char* text : {v.szVersion, v.szDate, v.szCopyright})
    for (std::size_t i = std::strlen(text); i < 50; ++i) EXPECT_EQ(text[i], 0);
  EXPECT_EQ(ZMOS_GetVersion(nullptr), 2);
}

}  // namespace
