#include <cstring>

#include "lumivex/engine.h"

namespace {

void PutText(char (&field)[50], const char* text) {
  std::memset(field, 0, sizeof(field));
  std::strncpy(field, text, sizeof(field) - 1);
}

}  // namespace

extern "C" int32_t ZMOS_GetVersion(ZMOSVERSION* pVersion) {
  if (pVersion == nullptr) return ZMOS_ERR_INVALID_PARAM;
  pVersion->lMajor = 2;
  pVersion->lMinor = 3;
  pVersion->lBuild = 12019;
  pVersion->lRevision = 61;
  PutText(pVersion->szVersion, "Velqor_Lumivex_2.3.12019.61");
  PutText(pVersion->szDate, "06/20/2013");
  PutText(pVersion->szCopyright, "Copyright (c) 2013 Velqor. All rights reserved.");
  return ZMOS_OK;
}
