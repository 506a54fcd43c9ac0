#include "platform/native/filters/Mp4Track.h"

extern "C" {
#include <libavutil/intreadwrite.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

namespace corvid::native {

namespace {
constexpr uint32_t tag(const char (&t)[5]) {
    return uint32_t(uint8_t(t[0])) << 24 | uint32_t(uint8_t(t[1])) << 16 |
           uint32_t(uint8_t(t[2])) << 8 | uint8_t(t[3]);
}
// A table read whole (times, chunk runs, the sample entry, the edit list, the tags) is small in
// any real file; a larger one is a damaged or unusual file, left to libavformat.
constexpr size_t kLargestReadBox = 4u << 20;
// Boxes looked at in one container before giving up on a damaged file.
constexpr int kMostBoxes = 4096;
constexpr uint32_t kSizeBlock = 1024; // size-table entries read at a time
constexpr uint32_t kLargestSample = 1u << 20;

struct Box {
    uint32_t type = 0;
    int64_t body = 0, end = 0;
};

// The boxes between `at` and `end`, in order; false when a header is damaged.
template <class Visit>
bool eachBox(ByteReader& reader, int64_t at, int64_t end, Visit visit) {
    for (int n = 0; at + 8 <= end; ++n) {
        if (n == kMostBoxes) return false;
        uint8_t h[16];
        if (reader.read(at, h, 8) != 8) return false;
        Box box;
        box.type = AV_RB32(h + 4);
        int64_t size = AV_RB32(h);
        box.body = at + 8;
        if (size == 1) {
            if (reader.read(at + 8, h + 8, 8) != 8) return false;
            size = int64_t(AV_RB64(h + 8));
            box.body += 8;
        } else if (size == 0) {
            size = end - at;
        }
        if (size < box.body - at || size > end - at) return false;
        box.end = at + size;
        if (!visit(box)) return true;
        at = box.end;
    }
    return true;
}

bool find(ByteReader& reader, int64_t at, int64_t end, uint32_t type, Box& found) {
    bool seen = false;
    const bool ok = eachBox(reader, at, end, [&](const Box& b) {
        if (b.type != type) return true;
        found = b;
        seen = true;
        return false;
    });
    return ok && seen;
}

bool readBody(ByteReader& reader, const Box& box, std::vector<uint8_t>& out) {
    const int64_t size = box.end - box.body;
    if (size < 0 || size_t(size) > kLargestReadBox) return false;
    out.resize(size_t(size));
    return size == 0 || reader.read(box.body, out.data(), int(size)) == int(size);
}

// The descriptor of `tag` at `at` in an esds body: its payload's start and length.
bool descriptor(const std::vector<uint8_t>& b, size_t& at, uint8_t tag, size_t& length) {
    if (at >= b.size() || b[at] != tag) return false;
    ++at;
    length = 0;
    for (int i = 0; i < 4; ++i) {
        if (at >= b.size()) return false;
        const uint8_t v = b[at++];
        length = length << 7 | (v & 0x7f);
        if (!(v & 0x80)) break;
    }
    return at + length <= b.size();
}

// The delay, padding and sample count an iTunes encoder writes in its iTunSMPB tag, from the
// ilst box; false when there is none.
bool iTunesGapless(ByteReader& reader, const Box& ilst, int64_t& delay, int64_t& samples) {
    bool found = false;
    eachBox(reader, ilst.body, ilst.end, [&](const Box& item) {
        if (item.type != tag("----")) return true;
        std::vector<uint8_t> body;
        if (!readBody(reader, item, body)) return true;
        // mean, name and data boxes: the name says what the data is.
        size_t at = 0;
        bool named = false;
        while (at + 8 <= body.size()) {
            const size_t size = AV_RB32(&body[at]);
            if (size < 8 || at + size > body.size()) break;
            const uint32_t type = AV_RB32(&body[at + 4]);
            const std::string text(body.begin() + long(at) + 8, body.begin() + long(at + size));
            if (type == tag("name")) named = text.size() >= 12 && text.compare(4, 8, "iTunSMPB") == 0;
            if (type == tag("data") && named && text.size() > 8) {
                unsigned zero = 0, d = 0, padding = 0;
                unsigned long long count = 0;
                found = std::sscanf(text.c_str() + 8, "%x %x %x %llx", &zero, &d, &padding, &count) == 4;
                delay = d;
                samples = int64_t(count);
            }
            at += size;
        }
        return !found;
    });
    return found && samples > 0;
}

} // namespace

Mp4Track::~Mp4Track() { avcodec_parameters_free(&params_); }

std::unique_ptr<Mp4Track> Mp4Track::open(std::shared_ptr<ByteReader> reader) {
    if (!reader->seekable() || reader->size() <= 0) return nullptr;
    std::unique_ptr<Mp4Track> track(new Mp4Track());
    track->reader_ = std::move(reader);
    ByteReader& r = *track->reader_;
    Box moov;
    if (!find(r, 0, r.size(), tag("moov"), moov) || !track->parseMoov(moov.body, moov.end))
        return nullptr;
    if (!track->locate(0)) return nullptr;
    return track;
}

bool Mp4Track::parseMoov(int64_t body, int64_t end) {
    ByteReader& r = *reader_;
    Box b, mvhd;
    if (find(r, body, end, tag("mvex"), b)) return false; // fragments: samples live outside
    if (!find(r, body, end, tag("mvhd"), mvhd)) return false;
    std::vector<uint8_t> v;
    if (!readBody(r, mvhd, v) || v.size() < 24) return false;
    const uint32_t movieScale = AV_RB32(&v[v[0] == 1 ? 20 : 12]);

    // The first sound track.
    Box trak, mdia, stbl;
    bool sound = false;
    eachBox(r, body, end, [&](const Box& t) {
        Box hdlr;
        std::vector<uint8_t> h;
        if (t.type != tag("trak") || !find(r, t.body, t.end, tag("mdia"), mdia) ||
            !find(r, mdia.body, mdia.end, tag("hdlr"), hdlr) || !readBody(r, hdlr, h) || h.size() < 12)
            return true;
        sound = AV_RB32(&h[8]) == tag("soun");
        trak = t;
        return !sound;
    });
    Box mdhd, minf;
    if (!sound || !find(r, mdia.body, mdia.end, tag("mdhd"), mdhd) ||
        !find(r, mdia.body, mdia.end, tag("minf"), minf) ||
        !find(r, minf.body, minf.end, tag("stbl"), stbl) || !readBody(r, mdhd, v) || v.size() < 24)
        return false;
    timescale_ = AV_RB32(&v[v[0] == 1 ? 20 : 12]);
    if (timescale_ == 0 || timescale_ > uint32_t(INT32_MAX) || movieScale == 0) return false;

    Box stsd, stts, stsc, stsz, stco;
    std::vector<uint8_t> entry, t, c;
    if (!find(r, stbl.body, stbl.end, tag("stsd"), stsd) || !readBody(r, stsd, entry) ||
        !parseSampleEntry(entry))
        return false;
    if (!find(r, stbl.body, stbl.end, tag("stts"), stts) || !readBody(r, stts, t) || t.size() < 8 ||
        !find(r, stbl.body, stbl.end, tag("stsc"), stsc) || !readBody(r, stsc, c) || c.size() < 8 ||
        !find(r, stbl.body, stbl.end, tag("stsz"), stsz) || stsz.end - stsz.body < 12)
        return false;
    wideOffsets_ = !find(r, stbl.body, stbl.end, tag("stco"), stco);
    if (wideOffsets_ && !find(r, stbl.body, stbl.end, tag("co64"), stco)) return false;

    const uint32_t runs = AV_RB32(&t[4]);
    if (runs == 0 || t.size() < 8 + size_t(runs) * 8) return false;
    int64_t total = 0;
    for (uint32_t i = 0; i < runs; ++i) {
        const Run run{AV_RB32(&t[8 + 8 * i]), AV_RB32(&t[12 + 8 * i])};
        if (run.count == 0) continue;
        if (run.delta == 0) return false;
        times_.push_back(run);
        total += int64_t(run.count) * run.delta;
    }
    const uint32_t chunkRuns = AV_RB32(&c[4]);
    if (chunkRuns == 0 || c.size() < 8 + size_t(chunkRuns) * 12) return false;
    for (uint32_t i = 0; i < chunkRuns; ++i) {
        const ChunkRun run{AV_RB32(&c[8 + 12 * i]) - 1, AV_RB32(&c[12 + 12 * i])};
        if (run.samples == 0 ||
            (i == 0 ? run.firstChunk != 0 : run.firstChunk <= chunks_.back().firstChunk))
            return false;
        chunks_.push_back(run);
    }

    uint8_t h[12], o[8];
    if (r.read(stsz.body, h, 12) != 12 || r.read(stco.body, o, 8) != 8) return false;
    fixedSize_ = AV_RB32(h + 4);
    sampleCount_ = AV_RB32(h + 8);
    sizesAt_ = stsz.body + 12;
    chunkCount_ = AV_RB32(o + 4);
    offsetsAt_ = stco.body + 8;
    if (sampleCount_ == 0 || (fixedSize_ == 0 && sizesAt_ + int64_t(sampleCount_) * 4 > stsz.end) ||
        offsetsAt_ + int64_t(chunkCount_) * (wideOffsets_ ? 8 : 4) > stco.end ||
        chunks_.back().firstChunk >= chunkCount_)
        return false;

    // Where the item starts and ends: one edit, or an iTunes encoder's gapless tag.
    end_ = total;
    Box edts, elst, udta, meta, ilst;
    if (find(r, trak.body, trak.end, tag("edts"), edts) && find(r, edts.body, edts.end, tag("elst"), elst)) {
        if (!readBody(r, elst, v) || v.size() < 8 || AV_RB32(&v[4]) != 1) return false;
        const bool wide = v[0] == 1;
        if (v.size() < (wide ? 28u : 20u)) return false;
        const int64_t length = wide ? int64_t(AV_RB64(&v[8])) : AV_RB32(&v[8]);
        const int64_t start = wide ? int64_t(AV_RB64(&v[16])) : int32_t(AV_RB32(&v[12]));
        if (start < 0 || start >= total) return false; // an empty edit shifts the item: unusual
        delay_ = start;
        if (length > 0)
            end_ = std::min(total, start + av_rescale(length, timescale_, movieScale));
    } else if (find(r, body, end, tag("udta"), udta) && find(r, udta.body, udta.end, tag("meta"), meta) &&
               find(r, meta.body + 4, meta.end, tag("ilst"), ilst)) {
        int64_t delay = 0, samples = 0;
        if (iTunesGapless(r, ilst, delay, samples) && delay + samples <= total) {
            delay_ = delay;
            end_ = delay + samples;
        }
    }
    return end_ > delay_;
}

bool Mp4Track::parseSampleEntry(const std::vector<uint8_t>& b) {
    // One entry, 'mp4a', the plain (version 0) sound description, then its esds box.
    if (b.size() < 8 + 36 || AV_RB32(&b[4]) != 1 || AV_RB32(&b[12]) != tag("mp4a")) return false;
    const size_t entryEnd = 8 + size_t(AV_RB32(&b[8]));
    if (entryEnd > b.size() || AV_RB16(&b[8 + 16]) != 0) return false;
    size_t at = 8 + 36;
    while (at + 8 <= entryEnd && AV_RB32(&b[at + 4]) != tag("esds")) {
        const size_t size = AV_RB32(&b[at]);
        if (size < 8) return false;
        at += size;
    }
    if (at + 12 > entryEnd) return false;
    const size_t esdsEnd = at + AV_RB32(&b[at]);
    if (esdsEnd < at + 12 || esdsEnd > entryEnd) return false;
    const std::vector<uint8_t> esds(b.begin() + long(at) + 12, b.begin() + long(esdsEnd));
    size_t p = 0, length = 0;
    if (!descriptor(esds, p, 0x03, length) || p + 3 > esds.size()) return false;
    const uint8_t flags = esds[p + 2];
    p += 3 + ((flags & 0x80) ? 2 : 0) + ((flags & 0x20) ? 2 : 0);
    if (flags & 0x40) p += 1 + (p < esds.size() ? esds[p] : 0);
    // MPEG-4 audio, then its AudioSpecificConfig: two bytes for AAC-LC, or five when they go on
    // to say that no SBR extension follows; an SBR or PS stream is left to libavformat.
    if (!descriptor(esds, p, 0x04, length) || length < 13 || esds[p] != 0x40) return false;
    p += 13;
    if (!descriptor(esds, p, 0x05, length) || (length != 2 && length != 5)) return false;
    const uint8_t* asc = &esds[p];
    if (length == 5 && ((asc[2] << 3 | asc[3] >> 5) != 0x2b7 || (asc[3] & 31) != 5 || (asc[4] & 0x80)))
        return false;
    const int objectType = asc[0] >> 3, rateIndex = (asc[0] & 7) << 1 | asc[1] >> 7;
    const int channelConfig = (asc[1] >> 3) & 15;
    static const int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                 22050, 16000, 12000, 11025, 8000, 7350};
    if (objectType != 2 || rateIndex > 12 || channelConfig < 1 || channelConfig > 7) return false;

    params_ = avcodec_parameters_alloc();
    if (!params_) return false;
    params_->codec_type = AVMEDIA_TYPE_AUDIO;
    params_->codec_id = AV_CODEC_ID_AAC;
    params_->sample_rate = kRates[rateIndex];
    params_->frame_size = 1024;
    av_channel_layout_default(&params_->ch_layout, channelConfig == 7 ? 8 : channelConfig);
    params_->extradata = static_cast<uint8_t*>(av_mallocz(length + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!params_->extradata) return false;
    std::memcpy(params_->extradata, asc, length);
    params_->extradata_size = int(length);
    return true;
}

uint32_t Mp4Track::sampleSize(uint32_t sample) {
    if (fixedSize_ != 0) return fixedSize_;
    if (sample < sizesFrom_ || sample - sizesFrom_ >= sizes_.size()) {
        const uint32_t count = std::min(kSizeBlock, sampleCount_ - sample);
        std::vector<uint8_t> b(size_t(count) * 4);
        if (reader_->read(sizesAt_ + int64_t(sample) * 4, b.data(), int(b.size())) != int(b.size()))
            return 0;
        sizes_.resize(count);
        for (uint32_t i = 0; i < count; ++i) sizes_[i] = AV_RB32(&b[4 * size_t(i)]);
        sizesFrom_ = sample;
    }
    return sizes_[sample - sizesFrom_];
}

int64_t Mp4Track::chunkOffset(uint32_t chunk) {
    uint8_t b[8];
    const int width = wideOffsets_ ? 8 : 4;
    if (chunk >= chunkCount_ || reader_->read(offsetsAt_ + int64_t(chunk) * width, b, width) != width)
        return -1;
    return wideOffsets_ ? int64_t(AV_RB64(b)) : int64_t(AV_RB32(b));
}

bool Mp4Track::locate(uint32_t sample) {
    if (sample >= sampleCount_) return false;
    // The chunk: runs of chunks with the same sample count.
    uint64_t first = 0;
    for (chunkRun_ = 0;; ++chunkRun_) {
        const ChunkRun& run = chunks_[chunkRun_];
        const uint32_t next = chunkRun_ + 1 < chunks_.size() ? chunks_[chunkRun_ + 1].firstChunk : chunkCount_;
        const uint64_t span = uint64_t(next - run.firstChunk) * run.samples;
        if (sample < first + span || chunkRun_ + 1 == chunks_.size()) {
            const uint64_t within = (sample - first) / run.samples;
            chunk_ = run.firstChunk + uint32_t(within);
            first += within * run.samples;
            chunkEnd_ = uint32_t(std::min<uint64_t>(sampleCount_, first + run.samples));
            break;
        }
        first += span;
    }
    offset_ = chunkOffset(chunk_);
    if (offset_ < 0) return false;
    // The sizes of the samples before it in its chunk (a muxer may put every sample of a
    // track in one chunk: then this reads the size table up to the sample, a few hundred
    // kilobytes for an hour).
    for (auto s = uint32_t(first); s < sample; ++s) offset_ += sampleSize(s);
    // The time: runs of samples with the same duration.
    time_ = 0;
    uint32_t before = sample;
    for (timeRun_ = 0; timeRun_ < times_.size() && before >= times_[timeRun_].count; ++timeRun_) {
        before -= times_[timeRun_].count;
        time_ += int64_t(times_[timeRun_].count) * times_[timeRun_].delta;
    }
    if (timeRun_ == times_.size()) return false;
    time_ += int64_t(before) * times_[timeRun_].delta;
    timeRunLeft_ = times_[timeRun_].count - before;
    sample_ = sample;
    return true;
}

bool Mp4Track::read(AVPacket* packet) {
    if (sample_ >= sampleCount_ || time_ >= end_ || timeRun_ >= times_.size()) return false;
    if (sample_ == chunkEnd_) { // the next chunk
        ++chunk_;
        if (chunkRun_ + 1 < chunks_.size() && chunk_ >= chunks_[chunkRun_ + 1].firstChunk) ++chunkRun_;
        chunkEnd_ = std::min(sampleCount_, sample_ + chunks_[chunkRun_].samples);
        offset_ = chunkOffset(chunk_);
        if (offset_ < 0) return false;
    }
    const uint32_t size = sampleSize(sample_);
    const uint32_t duration = times_[timeRun_].delta;
    if (size == 0 || size > kLargestSample || av_new_packet(packet, int(size)) < 0) return false;
    if (reader_->read(offset_, packet->data, int(size)) != int(size)) {
        av_packet_unref(packet);
        return false;
    }
    packet->pts = packet->dts = time_;
    packet->duration = duration;
    packet->flags |= AV_PKT_FLAG_KEY;
    // The decoder drops the delay from the first packets and the padding from the last: what
    // its whole frame holds past the end (the table may give the last packet a shorter time).
    const int64_t skip = sample_ == 0 ? delay_ : 0;
    const int64_t frame = av_rescale(params_->frame_size, timescale_, params_->sample_rate);
    const int64_t padding = std::max<int64_t>(0, time_ + frame - end_);
    if (skip > 0 || padding > 0) {
        uint8_t* side = av_packet_new_side_data(packet, AV_PKT_DATA_SKIP_SAMPLES, 10);
        if (side) {
            const AVRational samples{1, params_->sample_rate};
            AV_WL32(side, uint32_t(av_rescale_q(skip, timeBase(), samples)));
            AV_WL32(side + 4, uint32_t(av_rescale_q(padding, timeBase(), samples)));
        }
    }
    offset_ += size;
    time_ += duration;
    ++sample_;
    if (--timeRunLeft_ == 0 && ++timeRun_ < times_.size()) timeRunLeft_ = times_[timeRun_].count;
    return true;
}

void Mp4Track::seek(int64_t time, int leadPackets) {
    uint32_t sample = 0;
    int64_t at = 0;
    for (const Run& run : times_) { // the packet that holds `time`
        const int64_t span = int64_t(run.count) * run.delta;
        if (time < at + span) {
            sample += uint32_t(std::max<int64_t>(0, time - at) / std::max<uint32_t>(run.delta, 1));
            break;
        }
        at += span;
        sample += run.count;
    }
    sample = sample > uint32_t(leadPackets) ? sample - uint32_t(leadPackets) : 0;
    if (!locate(std::min(sample, sampleCount_ - 1))) sample_ = sampleCount_;
}

} // namespace corvid::native
