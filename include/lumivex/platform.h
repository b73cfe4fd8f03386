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

LUMIVEX_EXTERN_C_END

#endif /* LUMIVEX_PLATFORM_H_ */
