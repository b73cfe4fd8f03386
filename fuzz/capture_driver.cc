#include "fuzz/capture_driver.h"

#include <algorithm>
#include <optional>

namespace lumivex::fuzz {

void RunCapture(Input& in) {
  static constexpr std::uint32_t kFrameFormats[] = {0x802, 0x802, 0x802, 0x601,
                                                    0x801, 0x701, 0x501, 0x999};
  const std::uint32_t format = in.Pick(kFrameFormats);
  // Mostly sizes the engine can use; sometimes odd, tiny or empty ones.
  std::int32_t w = in.Range(0, 3) == 0 ? in.Range(-2, 96) : 2 * in.Range(48, 160);
  std::int32_t h = in.Range(0, 3) == 0 ? in.Range(-2, 64) : 2 * in.Range(16, 120);
  const std::int32_t pad = in.Range(0, 3) == 0 ? in.Range(0, 33) : 0;
  const bool separate_track = in.Range(0, 3) == 0;
  const std::int32_t track_div = separate_track ? in.Range(1, 4) : 1;
  const std::int32_t tw = separate_track ? (w / track_div) & ~1 : w;
  const std::int32_t th = separate_track ? (h / track_div) & ~1 : h;

  const std::int64_t formula = HandlerBufferSize(std::max(w, 2), std::max(h, 2));
  std::int64_t size = formula;
  switch (in.Range(0, 7)) {
    case 0:
      size = in.Range(0, 4096);
      break;
    case 1:
    case 2:
      size = formula < 0 ? 4096 : formula * in.Range(30, 100) / 100;
      break;
    default:
      break;
  }
  if (size < 0 || size > (64 << 20)) size = 64 << 20;
  GuardedBuffer work(static_cast<std::size_t>(size));
  static constexpr std::int32_t kAngles[] = {180, 180, 90, 360, 0, -5, 30};
  ZMOSINITPARAM param{work.data(), static_cast<std::int32_t>(size), in.Pick(kAngles), w, h, tw, th};
  ZMOSSWEEPSTITCHER* engine = nullptr;
  if (ZMOS_Init(&param, &engine) != 0) {
    Check(engine == nullptr, "a failed init hands out no engine");
    work.CheckGuards("work buffer after a failed init");
    return;
  }

  static constexpr std::uint32_t kPreviewFormats[] = {0x802, 0x801, 0x501, 0x000, 0x601};
  const std::uint32_t preview_format = in.Pick(kPreviewFormats);
  CallerImage preview(preview_format, in.Range(0, 200), in.Range(0, 120), in.Range(0, 8), in);
  const bool draw_preview = in.Range(0, 3) != 0;
  const std::int32_t scale = in.Pick((const std::int32_t[]){6, 6, 4, 1, 0, -3, 1000});

  std::int32_t x = in.Range(0, Scene::kWidth), y = in.Range(0, Scene::kHeight);
  std::int32_t kept = 0, angle = 0;
  const int frames = in.Range(1, 180);
  for (int k = 0; k < frames && in.left() > 0; ++k) {
    const int op = in.Range(0, 15);
    if (op == 0) {
      ZMOSIMAGE result{};
      if (ZMOS_Stitch(engine, &result, nullptr) == 0) TouchImage(&result);
      continue;
    }
    // Motion: a steady sweep with wobble, and sometimes a jump or a raw frame.
    const std::int32_t speed = in.Range(-3, 24);
    x += op == 1 ? in.Range(-400, 400) : speed;
    y += op == 2 ? in.Range(-200, 200) : in.Range(-2, 2);
    const bool raw = op == 3;
    CallerImage frame(format, w, h, pad, in);
    if (!frame.ok()) break;
    if (!raw) frame.CutFromScene(x, y);
    std::optional<CallerImage> track;
    if (separate_track) {
      track.emplace(format, tw, th, 0, in);
      if (!track->ok()) break;
      track->CutFromScene(x / track_div, y / track_div);
      track->Snapshot();
    }
    frame.Snapshot();
    std::int32_t offset[2] = {0, 0}, flags[4] = {0, 0, 0, 0};
    const std::int32_t res =
        ZMOS_SelectFrames(engine, frame.get(), separate_track ? track->get() : frame.get(), offset,
                          &kept, flags, &angle);
    frame.CheckUnchanged("selection changed the caller's frame");
    if (track) track->CheckUnchanged("selection changed the caller's tracking image");
    work.CheckGuards("work buffer after selection");
    if (draw_preview && (res == 0 || in.Range(0, 7) == 0)) {
      ZMOSIMAGE ui = *preview.get();
      std::int32_t rect[4];
      if (ZMOS_UpdateUIImage(engine, frame.get(), &ui, scale, rect) == 0) TouchImage(&ui);
      frame.CheckUnchanged("the preview changed the caller's frame");
      preview.CheckPadding("the preview wrote outside the caller's preview pixels");
      work.CheckGuards("work buffer after the preview");
    }
    if (angle >= 180 && in.Bool()) break;
  }
  ZMOSIMAGE result{};
  if (ZMOS_Stitch(engine, &result, nullptr) == 0) {
    TouchImage(&result);
    // Every plane the result names lies in the work buffer; one with no bytes has no pointer.
    for (int p = 0; p < 3; ++p) {
      const std::uint8_t* plane = result.pPlane[p];
      Check(plane == nullptr || (plane >= work.data() && plane < work.data() + work.size()),
            "result planes lie in the work buffer");
      Check(result.lPitch[p] > 0 || plane == nullptr, "a plane without bytes has no pointer");
    }
  }
  work.CheckGuards("work buffer after the stitch");
  if (in.Bool()) {
    // A second stitch and selection after the end are harmless.
    ZMOS_Stitch(engine, &result, nullptr);
  }
  ZMOS_UnInit(&engine);
  Check(engine == nullptr, "uninit clears the handle");
  ZMOS_UnInit(&engine);
  work.CheckGuards("work buffer after uninit");
}

}  // namespace lumivex::fuzz
