/* Platform layer: a memory manager over a caller's buffer, memory helpers and logging. */
#ifndef LUMIVEX_PLATFORM_H_
#define LUMIVEX_PLATFORM_H_

#include <stddef.h>
#include <stdint.h>

#include "lumivex/export.h"

LUMIVEX_EXTERN_C_BEGIN

/* Memory-manager handle. A null handle means the process heap. */
typedef void* MHandle;

/* Lays a memory manager over `pBuffer` (all bookkeeping stays inside it). Returns null
 * for a null buffer or one too small to hold the manager and one block. The buffer
 * must outlive the handle; nothing needs to be destroyed. */
LUMIVEX_API MHandle MMemMgrCreate(void* pBuffer, int32_t lSize);

/* Returns a block of at least `lSize` bytes aligned to 16, or null when the request
 * cannot be met (negative size, or no free block large enough). */
LUMIVEX_API void* MMemAlloc(MHandle hMemMgr, int32_t lSize);

/* Gives a block back. Null pointers, pointers the manager does not own and blocks
 * already free are ignored. */
LUMIVEX_API void MMemFree(MHandle hMemMgr, void* p);

LUMIVEX_API void MMemSet(void* p, int32_t lValue, int32_t lSize);

/* Copies `lSize` bytes; overlapping ranges are allowed. */
LUMIVEX_API void MMemCpy(void* pDst, const void* pSrc, int32_t lSize);

/* printf-style log line: Android's log on Android, stderr elsewhere, or the sink below. */
LUMIVEX_API void _LOG2FILE(const char* szFormat, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

/* Redirects log lines (without their trailing newline) to `pfnSink`; null restores the
 * default destination. */
typedef void (*MLogSink)(void* pUser, const char* szLine);
LUMIVEX_API void MLogSetSink(MLogSink pfnSink, void* pUser);

/* Turns the library's log lines off (0) or on (any other value, the default) for the
 * whole process. Off, a line costs one load: nothing is formatted. */
LUMIVEX_API void MLogSetEnabled(int32_t bEnabled);

/* Platform bitmaps: a pixel format, the size, three pitches and three plane pointers. */
enum {
  MPAF_GRAY8 = 0x64000000,
  MPAF_RGB16_R5G6B5 = 0x15000454,
  MPAF_RGB32_A8R8G8B8 = 0x37000777,
  MPAF_I420 = 0x50000811,
  MPAF_NV21_WRAP = 0x70000002,  /* planes: luma, U (one byte into the VU pairs), V */
  MPAF_NV21_RESULT = 0x70001002 /* luma rows, then one VU row per luma row */
};

typedef struct MBITMAP {
  uint32_t dwPixelArrayFormat;
  int32_t lWidth;
  int32_t lHeight;
  int32_t lPitch[3];
  uint8_t* pPlane[3];
} MBITMAP;

/* Allocates pixels (one block, from the process heap) for the format and size already in
 * *pBitmap and fills its pitches and planes. Returns 0, 2, 3 or 4. */
LUMIVEX_API int32_t MBitmapAlloc(MBITMAP* pBitmap);
LUMIVEX_API void MBitmapFree(MBITMAP* pBitmap);
/* A new bitmap record with its pixels; null when it cannot be made. */
LUMIVEX_API MBITMAP* MdBitmapAlloc(int32_t lWidth, int32_t lHeight, uint32_t dwFormat);
LUMIVEX_API void MdBitmapFree(MBITMAP* pBitmap);
/* Colour conversion between bitmaps of one size: I420, NV21 (wrap or result) to
 * RGB 565, ARGB 8888 or grey (BT.601, full range). Returns 0, 2 or 3. */
LUMIVEX_API int32_t ConvertCS(const MBITMAP* pSrc, MBITMAP* pDst);

LUMIVEX_EXTERN_C_END

#endif /* LUMIVEX_PLATFORM_H_ */
