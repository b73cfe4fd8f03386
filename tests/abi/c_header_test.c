/* The public headers compile as C and the records have the ABI's layout. */
#include <stddef.h>
#include <string.h>

#include "lumivex/lumivex.h"

int lumivex_c_smoke(void) {
  unsigned char luma[16 * 4];
  unsigned char chroma[16 * 2];
  uint8_t* planes[2];
  int32_t pitches[2] = {16, 16};
  ZMOSIMAGE img;
  ZMOSIMAGE* clone = NULL;
  ZMOSVERSION version;
  int failures = 0;

  planes[0] = luma;
  planes[1] = chroma;
  memset(luma, 1, sizeof(luma));
  memset(chroma, 2, sizeof(chroma));
  failures += ZMOSSetImage_AOD(&img, 16, 4, ZMOS_FORMAT_NV21, planes, pitches) != ZMOS_OK;
  failures += ZMOSCloneImage_AOD(&clone, &img, NULL) != ZMOS_OK;
  if (clone != NULL) failures += clone->pPlane[1][5] != 2;
  ZMOSFreeImage_AOD(&clone, NULL);
  failures += ZMOS_GetVersion(&version) != ZMOS_OK;
  failures += offsetof(ZMOSIMAGE, pPlane) != (sizeof(void*) == 4 ? 12 : 16);
  failures += sizeof(ZMOSRECT) != 16;
  return failures;
}
