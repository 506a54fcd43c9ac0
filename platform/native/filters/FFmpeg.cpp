#include "platform/native/filters/FFmpeg.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <mutex>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

namespace corvid::native {

namespace {
constexpr int kIoBufferBytes = 32 * 1024;
constexpr int kProbeBytes = 1 << 20;       // how far the type probe may read
constexpr int64_t kOpenDeadlineMs = 5000;  // probing and header analysis together
constexpr int kMaxFrameSamples = 1 << 20;  // per channel, per decoded frame
constexpr int kMaxRate = 384000;
constexpr size_t kLargestAllocation = 256u << 20;
// A seek lands this many MP3 frames early, so that the decoder has the bit reservoir of the
// frame it needs; the samples before the target are dropped after decoding.
constexpr int kMp3LeadFrames = 2;
// An AAC frame overlaps the one before it: a seek lands two packets early for the decoder to
// rebuild the overlap before the target.
constexpr int kAacLeadPackets = 2;
// A WMA decoder holds two packets back; more than this many without a frame out means some
// gave none (damaged), and the oldest are forgotten.
constexpr size_t kMostHeldPackets = 8;
// Fields that every frame of a constant-bitrate MP3 repeats: sync, version, layer, CRC flag,
// bitrate and rate (not the padding bit, which spreads the fractional byte).
constexpr uint32_t kSameFrameMask = 0xFFFFFC00u;

int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
uint32_t bigEndian32(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// One MPEG audio frame header (layers II and III): its length and the samples it carries.
struct FrameHeader {
    int bytes = 0;
    int samples = 0;
    int rate = 0;
    int bitrate = 0;
    bool mpeg1 = false;
    bool mono = false;
};

bool parseFrameHeader(uint32_t h, FrameHeader& out) {
    if ((h & 0xFFE00000u) != 0xFFE00000u) return false;
    const int version = (h >> 19) & 3; // 3: MPEG-1, 2: MPEG-2, 0: MPEG-2.5
    const int layer = (h >> 17) & 3;   // 1: III, 2: II
    const int bitrateIndex = (h >> 12) & 15, rateIndex = (h >> 10) & 3;
    if (version == 1 || (layer != 1 && layer != 2) || bitrateIndex == 0 || bitrateIndex == 15 ||
        rateIndex == 3)
        return false;
    static const int kMpeg1Layer2[] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
    static const int kMpeg1Layer3[] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    static const int kMpeg2[] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    static const int kRates[] = {44100, 48000, 32000};
    out.mpeg1 = version == 3;
    out.rate = kRates[rateIndex] >> (version == 3 ? 0 : version == 2 ? 1 : 2);
    out.bitrate = 1000 * (!out.mpeg1 ? kMpeg2[bitrateIndex]
                          : layer == 2 ? kMpeg1Layer2[bitrateIndex]
                                       : kMpeg1Layer3[bitrateIndex]);
    out.samples = (layer == 1 && !out.mpeg1) ? 576 : 1152;
    out.bytes = out.samples / 8 * out.bitrate / out.rate + int((h >> 9) & 1);
    out.mono = ((h >> 6) & 3) == 3;
    return true;
}

} // namespace

void initFFmpeg() {
    static std::once_flag once;
    std::call_once(once, [] {
        av_log_set_level(AV_LOG_QUIET);
        av_max_alloc(kLargestAllocation);
    });
}

std::string ffmpegError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

CodecParams::CodecParams(const AVCodecParameters* source, AVRational tb, int64_t start)
    : params(avcodec_parameters_alloc()), timeBase(tb), origin(start) {
    avcodec_parameters_copy(params, source);
}

CodecParams::~CodecParams() { avcodec_parameters_free(&params); }

AVSampleFormat toAv(SampleFormat format) {
    switch (format) {
    case SampleFormat::U8: return AV_SAMPLE_FMT_U8;
    case SampleFormat::S16: return AV_SAMPLE_FMT_S16;
    case SampleFormat::S32: return AV_SAMPLE_FMT_S32;
    case SampleFormat::F64: return AV_SAMPLE_FMT_DBL;
    case SampleFormat::S24:
    case SampleFormat::F32: break;
    }
    return AV_SAMPLE_FMT_FLT;
}

bool fromAv(AVSampleFormat format, SampleFormat& out) {
    switch (format) {
    case AV_SAMPLE_FMT_U8: out = SampleFormat::U8; return true;
    case AV_SAMPLE_FMT_S16: out = SampleFormat::S16; return true;
    case AV_SAMPLE_FMT_S32: out = SampleFormat::S32; return true;
    case AV_SAMPLE_FMT_FLT: out = SampleFormat::F32; return true;
    case AV_SAMPLE_FMT_DBL: out = SampleFormat::F64; return true;
    default: return false;
    }
}

// ---------------------------------------------------------------- file reader

Status FileByteReader::open(const std::string& path, std::shared_ptr<FileByteReader>& reader) {
    struct stat st{};
    if (::stat(path.c_str(), &st) != 0)
        return Status::failure(hr::FileNotFound, "The file " + path + " does not exist.");
    if (S_ISDIR(st.st_mode))
        return Status::failure(hr::AccessDenied, path + " is a directory, not a file.");
    if (!S_ISREG(st.st_mode))
        return Status::failure(hr::AccessDenied, path + " is not a regular file.");
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return Status::failure(hr::AccessDenied, "The file " + path + " cannot be read.");
    auto r = std::shared_ptr<FileByteReader>(new FileByteReader());
    r->fd_ = fd;
    r->size_ = st.st_size;
    r->path_ = path;
    reader = std::move(r);
    return Status::success();
}

FileByteReader::~FileByteReader() {
    if (fd_ >= 0) ::close(fd_);
}

int FileByteReader::read(int64_t offset, uint8_t* destination, int count) {
    if (offset >= size_ || count <= 0) return 0;
    ssize_t n = ::pread(fd_, destination, size_t(count), off_t(offset));
    return n < 0 ? -1 : int(n);
}

// ---------------------------------------------------------------- demuxer

int Demuxer::readPacket(void* opaque, uint8_t* buf, int size) {
    auto* self = static_cast<Demuxer*>(opaque);
    int n = self->reader_->read(self->position_, buf, size);
    if (n < 0) return AVERROR(EIO);
    if (n == 0) return AVERROR_EOF;
    self->position_ += n;
    return n;
}

int64_t Demuxer::seekStream(void* opaque, int64_t offset, int whence) {
    auto* self = static_cast<Demuxer*>(opaque);
    const int64_t size = self->reader_->size();
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE: return size >= 0 ? size : -1;
    case SEEK_SET: break;
    case SEEK_CUR: offset += self->position_; break;
    case SEEK_END:
        if (size < 0) return -1;
        offset += size;
        break;
    default: return -1;
    }
    if (offset < 0) return -1;
    self->position_ = offset;
    return offset;
}

int Demuxer::interrupt(void* opaque) {
    auto* self = static_cast<Demuxer*>(opaque);
    return self->deadlineMs_ != 0 && nowMs() > self->deadlineMs_;
}

Status Demuxer::open(std::shared_ptr<ByteReader> reader, const std::vector<std::string>& formats,
                     std::unique_ptr<Demuxer>& demuxer) {
    initFFmpeg();
    std::unique_ptr<Demuxer> d(new Demuxer());
    d->reader_ = std::move(reader);
    const std::string path = d->reader_->path();
    if (d->reader_->size() == 0)
        return Status::failure(hr::InvalidFileFormat, "The file " + path + " is empty.");

    auto* buffer = static_cast<uint8_t*>(av_malloc(kIoBufferBytes));
    d->io_ = avio_alloc_context(buffer, kIoBufferBytes, 0, d.get(), &Demuxer::readPacket, nullptr,
                                &Demuxer::seekStream);
    if (!d->io_) {
        av_free(buffer);
        return Status::failure(hr::Fail, "Out of memory opening " + path);
    }
    if (!d->reader_->seekable()) d->io_->seekable = 0;
    d->deadlineMs_ = nowMs() + kOpenDeadlineMs;

    const AVInputFormat* input = nullptr;
    int ret = av_probe_input_buffer2(d->io_, &input, nullptr, nullptr, 0, kProbeBytes);
    if (ret < 0 || !input)
        return Status::failure(hr::UnknownFileType,
                               "The type of " + path + " is not recognised (" + ffmpegError(ret) + ").");
    std::string allowed;
    bool ok = false;
    for (auto& f : formats) {
        ok = ok || f == input->name;
        allowed += (allowed.empty() ? "" : ",") + f;
    }
    if (!ok)
        return Status::failure(hr::InvalidFileFormat, path + " holds " + input->name +
                                                          " data, which this parser does not read.");

    // An MP4's AAC track is read from its sample table, without libavformat's index of it.
    if (std::strncmp(input->name, "mov,", 4) == 0 && (d->mp4_ = Mp4Track::open(d->reader_))) {
        d->codec_ = std::make_shared<CodecParams>(d->mp4_->params(), d->mp4_->timeBase(),
                                                  d->mp4_->origin());
        d->duration_ = d->mp4_->durationSeconds();
        Status s = d->readFirstPacket();
        if (s) demuxer = std::move(d);
        return s;
    }

    d->format_ = avformat_alloc_context();
    d->format_->pb = d->io_;
    d->format_->flags |= AVFMT_FLAG_CUSTOM_IO;
    d->format_->interrupt_callback = {&Demuxer::interrupt, d.get()};
    AVDictionary* options = nullptr;
    av_dict_set(&options, "format_whitelist", allowed.c_str(), 0);
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    av_dict_set(&options, "probesize", std::to_string(kProbeBytes).c_str(), 0);
    av_dict_set(&options, "analyzeduration", "3000000", 0);
    // WAVE, Ogg and ASF headers say all there is to know: rate, channels, the codec's setup
    // and the length. Left alone, libavformat would analyse the stream by decoding its first
    // packets (and probe a WAVE file's PCM payload for other codecs packed in it, reading a
    // megabyte).
    const bool headerSuffices = std::strcmp(input->name, "wav") == 0 ||
                                std::strcmp(input->name, "ogg") == 0 ||
                                std::strcmp(input->name, "asf") == 0;
    if (headerSuffices) av_dict_set(&options, "max_probe_packets", "1", 0);
    ret = avformat_open_input(&d->format_, nullptr, input, &options);
    av_dict_free(&options);
    if (ret < 0) {
        d->format_ = nullptr; // freed by avformat_open_input
        return Status::failure(hr::InvalidFileFormat,
                               "The header of " + path + " cannot be read (" + ffmpegError(ret) + ").");
    }
    // A header that leaves the audio stream's codec or shape open (FLAC in Ogg) is analysed.
    const int found = av_find_best_stream(d->format_, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    const bool complete = found >= 0 && d->format_->streams[found]->codecpar->sample_rate > 0 &&
                          d->format_->streams[found]->codecpar->ch_layout.nb_channels > 0;
    ret = headerSuffices && complete ? 0 : avformat_find_stream_info(d->format_, nullptr);
    if (ret < 0)
        return Status::failure(hr::InvalidFileFormat,
                               "The streams of " + path + " cannot be read (" + ffmpegError(ret) + ").");
    d->streamIndex_ = av_find_best_stream(d->format_, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (d->streamIndex_ < 0)
        return Status::failure(hr::UnsupportedStream, path + " holds no audio stream.");
    for (unsigned i = 0; i < d->format_->nb_streams; ++i)
        if (int(i) != d->streamIndex_) d->format_->streams[i]->discard = AVDISCARD_ALL;

    const AVStream* st = d->format_->streams[d->streamIndex_];
    const AVCodecParameters* par = st->codecpar;
    if (par->sample_rate <= 0 || par->sample_rate > kMaxRate || par->ch_layout.nb_channels <= 0 ||
        par->ch_layout.nb_channels > 64)
        return Status::failure(hr::InvalidFileFormat, "The audio format of " + path + " is not valid.");
    d->codec_ = std::make_shared<CodecParams>(
        par, st->time_base, st->start_time != AV_NOPTS_VALUE ? st->start_time : 0);

    if (st->duration != AV_NOPTS_VALUE && st->duration > 0)
        d->duration_ = st->duration * av_q2d(st->time_base);
    else if (d->format_->duration > 0)
        d->duration_ = d->format_->duration / double(AV_TIME_BASE);
    Status s = d->readFirstPacket();
    if (!s) return s;
    if (std::strcmp(input->name, "mp3") == 0) d->readMp3Layout();
    // The stream's length counts the encoder's delay and padding, which the decoder drops.
    if (d->mp3_.delay >= 0 && st->duration != AV_NOPTS_VALUE && st->duration > 0)
        d->duration_ = std::max(0.0, d->duration_ - double(d->mp3_.delay + d->mp3_.padding) /
                                                        d->mp3_.rate);
    demuxer = std::move(d);
    return s;
}

Status Demuxer::readFirstPacket() {
    pending_ = av_packet_alloc();
    if (!read(pending_)) {
        av_packet_free(&pending_);
        return Status::failure(hr::InvalidFileFormat, reader_->path() + " holds no audio data.");
    }
    deadlineMs_ = 0;
    return Status::success();
}

Demuxer::~Demuxer() {
    if (pending_) av_packet_free(&pending_);
    if (format_) avformat_close_input(&format_);
    if (io_) {
        av_freep(&io_->buffer);
        avio_context_free(&io_);
    }
}

bool Demuxer::read(AVPacket* packet) {
    if (pending_ && packet != pending_) {
        av_packet_move_ref(packet, pending_);
        av_packet_free(&pending_);
        return true;
    }
    if (mp4_) return mp4_->read(packet);
    for (;;) {
        int ret = av_read_frame(format_, packet);
        if (ret < 0) return false;
        if (packet->stream_index == streamIndex_) return true;
        av_packet_unref(packet);
    }
}

void Demuxer::readMp3Layout() {
    if (!reader_->seekable() || reader_->size() <= 0) return;
    int64_t at = 0;
    uint8_t id3[10];
    if (reader_->read(0, id3, 10) == 10 && std::memcmp(id3, "ID3", 3) == 0)
        at = 10 + (int64_t(id3[6] & 0x7f) << 21 | (id3[7] & 0x7f) << 14 | (id3[8] & 0x7f) << 7 |
                   (id3[9] & 0x7f)) +
             ((id3[5] & 0x10) ? 10 : 0);
    uint8_t b[4096];
    const int n = reader_->read(at, b, sizeof b);
    FrameHeader first;
    int i = 0;
    for (; i + 4 <= n && !parseFrameHeader(bigEndian32(b + i), first); ++i) {}
    if (i + 4 > n) return;
    Mp3Layout m;
    m.firstFrame = at + i;
    m.samplesPerFrame = first.samples;
    m.rate = first.rate;
    // The Xing or Info frame of an encoder carries no audio; "Info" marks constant bitrate, and
    // a LAME tag after it declares the encoder delay and padding.
    const int side = first.mpeg1 ? (first.mono ? 17 : 32) : (first.mono ? 9 : 17);
    const int tag = i + 4 + side;
    const bool xing = tag + 8 <= n && std::memcmp(b + tag, "Xing", 4) == 0;
    const bool info = tag + 8 <= n && std::memcmp(b + tag, "Info", 4) == 0;
    const bool vbri = i + 40 <= n && std::memcmp(b + i + 36, "VBRI", 4) == 0;
    if (xing || info) {
        const uint32_t flags = bigEndian32(b + tag + 4);
        int lame = tag + 8 + ((flags & 1) ? 4 : 0) + ((flags & 2) ? 4 : 0) + ((flags & 4) ? 100 : 0) +
                   ((flags & 8) ? 4 : 0);
        if (lame + 24 <= n && (std::memcmp(b + lame, "LAME", 4) == 0 ||
                               std::memcmp(b + lame, "Lavf", 4) == 0 ||
                               std::memcmp(b + lame, "Lavc", 4) == 0)) {
            m.delay = int64_t(b[lame + 21]) << 4 | b[lame + 22] >> 4;
            m.padding = int64_t(b[lame + 22] & 0x0f) << 8 | b[lame + 23];
        }
    }
    if (xing || info || vbri) m.firstFrame += first.bytes;
    uint8_t h[4];
    FrameHeader audio;
    if (reader_->read(m.firstFrame, h, 4) != 4 || !parseFrameHeader(bigEndian32(h), audio)) return;
    m.header = bigEndian32(h);
    m.frameBytes = double(audio.samples) / 8 * audio.bitrate / audio.rate;
    m.constantBitrate = info || (!xing && !vbri && format_->duration_estimation_method ==
                                                        AVFMT_DURATION_FROM_BITRATE);
    if (pending_ && pending_->pts != AV_NOPTS_VALUE) m.firstPts = pending_->pts;
    mp3_ = m;
}

void Demuxer::placeMp3Frame(int64_t target) {
    if (!mp3_.constantBitrate || mp3_.frameBytes <= 0) return;
    AVStream* st = format_->streams[streamIndex_];
    const int64_t sample = av_rescale_q(target - mp3_.firstPts, st->time_base, AVRational{1, mp3_.rate});
    const int64_t frame = sample / mp3_.samplesPerFrame;
    if (frame <= 0) return;
    // Padding keeps every frame within a byte of its share of the average, so the frame that
    // starts nearest the computed offset is the one, and its offset tells its number.
    const int64_t guess = mp3_.firstFrame + std::llround(double(frame) * mp3_.frameBytes);
    const int span = int(mp3_.frameBytes) + 8;
    const int64_t from = std::max(mp3_.firstFrame, guess - span);
    std::vector<uint8_t> b(size_t(4 * span));
    const int n = reader_->read(from, b.data(), int(b.size()));
    int64_t best = -1;
    for (int i = 0; i + 4 <= n; ++i) {
        const uint32_t h = bigEndian32(b.data() + i);
        FrameHeader fh;
        if ((h & kSameFrameMask) != (mp3_.header & kSameFrameMask) || !parseFrameHeader(h, fh)) continue;
        if (i + fh.bytes + 4 > n ||
            (bigEndian32(b.data() + i + fh.bytes) & kSameFrameMask) != (mp3_.header & kSameFrameMask))
            continue;
        if (best < 0 || std::llabs(from + i - guess) < std::llabs(best - guess)) best = from + i;
    }
    if (best < 0) return;
    const int64_t index = std::llround(double(best - mp3_.firstFrame) / mp3_.frameBytes);
    const int64_t ts = mp3_.firstPts + av_rescale_q(index * mp3_.samplesPerFrame,
                                                    AVRational{1, mp3_.rate}, st->time_base);
    av_add_index_entry(st, best, ts, 0, 0, AVINDEX_KEYFRAME);
}

Status Demuxer::seek(double seconds) {
    if (pending_) av_packet_free(&pending_);
    const AVRational tb = codec_->timeBase;
    int64_t streamTarget = std::llround(seconds / av_q2d(tb)) + codec_->origin;
    if (mp4_) {
        mp4_->seek(streamTarget, kAacLeadPackets);
        return Status::success();
    }
    if (mp3_.samplesPerFrame > 0)
        streamTarget -= av_rescale_q(kMp3LeadFrames * mp3_.samplesPerFrame, AVRational{1, mp3_.rate}, tb);
    placeMp3Frame(streamTarget);
    // As the ffmpeg tools seek: in AV_TIME_BASE units over the whole container, landing at or
    // before the target (every demuxer takes this form; a per-stream seek fails quietly in Ogg).
    const int64_t target = av_rescale_q(streamTarget, tb, AV_TIME_BASE_Q);
    int ret = avformat_seek_file(format_, -1, INT64_MIN, target, target, 0);
    if (ret < 0) ret = avformat_seek_file(format_, -1, INT64_MIN, target, INT64_MAX, 0);
    if (ret < 0) return Status::failure(hr::Fail, "Seek failed: " + ffmpegError(ret));
    return Status::success();
}

double Demuxer::toSeconds(int64_t pts) const {
    if (pts == AV_NOPTS_VALUE) return 0;
    return (pts - codec_->origin) * av_q2d(codec_->timeBase);
}

// ---------------------------------------------------------------- decoded audio

Status DecodedAudio::open(std::shared_ptr<ByteReader> reader, const std::vector<std::string>& formats,
                          std::unique_ptr<DecodedAudio>& audio) {
    auto a = std::make_unique<DecodedAudio>();
    Status s = Demuxer::open(std::move(reader), formats, a->demuxer_);
    if (s) s = AudioDecoder::open(*a->demuxer_->codec(), a->decoder_);
    if (!s) return s;
    audio = std::move(a);
    return Status::success();
}

Status DecodedAudio::openFile(const std::string& path, const std::vector<std::string>& formats,
                              std::unique_ptr<DecodedAudio>& audio) {
    std::shared_ptr<FileByteReader> reader;
    Status s = FileByteReader::open(path, reader);
    return s ? open(std::move(reader), formats, audio) : s;
}

Status DecodedAudio::seek(double seconds) {
    decoder_->flush(seconds);
    return demuxer_->seek(seconds);
}

bool DecodedAudio::next(const Sink& sink) {
    const bool more = demuxer_->read(packet_.packet);
    decoder_->decode(more ? packet_.packet : nullptr, sink);
    if (more) av_packet_unref(packet_.packet);
    return more;
}

// ---------------------------------------------------------------- decoder

Status AudioDecoder::open(const CodecParams& codec, std::unique_ptr<AudioDecoder>& decoder) {
    initFFmpeg();
    const AVCodec* c = avcodec_find_decoder(codec.params->codec_id);
    if (!c) return Status::failure(hr::UnsupportedStream, "No decoder for this audio codec.");
    std::unique_ptr<AudioDecoder> d(new AudioDecoder());
    d->context_ = avcodec_alloc_context3(c);
    if (!d->context_ || avcodec_parameters_to_context(d->context_, codec.params) < 0)
        return Status::failure(hr::Fail, "The decoder cannot be set up.");
    d->context_->pkt_timebase = codec.timeBase;
    d->context_->thread_count = 1;
    d->timeBase_ = codec.timeBase;
    d->origin_ = codec.origin;
    d->holdsPackets_ = codec.params->codec_id == AV_CODEC_ID_WMAV1 || codec.params->codec_id == AV_CODEC_ID_WMAV2;
    int ret = avcodec_open2(d->context_, c, nullptr);
    if (ret < 0)
        return Status::failure(hr::UnsupportedStream, "The decoder refused the stream (" +
                                                           ffmpegError(ret) + ").");
    const int rate = codec.params->sample_rate;
    const int channels = std::min(codec.params->ch_layout.nb_channels, 8);
    if (rate <= 0 || rate > kMaxRate || channels <= 0)
        return Status::failure(hr::InvalidFileFormat, "The stream's audio format is not valid.");
    d->out_ = PcmFormat{SampleFormat::F32, rate, channels};
    decoder = std::move(d);
    return Status::success();
}

AudioDecoder::~AudioDecoder() {
    av_frame_free(&frame_);
    swr_free(&swr_);
    av_channel_layout_uninit(&swrLayout_);
    avcodec_free_context(&context_);
}

void AudioDecoder::flush(double from) {
    avcodec_flush_buffers(context_);
    swr_free(&swr_);
    swrRate_ = 0;
    trimBefore_ = from;
    sent_.clear();
}

void AudioDecoder::decode(const AVPacket* packet,
                          const std::function<void(std::vector<uint8_t>&&, double)>& sink) {
    if (holdsPackets_ && packet) {
        sent_.push_back(packet->pts);
        if (sent_.size() > kMostHeldPackets) sent_.pop_front(); // one that gave no frame
    }
    if (avcodec_send_packet(context_, packet) < 0 && packet) return; // a damaged packet is skipped
    while (avcodec_receive_frame(context_, frame_) >= 0) {
        const int samples = frame_->nb_samples;
        const int inChannels = frame_->ch_layout.nb_channels;
        if (samples <= 0 || samples > kMaxFrameSamples || inChannels <= 0 || inChannels > 64 ||
            frame_->sample_rate <= 0 || frame_->sample_rate > kMaxRate) {
            av_frame_unref(frame_);
            continue;
        }
        if (!swr_ || swrRate_ != frame_->sample_rate || swrFormat_ != frame_->format ||
            av_channel_layout_compare(&swrLayout_, &frame_->ch_layout) != 0) {
            swr_free(&swr_);
            AVChannelLayout outLayout;
            av_channel_layout_default(&outLayout, out_.channels);
            swr_alloc_set_opts2(&swr_, &outLayout, AV_SAMPLE_FMT_FLT, out_.rate, &frame_->ch_layout,
                                AVSampleFormat(frame_->format), frame_->sample_rate, 0, nullptr);
            av_channel_layout_uninit(&outLayout);
            if (!swr_ || swr_init(swr_) < 0) {
                swr_free(&swr_);
                av_frame_unref(frame_);
                continue;
            }
            swrRate_ = frame_->sample_rate;
            swrFormat_ = frame_->format;
            av_channel_layout_uninit(&swrLayout_);
            av_channel_layout_copy(&swrLayout_, &frame_->ch_layout);
        }
        double time = nextTime_;
        int64_t stamp = frame_->best_effort_timestamp;
        if (holdsPackets_ && !sent_.empty()) { // the frame is the oldest packet's audio
            stamp = sent_.front();
            sent_.pop_front();
        }
        if (stamp != AV_NOPTS_VALUE) {
            time = (stamp - origin_) * av_q2d(timeBase_);
            // WMA frames are all one length from the stream's start, and ASF stamps them in
            // whole milliseconds: the frame starts on the grid point nearest its stamp.
            if (holdsPackets_ && context_->frame_size > 0) {
                const double grid = double(context_->frame_size) / frame_->sample_rate;
                time = std::round(time / grid) * grid;
            }
        } else {
            trimBefore_ = -1; // without a time there is nothing to trim by
        }
        const int capacity = swr_get_out_samples(swr_, samples);
        std::vector<uint8_t> bytes(size_t(std::max(capacity, 0)) * out_.channels * 4);
        uint8_t* outPlanes[1] = {bytes.data()};
        int produced = swr_convert(swr_, outPlanes, capacity, const_cast<const uint8_t**>(frame_->extended_data), samples);
        nextTime_ = time + double(samples) / frame_->sample_rate;
        av_frame_unref(frame_);
        if (produced <= 0) continue;
        bytes.resize(size_t(produced) * out_.channels * 4);
        if (trimBefore_ >= 0) {
            const double end = time + double(produced) / out_.rate;
            if (end <= trimBefore_) continue; // wholly before the seek target
            const auto skip = size_t(std::max<int64_t>(0, std::llround((trimBefore_ - time) * out_.rate)));
            bytes.erase(bytes.begin(), bytes.begin() + long(skip * out_.channels * 4));
            if (skip > 0) time = trimBefore_;
            trimBefore_ = -1;
            if (bytes.empty()) continue;
        }
        sink(std::move(bytes), time);
    }
}

// ---------------------------------------------------------------- converter

PcmConverter::~PcmConverter() { swr_free(&swr_); }

Status PcmConverter::configure(const PcmFormat& in, const PcmFormat& out) {
    swr_free(&swr_);
    in_ = in;
    out_ = out;
    AVChannelLayout inLayout, outLayout;
    av_channel_layout_default(&inLayout, in.channels);
    av_channel_layout_default(&outLayout, out.channels);
    swr_alloc_set_opts2(&swr_, &outLayout, toAv(out.format), out.rate, &inLayout, toAv(in.format),
                        in.rate, 0, nullptr);
    av_channel_layout_uninit(&inLayout);
    av_channel_layout_uninit(&outLayout);
    if (!swr_ || swr_init(swr_) < 0) {
        swr_free(&swr_);
        return Status::failure(hr::TypeNotAccepted, "The converter cannot convert this format.");
    }
    return Status::success();
}

void PcmConverter::convert(const uint8_t* input, int frames, std::vector<uint8_t>& output) {
    if (!swr_ || frames <= 0) return;
    std::vector<float> widened;
    if (in_.format == SampleFormat::S24) { // swresample has no packed 24-bit format
        widened.resize(size_t(frames) * in_.channels);
        toFloat(in_, input, frames, widened.data());
        input = reinterpret_cast<const uint8_t*>(widened.data());
    }
    const int capacity = swr_get_out_samples(swr_, frames);
    const size_t start = output.size();
    output.resize(start + size_t(std::max(capacity, 0)) * out_.frameBytes());
    uint8_t* outPlanes[1] = {output.data() + start};
    const uint8_t* inPlanes[1] = {input};
    int produced = swr_convert(swr_, outPlanes, capacity, inPlanes, frames);
    output.resize(start + size_t(std::max(produced, 0)) * out_.frameBytes());
}

void PcmConverter::reset() {
    if (swr_) configure(in_, out_);
}

} // namespace corvid::native
