/* A whole capture from raw NV21 frames, as a camera app drives the engine:
 *
 *   stitch_raw WIDTH HEIGHT FRAMES.nv21 PANORAMA.nv21
 *
 * reads frames of WIDTH x HEIGHT NV21 one after another, feeds them to the engine until the
 * sweep is complete (or the frames or the engine end it), and writes the panorama as raw
 * NV21 (its size is printed). Plain C against the installed lumivex. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <lumivex/lumivex.h>

int main(int argc, char** argv) {
  if (argc != 5) {
    fprintf(stderr, "usage: %s WIDTH HEIGHT FRAMES.nv21 PANORAMA.nv21\n", argv[0]);
    return 1;
  }
  const int32_t w = atoi(argv[1]), h = atoi(argv[2]);
  if (w < 96 || h < 32 || (w & 1) || (h & 1)) {
    fprintf(stderr, "frames must be even-sized, at least 96 x 32\n");
    return 1;
  }
  FILE* in = fopen(argv[3], "rb");
  if (in == NULL) {
    perror(argv[3]);
    return 1;
  }
  const size_t frame_bytes = (size_t)w * h * 3 / 2;
  uint8_t* frame_data = malloc(frame_bytes);
  int32_t work_size = 0;
  if (ZMOS_GetWorkBufferSize(w, h, 180, &work_size) != ZMOS_OK) {
    fprintf(stderr, "the engine cannot run %d x %d frames\n", w, h);
    return 1;
  }
  void* work = malloc((size_t)work_size);
  if (frame_data == NULL || work == NULL) return 1;

  ZMOSINITPARAM param = {work, work_size, 180, w, h, w, h};
  ZMOSSWEEPSTITCHER* engine = NULL;
  int32_t res = ZMOS_Init(&param, &engine);
  if (res != ZMOS_OK) {
    fprintf(stderr, "ZMOS_Init failed: %d\n", res);
    return 2;
  }
  ZMOS_SetProfile(engine, ZMOS_PROFILE_QUALITY);

  ZMOSIMAGE frame;
  memset(&frame, 0, sizeof(frame));
  frame.dwFormat = ZMOS_FORMAT_NV21;
  frame.lWidth = w;
  frame.lHeight = h;
  frame.pPlane[0] = frame_data;
  frame.pPlane[1] = frame_data + (size_t)w * h;
  frame.lPitch[0] = frame.lPitch[1] = w;
  ZMOSIMAGE preview; /* the preview's format must be set; the engine fills the rest */
  memset(&preview, 0, sizeof(preview));
  preview.dwFormat = ZMOS_FORMAT_NV21;

  int32_t kept = 0, angle = 0, frames = 0;
  while (angle < 180 && fread(frame_data, 1, frame_bytes, in) == frame_bytes) {
    int32_t offset[2], flags[4], rect[4];
    ++frames;
    res = ZMOS_SelectFrames(engine, &frame, &frame, offset, &kept, flags, &angle);
    if (res != ZMOS_OK) break; /* too fast, gone wrong or too little texture: stitch now */
    ZMOS_UpdateUIImage(engine, &frame, &preview, 6, rect);
  }
  fclose(in);

  ZMOSIMAGE pano;
  memset(&pano, 0, sizeof(pano));
  res = ZMOS_Stitch(engine, &pano, NULL);
  int status = 0;
  FILE* out = res == ZMOS_OK ? fopen(argv[4], "wb") : NULL;
  if (out == NULL) {
    fprintf(stderr, "no panorama (%d)\n", res);
    status = 2;
  } else {
    for (int32_t y = 0; y < pano.lHeight; ++y)
      fwrite(pano.pPlane[0] + (size_t)y * pano.lPitch[0], 1, (size_t)pano.lWidth, out);
    for (int32_t y = 0; y < pano.lHeight / 2; ++y)
      fwrite(pano.pPlane[1] + (size_t)y * pano.lPitch[1], 1, (size_t)pano.lWidth, out);
    fclose(out);
    printf("%d frames, %d kept, angle %d: panorama %d x %d\n", frames, kept, angle, pano.lWidth,
           pano.lHeight);
  }
  ZMOS_UnInit(&engine); /* the panorama's pixels live in the work buffer until here */
  free(work);
  free(frame_data);
  return status;
}
