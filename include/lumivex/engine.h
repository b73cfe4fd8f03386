/* Engine interface: the top-level capture operations and the version record. */
#ifndef LUMIVEX_ENGINE_H_
#define LUMIVEX_ENGINE_H_

#include <stdint.h>

#include "lumivex/export.h"
#include "lumivex/image.h"

LUMIVEX_EXTERN_C_BEGIN

typedef struct ZMOSVERSION {
  int32_t lMajor;
  int32_t lMinor;
  int32_t lBuild;
  int32_t lRevision;
  char szVersion[50];
  char szDate[50];
  char szCopyright[50];
} ZMOSVERSION;

LUMIVEX_API int32_t ZMOS_GetVersion(ZMOSVERSION* pVersion);

LUMIVEX_EXTERN_C_END

#endif /* LUMIVEX_ENGINE_H_ */
