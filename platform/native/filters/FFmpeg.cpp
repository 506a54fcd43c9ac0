#include "platform/native/filters/FFmpeg.h"

#include <chrono>
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

int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
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

CodecParams::CodecParams(const AVCodecParameters* source, AVRational tb)
    : params(avcodec_parameters_alloc()), timeBase(tb) {
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

    d->format_ = avformat_alloc_context();
    d->format_->pb = d->io_;
    d->format_->flags |= AVFMT_FLAG_CUSTOM_IO;
    d->format_->interrupt_callback = {&Demuxer::interrupt, d.get()};
    AVDictionary* options = nullptr;
    av_dict_set(&options, "format_whitelist", allowed.c_str(), 0);
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    av_dict_set(&options, "probesize", std::to_string(kProbeBytes).c_str(), 0);
    av_dict_set(&options, "analyzeduration", "3000000", 0);
    ret = avformat_open_input(&d->format_, nullptr, input, &options);
    av_dict_free(&options);
    if (ret < 0) {
        d->format_ = nullptr; // freed by avformat_open_input
        return Status::failure(hr::InvalidFileFormat,
                               "The header of " + path + " cannot be read (" + ffmpegError(ret) + ").");
    }
    ret = avformat_find_stream_info(d->format_, nullptr);
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
    d->codec_ = std::make_shared<CodecParams>(par, st->time_base);

    d->pending_ = av_packet_alloc();
    if (!d->read(d->pending_)) {
        av_packet_free(&d->pending_);
        return Status::failure(hr::InvalidFileFormat, path + " holds no audio data.");
    }
    if (st->duration != AV_NOPTS_VALUE && st->duration > 0)
        d->duration_ = st->duration * av_q2d(st->time_base);
    else if (d->format_->duration > 0)
        d->duration_ = d->format_->duration / double(AV_TIME_BASE);
    d->deadlineMs_ = 0;
    demuxer = std::move(d);
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
    for (;;) {
        int ret = av_read_frame(format_, packet);
        if (ret < 0) return false;
        if (packet->stream_index == streamIndex_) return true;
        av_packet_unref(packet);
    }
}

Status Demuxer::seek(double seconds) {
    if (pending_) av_packet_free(&pending_);
    // As the ffmpeg tools seek: in AV_TIME_BASE units over the whole container, landing at or
    // before the target (every demuxer takes this form; a per-stream seek fails quietly in Ogg).
    int64_t target = int64_t(seconds * AV_TIME_BASE);
    if (format_->start_time != AV_NOPTS_VALUE) target += format_->start_time;
    int ret = avformat_seek_file(format_, -1, INT64_MIN, target, target, 0);
    if (ret < 0) ret = avformat_seek_file(format_, -1, INT64_MIN, target, INT64_MAX, 0);
    if (ret < 0) return Status::failure(hr::Fail, "Seek failed: " + ffmpegError(ret));
    return Status::success();
}

double Demuxer::toSeconds(int64_t pts) const {
    const AVStream* st = stream();
    if (pts == AV_NOPTS_VALUE) return 0;
    if (st->start_time != AV_NOPTS_VALUE) pts -= st->start_time;
    return pts * av_q2d(st->time_base);
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
}

void AudioDecoder::decode(const AVPacket* packet,
                          const std::function<void(std::vector<uint8_t>&&, double)>& sink) {
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
        const bool stamped = frame_->best_effort_timestamp != AV_NOPTS_VALUE;
        if (stamped) time = frame_->best_effort_timestamp * av_q2d(timeBase_);
        else trimBefore_ = -1; // without a time there is nothing to trim by
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
            const auto skip = size_t(std::max(0.0, (trimBefore_ - time) * out_.rate));
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
