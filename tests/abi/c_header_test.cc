#include <gtest/gtest.h>

extern "C" int lumivex_c_smoke(void);

namespace {

TEST(CHeaders, UsableFromC) {
  EXPECT_EQ(lumivex_c_smoke(), 0);
}

}  // namespace
