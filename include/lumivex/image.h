/* Image objects: the planar image record, rectangles, result codes, image lists,
 * allocation, region copies, clones and crops. */
#ifndef LUMIVEX_IMAGE_H_
#define LUMIVEX_IMAGE_H_

#include <stdint.h>

#include "lumivex/export.h"
#include "lumivex/platform.h"

LUMIVEX_EXTERN_C_BEGIN

/* Result codes shared by every ZMOS function. */
enum {
  ZMOS_OK = 0,
  ZMOS_ERR_INVALID_PARAM = 2, /* null pointer, bad size, rectangle or state */
  ZMOS_ERR_UNSUPPORTED_FORMAT = 3,
  ZMOS_ERR_NO_MEMORY = 4,
  ZMOS_ERR_NO_TEXTURE = 5,       /* too little texture to match; blending: bad argument */
  ZMOS_ERR_SWEEP_WRONG = 0x7001, /* backward motion, drift or wrong axis */
  ZMOS_ERR_TOO_FAST = 0x7003
};

/* Format codes: the high byte is the family, the low byte the member. */
enum {
  /* Packed, 3 or 4 bytes a pixel, one plane. */
  ZMOS_FORMAT_PACKED24_301 = 0x301,
  ZMOS_FORMAT_PACKED32_302 = 0x302,
  ZMOS_FORMAT_PACKED24_303 = 0x303,
  ZMOS_FORMAT_PACKED32_304 = 0x304,
  ZMOS_FORMAT_PACKED24_401 = 0x401,
  ZMOS_FORMAT_PACKED24_402 = 0x402,
  ZMOS_FORMAT_PACKED24_403 = 0x403,
  ZMOS_FORMAT_PACKED24_404 = 0x404,
  /* Packed 4:2:2, 2 bytes a pixel. 0x501/0x502 carry chroma in bytes 1 and 3 of each
   * pixel pair, 0x503/0x504 in bytes 0 and 2. */
  ZMOS_FORMAT_YUV422_501 = 0x501,
  ZMOS_FORMAT_YUV422_502 = 0x502,
  ZMOS_FORMAT_YUV422_503 = 0x503,
  ZMOS_FORMAT_YUV422_504 = 0x504,
  ZMOS_FORMAT_YUV422_505 = 0x505,
  ZMOS_FORMAT_YUV422_506 = 0x506,
  ZMOS_FORMAT_YUV422_507 = 0x507,
  ZMOS_FORMAT_YUV422_508 = 0x508,
  /* Planar, three planes; each pair of codes behaves identically. */
  ZMOS_FORMAT_I420 = 0x601, /* chroma half width, half height */
  ZMOS_FORMAT_PLANAR420_605 = 0x605,
  ZMOS_FORMAT_PLANAR422H_602 = 0x602, /* chroma full width, half height */
  ZMOS_FORMAT_PLANAR422H_606 = 0x606,
  ZMOS_FORMAT_PLANAR422V_603 = 0x603, /* chroma half width, full height */
  ZMOS_FORMAT_PLANAR422V_607 = 0x607,
  ZMOS_FORMAT_PLANAR444_604 = 0x604, /* chroma full size */
  ZMOS_FORMAT_PLANAR444_608 = 0x608,
  /* One 8-bit luminance plane. */
  ZMOS_FORMAT_GREY = 0x701,
  /* Semi-planar: luminance plane and one interleaved chroma plane. */
  ZMOS_FORMAT_SEMIPLANAR420_801 = 0x801,
  ZMOS_FORMAT_NV21 = 0x802,
  ZMOS_FORMAT_SEMIPLANAR422_803 = 0x803
};

/* Planar image record. Only planes 0 to 2 are used. */
typedef struct ZMOSIMAGE {
  uint32_t dwFormat;
  int32_t lWidth;
  int32_t lHeight;
  uint8_t* pPlane[4];
  int32_t lPitch[4];
} ZMOSIMAGE;

/* Right and bottom are exclusive. */
typedef struct ZMOSRECT {
  int32_t lLeft;
  int32_t lTop;
  int32_t lRight;
  int32_t lBottom;
} ZMOSRECT;

/* Doubly linked list of owned images with two caller tags each. */
typedef struct ZMOSIMAGENODE {
  ZMOSIMAGE* pImage;
  int32_t lTag1;
  int32_t lTag2;
  struct ZMOSIMAGENODE* pNext;
  struct ZMOSIMAGENODE* pPrev;
} ZMOSIMAGENODE;

typedef struct ZMOSIMAGELINK {
  int32_t lCount;
  ZMOSIMAGENODE* pHead;
  ZMOSIMAGENODE* pTail;
} ZMOSIMAGELINK;

/* Allocation and lifetime. A created image owns one 32-byte aligned block that holds
 * all its planes; row pitches are multiples of 16. Pixels are not cleared. */
LUMIVEX_API int32_t ZMOSCreateImage_AOD(ZMOSIMAGE** ppImage, int32_t lWidth, int32_t lHeight,
                                        uint32_t dwFormat, MHandle hMemMgr);
/* Wraps caller planes; copies as many plane pointers and pitches as the format uses. */
LUMIVEX_API int32_t ZMOSSetImage_AOD(ZMOSIMAGE* pImage, int32_t lWidth, int32_t lHeight,
                                     uint32_t dwFormat, uint8_t* const* ppPlane,
                                     const int32_t* plPitch);
LUMIVEX_API void ZMOSFreeImage_AOD(ZMOSIMAGE** ppImage, MHandle hMemMgr);
LUMIVEX_API void ZMOSFreeImageLink_AOD(ZMOSIMAGELINK* pLink, MHandle hMemMgr);

/* 32-byte aligned block; the word(s) below it keep the address to give back. */
LUMIVEX_API void* ibAllocAlign(MHandle hMemMgr, int32_t lSize);
LUMIVEX_API void ibFreeAlign(MHandle hMemMgr, void** ppBlock);

/* Region copies. A null rectangle means the whole image. */
LUMIVEX_API int32_t ZMOSCopyImageROI_AOD(ZMOSIMAGE* pDst, const ZMOSRECT* pDstRect,
                                         const ZMOSIMAGE* pSrc, const ZMOSRECT* pSrcRect);
/* As above, but keeps chroma components in phase when a rectangle starts on an odd
 * column or row. */
LUMIVEX_API int32_t ZMOSCopyImageROIOddRect_AOD(ZMOSIMAGE* pDst, const ZMOSRECT* pDstRect,
                                                const ZMOSIMAGE* pSrc, const ZMOSRECT* pSrcRect);
LUMIVEX_API int32_t ZMOSCopyImage_AOD(ZMOSIMAGE* pDst, const ZMOSIMAGE* pSrc);

LUMIVEX_API int32_t ZMOSCloneImage_AOD(ZMOSIMAGE** ppImage, const ZMOSIMAGE* pSrc, MHandle hMemMgr);
LUMIVEX_API int32_t ZMOSCloneImageROI_AOD(ZMOSIMAGE** ppImage, const ZMOSIMAGE* pSrc,
                                          const ZMOSRECT* pRect, MHandle hMemMgr);

/* In-place crops: planes keep their start addresses, or are packed one after another
 * from plane 0. */
LUMIVEX_API int32_t ZMOSCropImage_AOD(ZMOSIMAGE* pImage, const ZMOSRECT* pRect);
LUMIVEX_API int32_t ZMOSCropImageContinueBuffer_AOD(ZMOSIMAGE* pImage, const ZMOSRECT* pRect);

/* Append a node holding a copy of the image (or of a rectangle of it). */
LUMIVEX_API int32_t ZMOSInsertImageToLink_AOD(ZMOSIMAGELINK* pLink, const ZMOSIMAGE* pImage,
                                              int32_t lTag1, int32_t lTag2, MHandle hMemMgr);
LUMIVEX_API int32_t ZMOSInsertImageToLinkROI_AOD(ZMOSIMAGELINK* pLink, const ZMOSIMAGE* pImage,
                                                 const ZMOSRECT* pRect, int32_t lTag1,
                                                 int32_t lTag2, MHandle hMemMgr);

/* Image stack: copies of rectangles of frames with two tags and three values each, handed
 * back in insertion order (first in, first out). */
typedef struct ZMOSIMAGESTACK ZMOSIMAGESTACK;

LUMIVEX_API int32_t ZMOSCreateImageStack_SIS(ZMOSIMAGESTACK** phStack, int32_t lCapacity,
                                             MHandle hMemMgr);
/* Stores a copy of pRect of the image (null: the whole image). 2 when full. */
LUMIVEX_API int32_t ZMOSAddImageIntoStack_SIS(ZMOSIMAGESTACK* hStack, const ZMOSIMAGE* pImage,
                                              int32_t lTag1, int32_t lTag2, int32_t lValue1,
                                              int32_t lValue2, int32_t lValue3,
                                              const ZMOSRECT* pRect);
/* The next entry; the image stays the stack's. *plLast is set to 1 on the last entry and
 * left alone otherwise. 2 when there is none. */
LUMIVEX_API int32_t ZMOSGetImageFromStack_SIS(ZMOSIMAGESTACK* hStack, ZMOSIMAGE** ppImage,
                                              int32_t* plTag1, int32_t* plTag2, int32_t* plValue1,
                                              int32_t* plValue2, int32_t* plValue3,
                                              int32_t* plLast);
LUMIVEX_API void ZMOSReleaseImageStack_SIS(ZMOSIMAGESTACK** phStack);

LUMIVEX_EXTERN_C_END

#endif /* LUMIVEX_IMAGE_H_ */
