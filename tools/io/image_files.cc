#include "tools/io/image_files.h"

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

bool EncodeJpeg(const Rgb& rgb, int quality, std::vector<std::uint8_t>* out, std::string* error,
                const WriteProgress& progress) {
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
    if (progress && (info.next_scanline & 63) == 0)
      progress(static_cast<double>(info.next_scanline) / info.image_height);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  out->assign(buffer, buffer + size);
  std::free(buffer);
  return true;
}

namespace {

bool WriteJpeg(std::FILE* f, const Rgb& rgb, int quality, std::string* error,
               const WriteProgress& progress) {
  std::vector<std::uint8_t> bytes;
  if (!EncodeJpeg(rgb, quality, &bytes, error, progress)) return false;
  if (std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) {
    *error = std::string("cannot write: ") + std::strerror(errno);
    return false;
  }
  return true;
}

bool WritePng(std::FILE* f, const Rgb& rgb, std::string* error, const WriteProgress& progress) {
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
  for (int y = 0; y < rgb.height; ++y) {
    png_write_row(png, const_cast<png_bytep>(rgb.pixels.data() +
                                             static_cast<std::size_t>(y) * rgb.width * 3));
    if (progress && (y & 63) == 0) progress(static_cast<double>(y) / rgb.height);
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return true;
}

}  // namespace

bool EndsWith(const std::string& s, const std::string& suffix) {
  if (s.size() < suffix.size()) return false;
  return std::equal(suffix.rbegin(), suffix.rend(), s.rbegin(),
                    [](char a, char b) { return std::tolower(a) == std::tolower(b); });
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

bool WriteImage(const std::string& path, const Rgb& rgb, std::string* error, int quality,
                const WriteProgress& progress, const std::string& kind_of) {
  const std::string& named = kind_of.empty() ? path : kind_of;
  const bool png = EndsWith(named, ".png");
  if (!png && !EndsWith(named, ".jpg") && !EndsWith(named, ".jpeg")) {
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
  const bool ok = png ? WritePng(f.get(), rgb, error, progress)
                      : WriteJpeg(f.get(), rgb, quality, error, progress);
  if (ok && std::fflush(f.get()) != 0) {
    *error = "cannot write " + path + ": " + std::strerror(errno);
    return false;
  }
  return ok;
}

}  // namespace lumivex::tools
