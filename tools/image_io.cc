#include "tools/image_io.h"

#include <jpeglib.h>
#include <png.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace lumivex::tools {
namespace {

struct FileCloser {
  void operator()(std::FILE* f) const {
    if (f != nullptr) std::fclose(f);
  }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::uint8_t Clamp(int v) {
  return static_cast<std::uint8_t>(std::clamp(v, 0, 255));
}

// libjpeg reports fatal errors through longjmp; the message is kept for the caller.
struct JpegError {
  jpeg_error_mgr mgr;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

void OnJpegError(j_common_ptr info) {
  auto* err = reinterpret_cast<JpegError*>(info->err);
  info->err->format_message(info, err->message);
  std::longjmp(err->jump, 1);
}

// Warnings about damaged data are not printed: a picture either decodes or is refused
// with one line of our own.
void OnJpegMessage(j_common_ptr, int) {}

// libpng's errors keep their message and jump back; its warnings stay quiet.
struct PngError {
  std::jmp_buf jump;
  char message[160];
};

void OnPngError(png_structp png, png_const_charp message) {
  auto* err = static_cast<PngError*>(png_get_error_ptr(png));
  std::snprintf(err->message, sizeof(err->message), "%s", message);
  std::longjmp(err->jump, 1);
}

void OnPngWarning(png_structp, png_const_charp) {}

// A picture's header is checked before anything of its size is allocated.
bool PictureSizeOk(std::uint64_t w, std::uint64_t h, std::string* error) {
  if (w < 1 || h < 1 || w > kMaxPictureSide || h > kMaxPictureSide) {
    *error = "picture size " + std::to_string(w) + "x" + std::to_string(h) +
             " is not supported (at most " + std::to_string(kMaxPictureSide) + " a side)";
    return false;
  }
  return true;
}

bool ReadJpeg(std::FILE* f, Rgb* out, std::string* error) {
  jpeg_decompress_struct info{};
  JpegError err{};
  info.err = jpeg_std_error(&err.mgr);
  err.mgr.error_exit = OnJpegError;
  err.mgr.emit_message = OnJpegMessage;
  if (setjmp(err.jump)) {
    jpeg_destroy_decompress(&info);
    *error = std::string("bad JPEG: ") + err.message;
    return false;
  }
  jpeg_create_decompress(&info);
  jpeg_stdio_src(&info, f);
  jpeg_read_header(&info, TRUE);
  if (!PictureSizeOk(info.image_width, info.image_height, error)) {
    jpeg_destroy_decompress(&info);
    return false;
  }
  // Progressive pictures keep whole-image coefficient buffers: bound them too.
  info.mem->max_memory_to_use = 512L << 20;
  info.out_color_space = JCS_RGB;
  jpeg_start_decompress(&info);
  out->width = static_cast<int>(info.output_width);
  out->height = static_cast<int>(info.output_height);
  out->pixels.resize(static_cast<std::size_t>(out->width) * out->height * 3);
  while (info.output_scanline < info.output_height) {
    JSAMPROW row =
        out->pixels.data() + static_cast<std::size_t>(info.output_scanline) * out->width * 3;
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  return true;
}

// `rows` belongs to the caller: libpng leaves this function by longjmp, which would skip
// the destructor of anything owned here.
bool ReadPng(std::FILE* f, Rgb* out, std::vector<png_bytep>& rows, std::string* error) {
  PngError err{};
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &err, OnPngError, OnPngWarning);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  if (png == nullptr || info == nullptr) {
    png_destroy_read_struct(&png, &info, nullptr);
    *error = "cannot start the PNG decoder";
    return false;
  }
  if (setjmp(err.jump)) {
    png_destroy_read_struct(&png, &info, nullptr);
    *error = std::string("bad PNG: ") + err.message;
    return false;
  }
  png_init_io(png, f);
  png_read_info(png, info);
  if (!PictureSizeOk(png_get_image_width(png, info), png_get_image_height(png, info), error)) {
    png_destroy_read_struct(&png, &info, nullptr);
    return false;
  }
  // Everything to 8-bit RGB.
  png_set_strip_16(png);
  png_set_strip_alpha(png);
  png_set_packing(png);
  png_set_palette_to_rgb(png);
  png_set_expand_gray_1_2_4_to_8(png);
  png_set_gray_to_rgb(png);
  png_read_update_info(png, info);
  out->width = static_cast<int>(png_get_image_width(png, info));
  out->height = static_cast<int>(png_get_image_height(png, info));
  if (png_get_rowbytes(png, info) != static_cast<std::size_t>(out->width) * 3) {
    png_destroy_read_struct(&png, &info, nullptr);
    *error = "unsupported PNG layout";
    return false;
  }
  out->pixels.resize(static_cast<std::size_t>(out->width) * out->height * 3);
  rows.resize(out->height);
  for (int y = 0; y < out->height; ++y)
    rows[y] = out->pixels.data() + static_cast<std::size_t>(y) * out->width * 3;
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return true;
}

}  // namespace

bool EncodeJpeg(const Rgb& rgb, int quality, std::vector<std::uint8_t>* out, std::string* error) {
  jpeg_compress_struct info{};
  JpegError err{};
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  info.err = jpeg_std_error(&err.mgr);
  err.mgr.error_exit = OnJpegError;
  if (setjmp(err.jump)) {
    jpeg_destroy_compress(&info);
    std::free(buffer);
    *error = std::string("JPEG encoder: ") + err.message;
    return false;
  }
  jpeg_create_compress(&info);
  jpeg_mem_dest(&info, &buffer, &size);
  info.image_width = static_cast<JDIMENSION>(rgb.width);
  info.image_height = static_cast<JDIMENSION>(rgb.height);
  info.input_components = 3;
  info.in_color_space = JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, quality, TRUE);
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    auto* row = const_cast<JSAMPROW>(rgb.pixels.data() +
                                     static_cast<std::size_t>(info.next_scanline) * rgb.width * 3);
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  out->assign(buffer, buffer + size);
  std::free(buffer);
  return true;
}

namespace {

bool WriteJpeg(std::FILE* f, const Rgb& rgb, int quality, std::string* error) {
  std::vector<std::uint8_t> bytes;
  if (!EncodeJpeg(rgb, quality, &bytes, error)) return false;
  if (std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) {
    *error = std::string("cannot write: ") + std::strerror(errno);
    return false;
  }
  return true;
}

bool WritePng(std::FILE* f, const Rgb& rgb, std::string* error) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  if (png == nullptr || info == nullptr) {
    png_destroy_write_struct(&png, &info);
    *error = "cannot start the PNG encoder";
    return false;
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    *error = "PNG encoder failed";
    return false;
  }
  png_init_io(png, f);
  png_set_IHDR(png, info, static_cast<png_uint_32>(rgb.width), static_cast<png_uint_32>(rgb.height),
               8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < rgb.height; ++y)
    png_write_row(png, const_cast<png_bytep>(rgb.pixels.data() +
                                             static_cast<std::size_t>(y) * rgb.width * 3));
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return true;
}

}  // namespace

Rgb Shrink(const Rgb& rgb, int side) {
  const int f = std::max(1, (std::max(rgb.width, rgb.height) + side - 1) / std::max(side, 1));
  if (f == 1) return rgb;
  Rgb out;
  out.width = rgb.width / f;
  out.height = rgb.height / f;
  out.pixels.resize(static_cast<std::size_t>(out.width) * out.height * 3);
  for (int y = 0; y < out.height; ++y)
    for (int x = 0; x < out.width; ++x)
      for (int c = 0; c < 3; ++c) {
        int sum = 0;
        for (int dy = 0; dy < f; ++dy)
          for (int dx = 0; dx < f; ++dx)
            sum +=
                rgb.pixels[(static_cast<std::size_t>(y * f + dy) * rgb.width + x * f + dx) * 3 + c];
        out.pixels[(static_cast<std::size_t>(y) * out.width + x) * 3 + c] =
            static_cast<std::uint8_t>(sum / (f * f));
      }
  return out;
}

bool EndsWith(const std::string& s, const std::string& suffix) {
  if (s.size() < suffix.size()) return false;
  return std::equal(suffix.rbegin(), suffix.rend(), s.rbegin(),
                    [](char a, char b) { return std::tolower(a) == std::tolower(b); });
}

Yuv420::Yuv420(int width, int height, std::uint32_t format)
    : width_(width),
      height_(height),
      format_(format),
      data_(static_cast<std::size_t>(width) * height +
                2 * static_cast<std::size_t>(width / 2) * (height / 2),
            128) {}

ZMOSIMAGE Yuv420::Image() {
  ZMOSIMAGE img{format_, width_, height_, {}, {}};
  img.pPlane[0] = y();
  img.lPitch[0] = width_;
  img.pPlane[1] = chroma();
  if (format_ == ZMOS_FORMAT_I420) {
    img.lPitch[1] = img.lPitch[2] = width_ / 2;
    img.pPlane[2] = chroma() + static_cast<std::size_t>(width_ / 2) * (height_ / 2);
  } else {
    img.lPitch[1] = width_;
  }
  return img;
}

bool ReadImage(const std::string& path, Rgb* out, std::string* error) {
  File f(std::fopen(path.c_str(), "rb"));
  if (!f) {
    *error = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  unsigned char magic[8] = {};
  const std::size_t n = std::fread(magic, 1, sizeof(magic), f.get());
  std::rewind(f.get());
  bool ok = false;
  if (n >= 3 && magic[0] == 0xFF && magic[1] == 0xD8 && magic[2] == 0xFF) {
    ok = ReadJpeg(f.get(), out, error);
  } else if (n == 8 && png_sig_cmp(magic, 0, 8) == 0) {
    std::vector<png_bytep> rows;
    ok = ReadPng(f.get(), out, rows, error);
  } else {
    *error = "not a JPEG or PNG file";
  }
  if (!ok) *error = path + ": " + *error;
  return ok;
}

bool WriteImage(const std::string& path, const Rgb& rgb, std::string* error, int quality) {
  const bool png = EndsWith(path, ".png");
  if (!png && !EndsWith(path, ".jpg") && !EndsWith(path, ".jpeg")) {
    *error = path + ": the output must end in .jpg, .jpeg or .png";
    return false;
  }
  if (rgb.width < 1 || rgb.height < 1) {
    *error = path + ": nothing to write (empty image)";
    return false;
  }
  File f(std::fopen(path.c_str(), "wb"));
  if (!f) {
    *error = "cannot write " + path + ": " + std::strerror(errno);
    return false;
  }
  const bool ok = png ? WritePng(f.get(), rgb, error) : WriteJpeg(f.get(), rgb, quality, error);
  if (ok && std::fflush(f.get()) != 0) {
    *error = "cannot write " + path + ": " + std::strerror(errno);
    return false;
  }
  return ok;
}

Yuv420 RgbToYuv420(const Rgb& rgb, std::uint32_t format) {
  const int w = rgb.width & ~1, h = rgb.height & ~1;
  Yuv420 out(w, h, format);
  auto px = [&](int x, int y) {
    return rgb.pixels.data() + (static_cast<std::size_t>(y) * rgb.width + x) * 3;
  };
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const std::uint8_t* p = px(x, y);
      // Y = 0.299 R + 0.587 G + 0.114 B, in Q16.
      out.y()[static_cast<std::size_t>(y) * w + x] =
          Clamp((19595 * p[0] + 38470 * p[1] + 7471 * p[2] + 32768) >> 16);
    }
  }
  for (int y = 0; y < h / 2; ++y) {
    for (int x = 0; x < w / 2; ++x) {
      int r = 0, g = 0, b = 0;
      for (int k = 0; k < 4; ++k) {
        const std::uint8_t* p = px(2 * x + (k & 1), 2 * y + (k >> 1));
        r += p[0];
        g += p[1];
        b += p[2];
      }
      const int u = Clamp(((-11059 * r - 21709 * g + 32768 * b + 131072) >> 18) + 128);
      const int v = Clamp(((32768 * r - 27439 * g - 5329 * b + 131072) >> 18) + 128);
      if (format == ZMOS_FORMAT_I420) {
        out.chroma()[static_cast<std::size_t>(y) * (w / 2) + x] = static_cast<std::uint8_t>(u);
        out.chroma()[static_cast<std::size_t>(w / 2) * (h / 2) +
                     static_cast<std::size_t>(y) * (w / 2) + x] = static_cast<std::uint8_t>(v);
      } else {
        std::uint8_t* pair = out.chroma() + static_cast<std::size_t>(y) * w + 2 * x;
        pair[0] = static_cast<std::uint8_t>(format == ZMOS_FORMAT_NV21 ? v : u);
        pair[1] = static_cast<std::uint8_t>(format == ZMOS_FORMAT_NV21 ? u : v);
      }
    }
  }
  return out;
}

Rgb ImageToRgb(const ZMOSIMAGE& img) {
  Rgb out;
  out.width = std::max(img.lWidth, 0);
  out.height = std::max(img.lHeight, 0);
  out.pixels.resize(static_cast<std::size_t>(out.width) * out.height * 3);
  const std::uint32_t f = img.dwFormat;
  for (int y = 0; y < out.height; ++y) {
    for (int x = 0; x < out.width; ++x) {
      int yy = 0, u = 128, v = 128;
      if (f == 0x501) {
        const std::uint8_t* row = img.pPlane[0] + static_cast<std::ptrdiff_t>(y) * img.lPitch[0];
        yy = row[2 * x];
        u = row[4 * (x / 2) + 1];
        v = row[4 * (x / 2) + 3];
      } else {
        yy = img.pPlane[0][static_cast<std::ptrdiff_t>(y) * img.lPitch[0] + x];
        if (f == ZMOS_FORMAT_I420 || f == 0x605) {
          u = img.pPlane[1][static_cast<std::ptrdiff_t>(y / 2) * img.lPitch[1] + x / 2];
          v = img.pPlane[2][static_cast<std::ptrdiff_t>(y / 2) * img.lPitch[2] + x / 2];
        } else if (f == 0x801 || f == 0x802) {
          const std::uint8_t* pair =
              img.pPlane[1] + static_cast<std::ptrdiff_t>(y / 2) * img.lPitch[1] + 2 * (x / 2);
          u = f == 0x802 ? pair[1] : pair[0];
          v = f == 0x802 ? pair[0] : pair[1];
        }
      }
      // R = Y + 1.402 V', G = Y - 0.344 U' - 0.714 V', B = Y + 1.772 U' (Q16).
      const int cu = u - 128, cv = v - 128;
      std::uint8_t* p = out.pixels.data() + (static_cast<std::size_t>(y) * out.width + x) * 3;
      p[0] = Clamp(yy + ((91881 * cv + 32768) >> 16));
      p[1] = Clamp(yy - ((22554 * cu + 46802 * cv + 32768) >> 16));
      p[2] = Clamp(yy + ((116130 * cu + 32768) >> 16));
    }
  }
  return out;
}

}  // namespace lumivex::tools
