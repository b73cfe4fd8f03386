// Captures in several threads at once, and interleaved on one thread, give the panoramas
// of captures run one after another: nothing one capture does reaches another's state.
// (The tsan configuration runs this under ThreadSanitizer.)
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <thread>
#include <vector>

#include "lumivex/lumivex.h"
#include "tests/support/test_support.h"

namespace {

using lumivex::test::ColourPlanes;
using lumivex::test::Frame;

struct Case {
  int width, height, direction;
  std::int32_t profile;
};

// One capture of a sweep whose step wanders (so the quality profile's corrections work),
// fed a frame at a time through Step().
class Capture {
 public:
  Capture(const ColourPlanes& scene, const Case& c)
      : scene_(scene), c_(c), work_(static_cast<std::size_t>(
                                  lumivex::test::HandlerWorkBufferSize(c.width, c.height))) {
    ZMOSINITPARAM param{work_.data(), static_cast<std::int32_t>(work_.size()), 180,
                        c.width,      c.height,                            c.width, c.height};
    ok_ = ZMOS_Init(&param, &engine_) == 0 && ZMOS_SetProfile(engine_, c.profile) == 0;
  }
  ~Capture() { ZMOS_UnInit(&engine_); }

  // False once the capture has ended.
  bool Step() {
    if (!ok_ || angle_ >= 180 || k_ >= 400) return false;
    const bool horizontal = c_.direction < 2;
    const int sign = c_.direction % 2 == 0 ? 1 : -1;
    const int span = horizontal ? scene_.y.width - c_.width : scene_.y.height - c_.height;
    along_ += 6 + (k_ * 7) % 5;
    ++k_;
    const int pos = sign > 0 ? 20 + along_ : span - 20 - along_;
    if (pos < 0 || pos > span) return false;
    const int x = horizontal ? pos : 40, y = horizontal ? 200 : pos;
    Frame frame(scene_, x, y, c_.width, c_.height);
    std::int32_t offset[2], kept = 0, flags[4];
    return ZMOS_SelectFrames(engine_, frame.get(), frame.get(), offset, &kept, flags, &angle_) ==
           0;
  }

  std::uint64_t Finish() {
    ZMOSIMAGE result{};
    if (!ok_ || ZMOS_Stitch(engine_, &result, nullptr) != 0) return 0;
    return lumivex::test::PanoramaChecksum(result);
  }

 private:
  const ColourPlanes& scene_;
  Case c_;
  std::vector<std::uint8_t> work_;
  ZMOSSWEEPSTITCHER* engine_ = nullptr;
  bool ok_ = false;
  std::int32_t angle_ = 0;
  int k_ = 0, along_ = 0;
};

const ColourPlanes& SceneFor(const Case& c) {
  // Vertical sweeps go over the photograph turned on its side (land, not sky).
  return c.direction < 2 ? *lumivex::test::ColourPhoto() : *lumivex::test::TurnedColourPhoto();
}

std::uint64_t RunAlone(const Case& c) {
  Capture capture(SceneFor(c), c);
  while (capture.Step()) {
  }
  return capture.Finish();
}

std::vector<Case> Cases() {
  std::vector<Case> cases;
  for (const auto& [w, h] : {std::pair{320, 240}, std::pair{480, 320}})
    for (int d = 0; d < 4; ++d)
      for (const std::int32_t p : {ZMOS_PROFILE_EXACT, ZMOS_PROFILE_QUALITY})
        cases.push_back({w, h, d, p});
  return cases;
}

TEST(Threads, CapturesInParallelGiveTheirSingleThreadedPanoramas) {
  LUMIVEX_REQUIRE_PHOTO(lumivex::test::ColourPhoto() == nullptr);
  const std::vector<Case> cases = Cases();
  std::vector<std::uint64_t> alone;
  for (const Case& c : cases) {
    alone.push_back(RunAlone(c));
    ASSERT_NE(alone.back(), 0u) << "a capture alone did not stitch";
  }
  const char* env = std::getenv("LUMIVEX_THREAD_ROUNDS");
  const int rounds = env != nullptr ? std::atoi(env) : 2;
  constexpr int kThreads = 4;
  std::vector<std::vector<std::uint64_t>> got(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      // Each thread its own order, so different sizes and profiles overlap.
      for (int r = 0; r < rounds; ++r)
        for (std::size_t i = 0; i < cases.size(); ++i)
          got[t].push_back(RunAlone(cases[(i * (2 * t + 1) + r) % cases.size()]));
    });
  }
  for (std::thread& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) {
    std::size_t n = 0;
    for (int r = 0; r < rounds; ++r)
      for (std::size_t i = 0; i < cases.size(); ++i, ++n) {
        const std::size_t at = (i * (2 * t + 1) + r) % cases.size();
        EXPECT_EQ(got[t][n], alone[at]) << "thread " << t << " case " << at;
      }
  }
}

TEST(Threads, CapturesInterleavedOnOneThreadDoNotMeet) {
  LUMIVEX_REQUIRE_PHOTO(lumivex::test::ColourPhoto() == nullptr);
  const Case a{320, 240, 0, ZMOS_PROFILE_QUALITY}, b{480, 320, 3, ZMOS_PROFILE_EXACT};
  const std::uint64_t alone_a = RunAlone(a), alone_b = RunAlone(b);
  Capture ca(SceneFor(a), a), cb(SceneFor(b), b);
  for (bool more_a = true, more_b = true; more_a || more_b;) {
    if (more_a) more_a = ca.Step();
    if (more_b) more_b = cb.Step();
  }
  EXPECT_EQ(ca.Finish(), alone_a);
  EXPECT_EQ(cb.Finish(), alone_b);
}

}  // namespace
