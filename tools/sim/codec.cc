#include "tools/sim/codec.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

#include <cstring>

namespace lumivex::tools {

struct H264RoundTrip::State {
  AVCodecContext* encoder = nullptr;
  AVCodecContext* decoder = nullptr;
  AVFrame* in = nullptr;
  AVFrame* out = nullptr;
  AVPacket* packet = nullptr;
  std::int64_t pts = 0;
  ~State() {
    avcodec_free_context(&encoder);
    avcodec_free_context(&decoder);
    av_frame_free(&in);
    av_frame_free(&out);
    av_packet_free(&packet);
  }
};

H264RoundTrip::H264RoundTrip() = default;
H264RoundTrip::~H264RoundTrip() = default;

bool H264RoundTrip::Open(int width, int height, double fps, double bits_per_pixel,
                         std::string* error) {
  state_ = std::make_unique<State>();
  State& s = *state_;
  const AVCodec* enc = avcodec_find_encoder_by_name("libx264");
  const AVCodec* dec = avcodec_find_decoder(AV_CODEC_ID_H264);
  if (enc == nullptr || dec == nullptr) {
    *error = "this ffmpeg has no libx264 encoder or H.264 decoder";
    return false;
  }
  s.encoder = avcodec_alloc_context3(enc);
  s.decoder = avcodec_alloc_context3(dec);
  s.in = av_frame_alloc();
  s.out = av_frame_alloc();
  s.packet = av_packet_alloc();
  if (s.encoder == nullptr || s.decoder == nullptr || s.in == nullptr || s.out == nullptr ||
      s.packet == nullptr) {
    *error = "out of memory for the codec";
    return false;
  }
  const int rate = std::max(1, static_cast<int>(fps + 0.5));
  s.encoder->width = width;
  s.encoder->height = height;
  s.encoder->pix_fmt = AV_PIX_FMT_YUV420P;
  s.encoder->color_range = AVCOL_RANGE_JPEG;
  s.encoder->time_base = AVRational{1, rate};
  s.encoder->framerate = AVRational{rate, 1};
  s.encoder->bit_rate = static_cast<std::int64_t>(bits_per_pixel * width * height * fps);
  s.encoder->rc_max_rate = s.encoder->bit_rate * 3 / 2;
  s.encoder->rc_buffer_size = static_cast<int>(s.encoder->bit_rate);
  s.encoder->gop_size = rate;
  s.encoder->max_b_frames = 0;
  s.encoder->thread_count = 1;  // the same bits on every machine
  // A phone's hardware encoder is quick and plain; no frame waits for a later one.
  av_opt_set(s.encoder->priv_data, "preset", "veryfast", 0);
  av_opt_set(s.encoder->priv_data, "tune", "zerolatency", 0);
  if (avcodec_open2(s.encoder, enc, nullptr) < 0) {
    *error = "cannot open the H.264 encoder";
    return false;
  }
  s.decoder->thread_count = 1;
  s.decoder->flags |= AV_CODEC_FLAG_LOW_DELAY;
  if (avcodec_open2(s.decoder, dec, nullptr) < 0) {
    *error = "cannot open the H.264 decoder";
    return false;
  }
  s.in->format = AV_PIX_FMT_YUV420P;
  s.in->width = width;
  s.in->height = height;
  if (av_frame_get_buffer(s.in, 0) < 0) {
    *error = "out of memory for the codec";
    return false;
  }
  return true;
}

bool H264RoundTrip::Process(Yuv420* frame, std::string* error) {
  State& s = *state_;
  const int w = frame->width(), h = frame->height(), cw = w / 2, ch = h / 2;
  if (av_frame_make_writable(s.in) < 0) {
    *error = "codec frame not writable";
    return false;
  }
  const bool nv21 = frame->format() == ZMOS_FORMAT_NV21;
  for (int y = 0; y < h; ++y)
    std::memcpy(s.in->data[0] + static_cast<std::ptrdiff_t>(y) * s.in->linesize[0],
                frame->y() + static_cast<std::size_t>(y) * w, static_cast<std::size_t>(w));
  for (int y = 0; y < ch; ++y) {
    std::uint8_t* u = s.in->data[1] + static_cast<std::ptrdiff_t>(y) * s.in->linesize[1];
    std::uint8_t* v = s.in->data[2] + static_cast<std::ptrdiff_t>(y) * s.in->linesize[2];
    for (int x = 0; x < cw; ++x) {
      if (nv21) {
        const std::uint8_t* vu = frame->chroma() + static_cast<std::size_t>(y) * w + 2 * x;
        v[x] = vu[0];
        u[x] = vu[1];
      } else {
        u[x] = frame->chroma()[static_cast<std::size_t>(y) * cw + x];
        v[x] = frame->chroma()[static_cast<std::size_t>(cw) * ch + static_cast<std::size_t>(y) * cw + x];
      }
    }
  }
  s.in->pts = s.pts++;
  if (avcodec_send_frame(s.encoder, s.in) < 0) {
    *error = "the H.264 encoder refused a frame";
    return false;
  }
  bool got = false;
  while (avcodec_receive_packet(s.encoder, s.packet) == 0) {
    const int sent = avcodec_send_packet(s.decoder, s.packet);
    av_packet_unref(s.packet);
    if (sent < 0) {
      *error = "the H.264 decoder refused a packet";
      return false;
    }
    while (avcodec_receive_frame(s.decoder, s.out) == 0) {
      if (s.out->width != w || s.out->height != h) {
        *error = "the decoded frame changed size";
        return false;
      }
      for (int y = 0; y < h; ++y)
        std::memcpy(frame->y() + static_cast<std::size_t>(y) * w,
                    s.out->data[0] + static_cast<std::ptrdiff_t>(y) * s.out->linesize[0],
                    static_cast<std::size_t>(w));
      for (int y = 0; y < ch; ++y) {
        const std::uint8_t* u = s.out->data[1] + static_cast<std::ptrdiff_t>(y) * s.out->linesize[1];
        const std::uint8_t* v = s.out->data[2] + static_cast<std::ptrdiff_t>(y) * s.out->linesize[2];
        for (int x = 0; x < cw; ++x) {
          if (nv21) {
            std::uint8_t* vu = frame->chroma() + static_cast<std::size_t>(y) * w + 2 * x;
            vu[0] = v[x];
            vu[1] = u[x];
          } else {
            frame->chroma()[static_cast<std::size_t>(y) * cw + x] = u[x];
            frame->chroma()[static_cast<std::size_t>(cw) * ch + static_cast<std::size_t>(y) * cw + x] = v[x];
          }
        }
      }
      av_frame_unref(s.out);
      got = true;
    }
  }
  if (!got) {
    *error = "the H.264 round trip held a frame back";
    return false;
  }
  return true;
}

}  // namespace lumivex::tools
