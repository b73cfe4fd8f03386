// Frames of any video ffmpeg's libraries read (a file, or a stream on stdin such as
// `ffmpeg -f yuv4mpegpipe -`): decoded, turned upright by the stream's display matrix, and
// converted from the stream's own colour range and matrix (limited range where unknown,
// as ffmpeg assumes) to the full-range BT.601 4:2:0 a phone camera delivers.
#include "tools/io/video_reader.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>


namespace lumivex::tools {
namespace {

std::string AvError(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof(text));
  return text;
}

int SwsMatrix(AVColorSpace space) {
  switch (space) {
    case AVCOL_SPC_BT709:
      return SWS_CS_ITU709;
    case AVCOL_SPC_FCC:
      return SWS_CS_FCC;
    case AVCOL_SPC_SMPTE240M:
      return SWS_CS_SMPTE240M;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
      return SWS_CS_BT2020;
    default:
      return SWS_CS_ITU601;  // also what ffmpeg assumes when the stream does not say
  }
}

// Formats whose samples are full range by definition (the deprecated "J" formats).
bool FullRangeFormat(AVPixelFormat f) {
  return f == AV_PIX_FMT_YUVJ420P || f == AV_PIX_FMT_YUVJ422P || f == AV_PIX_FMT_YUVJ444P ||
         f == AV_PIX_FMT_YUVJ440P || f == AV_PIX_FMT_YUVJ411P;
}

class VideoSource : public FrameSource {
 public:
  explicit VideoSource(std::uint32_t format) : format_(format) {}
  ~VideoSource() override {
    sws_freeContext(sws_);
    av_frame_free(&frame_);
    av_packet_free(&packet_);
    avcodec_free_context(&codec_);
    avformat_close_input(&format_ctx_);
    if (rgb_[0] != nullptr) av_freep(&rgb_[0]);
  }

  bool Open(const std::string& url, std::string* error) {
    av_log_set_level(AV_LOG_QUIET);  // problems are reported in one line of our own
    int res = avformat_open_input(&format_ctx_, url.c_str(), nullptr, nullptr);
    if (res < 0) return Refuse(error, AvError(res));
    if ((res = avformat_find_stream_info(format_ctx_, nullptr)) < 0)
      return Refuse(error, AvError(res));
    const AVCodec* decoder = nullptr;
    stream_ = av_find_best_stream(format_ctx_, AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (stream_ < 0 || decoder == nullptr)
      return Refuse(error, "no video stream ffmpeg can decode");
    AVStream* st = format_ctx_->streams[stream_];
    codec_ = avcodec_alloc_context3(decoder);
    if (codec_ == nullptr || avcodec_parameters_to_context(codec_, st->codecpar) < 0)
      return Refuse(error, "cannot set up the decoder");
    codec_->thread_count = 0;  // as many as the machine has
    if ((res = avcodec_open2(codec_, decoder, nullptr)) < 0) return Refuse(error, AvError(res));
    if (const auto* matrix = reinterpret_cast<const std::int32_t*>(
            av_stream_get_side_data(st, AV_PKT_DATA_DISPLAYMATRIX, nullptr))) {
      // Degrees counter-clockwise the picture must turn to be upright; kept to quarters.
      const double turn = -av_display_rotation_get(matrix);
      if (std::isfinite(turn)) quarters_ = (static_cast<int>(std::lround(turn / 90.0)) % 4 + 4) % 4;
    }
    frame_ = av_frame_alloc();
    packet_ = av_packet_alloc();
    if (frame_ == nullptr || packet_ == nullptr) return Refuse(error, "out of memory");
    const bool turned = quarters_ % 2 == 1;
    const int w = turned ? codec_->height : codec_->width;
    const int h = turned ? codec_->width : codec_->height;
    return CheckFrameSize(w & ~1, h & ~1, error);
  }

  // The packets left are counted, not decoded, with the frames the decoder still holds.
  int SkipRest() override {
    int rest = std::max(0, sent_ - decoded_);
    while (!input_over_) {
      const int res = av_read_frame(format_ctx_, packet_);
      if (res < 0) break;
      rest += packet_->stream_index == stream_;
      av_packet_unref(packet_);
    }
    input_over_ = ended_ = true;
    return rest;
  }

  bool Next(Yuv420* out) override {
    while (!ended_) {
      const int res = avcodec_receive_frame(codec_, frame_);
      if (res == 0) {
        ++decoded_;
        const bool ok = Convert(out);
        av_frame_unref(frame_);
        if (ok) ++frames_;
        return ok;
      }
      if (res == AVERROR_EOF) break;
      // A frame the decoder could not make is skipped; either way it needs more input, and
      // once the input is over, a decoder that still wants some has nothing left to give.
      if (res != AVERROR(EAGAIN)) NoteDamage(AvError(res));
      if (input_over_ && (res == AVERROR(EAGAIN) || ++failures_after_end_ > 64)) break;
      Feed();
    }
    ended_ = true;
    return false;
  }

 private:
  bool Refuse(std::string* error, const std::string& why) {
    *error = why;
    return false;
  }

  // One packet of the video stream to the decoder, or the end of the input.
  void Feed() {
    for (;;) {
      const int res = av_read_frame(format_ctx_, packet_);
      if (res < 0) {
        // Anything but a clean end (a cut file, a broken pipe) still stitches what came.
        if (res != AVERROR_EOF) NoteDamage(AvError(res));
        // Y4M and raw video hold nothing but frames: bytes after the last whole one are
        // a frame cut short, which their readers drop without a word.
        const char* name = format_ctx_->iformat->name;
        if (res == AVERROR_EOF && format_ctx_->pb != nullptr && last_end_ > 0 &&
            (std::strcmp(name, "yuv4mpegpipe") == 0 || std::strcmp(name, "rawvideo") == 0) &&
            avio_tell(format_ctx_->pb) > last_end_)
          NoteDamage("a frame cut short");
        avcodec_send_packet(codec_, nullptr);
        input_over_ = true;
        return;
      }
      const bool ours = packet_->stream_index == stream_;
      if (packet_->pos >= 0) last_end_ = packet_->pos + packet_->size;
      const int sent = ours ? avcodec_send_packet(codec_, packet_) : 0;
      sent_ += ours && sent == 0;
      av_packet_unref(packet_);
      if (sent < 0 && sent != AVERROR(EAGAIN)) NoteDamage(AvError(sent));
      if (ours) return;
    }
  }

  void NoteDamage(const std::string& why) {
    if (warning_.empty())
      warning_ = "the input is damaged or cut short after " + std::to_string(frames_) +
                 " frames (" + why + "); stitched what could be read";
  }

  // The decoded frame as full-range BT.601 4:2:0, upright, cropped to even sizes. It goes
  // through RGB: swscale applies the stream's matrix and range only on that path.
  bool Convert(Yuv420* out) {
    const int w = frame_->width, h = frame_->height;
    const auto src_format = static_cast<AVPixelFormat>(frame_->format);
    if (w != rgb_w_ || h != rgb_h_) {
      if (rgb_[0] != nullptr) av_freep(&rgb_[0]);
      if (av_image_alloc(rgb_, rgb_pitch_, w, h, AV_PIX_FMT_RGB24, 32) < 0) {
        error_ = "out of memory";
        return false;
      }
      rgb_w_ = w;
      rgb_h_ = h;
    }
    sws_ = sws_getCachedContext(sws_, w, h, src_format, w, h, AV_PIX_FMT_RGB24,
                                SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr,
                                nullptr, nullptr);
    if (sws_ == nullptr) {
      const char* name = av_get_pix_fmt_name(src_format);
      error_ = std::string("cannot convert pixel format ") + (name != nullptr ? name : "unknown");
      return false;
    }
    const bool full = frame_->color_range == AVCOL_RANGE_JPEG || FullRangeFormat(src_format);
    const int* matrix = sws_getCoefficients(SwsMatrix(frame_->colorspace));
    sws_setColorspaceDetails(sws_, matrix, full ? 1 : 0, matrix, 1, 0, 1 << 16, 1 << 16);
    sws_scale(sws_, frame_->data, frame_->linesize, 0, h, rgb_, rgb_pitch_);
    const bool turned = quarters_ % 2 == 1;
    Rgb rgb;
    rgb.width = (turned ? h : w) & ~1;
    rgb.height = (turned ? w : h) & ~1;
    if (width_ == 0) {
      width_ = rgb.width;
      height_ = rgb.height;
    } else if (rgb.width != width_ || rgb.height != height_) {
      error_ = "the frame size changes from " + SizeText(width_, height_) + " to " +
               SizeText(rgb.width, rgb.height) + " at frame " + std::to_string(frames_ + 1);
      return false;
    }
    rgb.pixels.resize(static_cast<std::size_t>(rgb.width) * rgb.height * 3);
    Turn(rgb_[0], rgb_pitch_[0], rgb.pixels.data(), rgb.width, rgb.height);
    *out = RgbToYuv420(rgb, format_);
    return true;
  }

  // Copies RGB pixels into `ow` x `oh` packed ones, turned by the display matrix.
  void Turn(const std::uint8_t* src, int pitch, std::uint8_t* dst, int ow, int oh) const {
    for (int y = 0; y < oh; ++y) {
      std::uint8_t* row = dst + static_cast<std::size_t>(y) * ow * 3;
      for (int x = 0; x < ow; ++x) {
        int sx = x, sy = y;
        switch (quarters_) {
          case 1:  // a quarter turn clockwise
            sx = y, sy = ow - 1 - x;
            break;
          case 2:
            sx = ow - 1 - x, sy = oh - 1 - y;
            break;
          case 3:
            sx = oh - 1 - y, sy = x;
            break;
          default:
            break;
        }
        std::memcpy(row + 3 * x, src + static_cast<std::ptrdiff_t>(sy) * pitch + 3 * sx, 3);
      }
    }
  }

  std::uint32_t format_;
  AVFormatContext* format_ctx_ = nullptr;
  AVCodecContext* codec_ = nullptr;
  AVFrame* frame_ = nullptr;
  AVPacket* packet_ = nullptr;
  SwsContext* sws_ = nullptr;
  int stream_ = -1;
  int quarters_ = 0;
  bool ended_ = false;
  bool input_over_ = false;
  int failures_after_end_ = 0;
  int frames_ = 0;
  int sent_ = 0, decoded_ = 0;  // packets given to the decoder, frames it gave back
  std::int64_t last_end_ = 0;  // where the last packet's data ended in the input
  std::uint8_t* rgb_[4] = {};
  int rgb_pitch_[4] = {};
  int rgb_w_ = 0, rgb_h_ = 0;
  int width_ = 0, height_ = 0;
};

}  // namespace

std::unique_ptr<FrameSource> OpenVideo(const std::string& input, std::uint32_t format,
                                       std::string* error) {
  auto source = std::make_unique<VideoSource>(format);
  if (!source->Open(input == "-" ? "pipe:0" : input, error)) return nullptr;
  return source;
}

}  // namespace lumivex::tools
