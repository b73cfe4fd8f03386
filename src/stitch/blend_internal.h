// Shared pieces of the blends and stitchers: the engine-wide blend table, the blend rule,
// plane views that know their extents, and the seam search in either orientation.
#ifndef LUMIVEX_SRC_STITCH_BLEND_INTERNAL_H_
#define LUMIVEX_SRC_STITCH_BLEND_INTERNAL_H_

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "lumivex/stitch.h"
#include "src/platform/process_state.h"
#include "src/platform/wrap.h"

namespace lumivex::stitch {

// Engine-wide blend state (one table at a time, shared by every blend, behind
// LockBlendTable()) lives in src/platform/process_state.h.

// Forgets, without freeing, a table allocated from `mgr`: called when the buffer under
// that manager is about to be discarded or laid anew.
void ForgetBlendTableOf(MHandle mgr);

// The seam search runs only where the overlap exceeds the table width by this margin.
inline constexpr std::int32_t kSeamSearchMargin = 80;

// Valid rectangles of both stitchers keep their cross margins and content ends even, so
// chroma rows and columns stay paired.
constexpr std::int32_t RoundUpEven(std::int32_t v) {
  return WrapAdd(v, v & 1);
}

// weight(i) = (w-1-i)/w below the middle and (w-i)/w from it on, in Q16.
void FillBlendTable(std::int32_t* table, std::int32_t w);

// (wa x a + wb x b + 1/2) in Q16, clamped to a byte.
inline std::uint8_t Rule(std::int32_t wa, std::int32_t a, std::int32_t wb, std::int32_t b) {
  const std::int32_t v = (wa * a + wb * b + 32768) >> 16;
  return static_cast<std::uint8_t>(v < 1 ? 0 : v > 255 ? 255 : v);
}

// A blend table's weights laid out for the fade kernel: up[k] = t[k] and down[k] =
// t[w - 1 - k] (by pixel pairs, t[k & ~1] and t[w - 1 - (k & ~1)], for interleaved
// chroma). `ok` only when every weight fits 16 bits and the table fits here; otherwise the
// blends keep their per-pixel loops.
struct FadeWeights {
  static constexpr std::int32_t kMax = 1024;
  FadeWeights(const std::int32_t* t, std::int32_t w, bool pairs);
  std::uint16_t up[kMax];
  std::uint16_t down[kMax];
  bool ok = false;
};

// One plane of an image with its extent, so the blends never step outside it.
struct PlaneView {
  std::uint8_t* base = nullptr;
  std::ptrdiff_t pitch = 0;
  std::int32_t rows = 0;
  std::int32_t row_bytes = 0;

  bool HasRow(std::int64_t r) const { return r >= 0 && r < rows; }
  std::uint8_t* Row(std::int64_t r) const { return base + r * pitch; }
  // The byte at `offset` from the plane start, or null outside the plane's samples.
  std::uint8_t* At(std::int64_t offset) const;
};

// Plane `p` of an image of a supported format (empty view otherwise).
PlaneView ViewOf(const ZMOSIMAGE& image, int p);

// Rows [lo, hi) of an overlap of `rows` rows starting at row `top1` of `a` and `top2` of
// `b` that exist in both planes.
struct RowRange {
  std::int64_t lo, hi;
};
RowRange CommonRows(const PlaneView& a, std::int64_t top1, const PlaneView& b, std::int64_t top2,
                    std::int64_t rows);

// Where the chroma of an overlap lies in planar images (0x601-0x608): the first image's
// start (an odd left or top raised by one where that direction is halved), the second
// image's start (never adjusted) and the extent, halved by the subsampling.
struct ChromaOverlap {
  std::int64_t col1, row1, col2, row2;
  std::int32_t cols, rows;
  bool half_cols, half_rows;
};
ChromaOverlap PlanarChromaOverlap(const ZMOSIMAGE& first, const ZMOSRECT* first_rect,
                                  const ZMOSRECT* second_rect);

// Where the interleaved chroma plane of a semi-planar overlap (0x801-0x803) lies, and how
// the second image's bytes meet the first's: an even first left takes an even second x;
// an odd first left against an even second x pairs the bytes crosswise.
struct InterleavedOverlap {
  std::int64_t left, row1, row2;  // first image's byte column, both chroma rows
  std::int64_t x;                 // second image's byte column, after alignment
  std::int64_t width, height;     // overlap in pixels (= chroma bytes) and luma rows
  std::int64_t rows;              // chroma rows
  bool crosswise;
  // The second image's byte that meets byte k of the first image's row.
  std::int64_t Source(std::int64_t k) const { return x + (crosswise ? (k ^ 1) : k); }
};
InterleavedOverlap InterleavedChromaOverlap(const ZMOSIMAGE& first, const ZMOSRECT* first_rect,
                                            const ZMOSRECT* second_rect);

// A private blend table of `w` entries from `mem` (null when it cannot be had).
std::int32_t* AllocTable(std::int32_t w, MHandle mem);

// Byte offsets of the four bytes of a packed 4:2:2 pixel pair of the second image that
// meet bytes 0-3 of the first image's pair: the chroma bytes change places when the two
// overlaps start on pixels of different parity.
struct PairOrder {
  int byte[4];
};
constexpr PairOrder kSameOrder{{0, 1, 2, 3}};
constexpr PairOrder kSwappedChroma{{0, 3, 2, 1}};

// Argument checks of both blends: images, rectangles and horizontal extents (tops and
// bottoms are not checked; rows outside the images are skipped), one format for both.
bool ValidBlendArguments(const ZMOSIMAGE* first, const ZMOSRECT* r1, const ZMOSIMAGE* second,
                         const ZMOSRECT* r2);

// The exported chroma steps size their tables and loops by the first rectangle: it must
// lie across the first image (a null rectangle is the whole image).
bool StepRectFits(const ZMOSIMAGE& first, const ZMOSRECT* r1);

// Work memory of one blend: the seam path and the difference map. `Finish` gives both
// back and releases the blend table on success only (`Free` only gives them back); `Abandon` is for
// the endings that free nothing (failed allocation, unknown format, failed chroma step of a
// top-to-bottom blend): the blocks stay in a work buffer like the table stays installed, and only
// the process heap gets them back, where they would leak for good.
class BlendWork {
 public:
  // kBothOrNone takes neither block when either size is out of range; kEachAlone takes each
  // block whose own size is in range (the blend image's way).
  enum Sizing { kBothOrNone, kEachAlone };
  BlendWork(MHandle mem, std::int32_t path_entries, std::int64_t map_bytes,
            Sizing sizing = kBothOrNone);
  bool ok() const { return path != nullptr && map != nullptr; }
  std::int32_t Finish(std::int32_t res);
  std::int32_t Abandon(std::int32_t res);
  // Gives both blocks back and leaves the blend table alone.
  std::int32_t Free(std::int32_t res);

  std::int32_t* path = nullptr;
  std::uint8_t* map = nullptr;

 private:
  MHandle mem_;
};

// Minimum-cost seam through a difference map of `across` x `along` samples: one position
// per step along the seam, each within [m, across-m-1], m = half the table width.
// `diff(pos, step)` reads the map. Returns 0 or 4; `path` is left alone when there is
// nothing to search.
template <typename Diff>
std::int32_t SeamSearch(std::int32_t* path, std::int32_t across, std::int32_t along, Diff diff,
                        MHandle mem);

}  // namespace lumivex::stitch

#include "src/stitch/seam_search_inl.h"

#endif  // LUMIVEX_SRC_STITCH_BLEND_INTERNAL_H_
