/* lumivex: sweep-panorama engine. Umbrella header for the whole C ABI. */
#ifndef LUMIVEX_LUMIVEX_H_
#define LUMIVEX_LUMIVEX_H_

#include "lumivex/engine.h"
#include "lumivex/image.h"
#include "lumivex/platform.h"
#include "lumivex/select.h"
#include "lumivex/stitch.h"
#include "lumivex/track.h"
#include "lumivex/version.h"

#endif /* LUMIVEX_LUMIVEX_H_ */
