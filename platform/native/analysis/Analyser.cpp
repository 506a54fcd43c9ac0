#include "platform/native/analysis/Analyser.h"

#include "platform/native/filters/FFmpeg.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

namespace corvid::native {

namespace {
constexpr int32_t kDefaultThreshold = 500;
// The segue scan's first window from the end: most items end within two seconds of their
// last sound. While a window is all quiet, the next one reaches as far again back.
constexpr double kFirstWindowSeconds = 2.0;
// Decoded before a window and not listened to: a decoder that starts after a seek needs a
// frame or two to sound right.
constexpr double kPrerollSeconds = 0.1;
// A window reaches this far into the one after it, so that a run of sound that crosses the
// border is heard whole.
constexpr double kOverlapSeconds =
    SoundDetector::kHoldSeconds + SoundDetector::kGapSeconds + 0.05;

int32_t toMs(int64_t sample, int rate) {
    const double ms = std::round(double(sample) * 1000.0 / rate);
    return int32_t(std::clamp(ms, 0.0, double(std::numeric_limits<int32_t>::max())));
}

// Decodes from where `audio` stands and feeds the detector the samples in [from, until)
// (sample indices), until `done` holds, the end, or a cancel.
template <class Done>
void listen(DecodedAudio& audio, SoundDetector& detector, int64_t from, int64_t until,
            const std::atomic<bool>& cancel, Done done) {
    const PcmFormat f = audio.format();
    bool reachedUntil = false;
    auto sink = [&](std::vector<uint8_t>&& bytes, double time) {
        int64_t first = std::llround(time * f.rate);
        const float* s = reinterpret_cast<const float*>(bytes.data());
        int64_t frames = int64_t(bytes.size() / size_t(f.frameBytes()));
        if (first < from) {
            const int64_t skip = std::min(frames, from - first);
            s += skip * f.channels;
            frames -= skip;
            first += skip;
        }
        if (until != std::numeric_limits<int64_t>::max())
            frames = std::min(frames, std::max<int64_t>(0, until - first));
        if (first + frames >= until) reachedUntil = true;
        if (frames > 0) detector.feed(first, s, size_t(frames));
    };
    while (!cancel.load() && !reachedUntil && !done() && audio.next(sink)) {}
}

} // namespace

// ---------------------------------------------------------------- detector

SoundDetector::SoundDetector(int rate, int channels, int32_t threshold)
    : rate_(rate), channels_(channels),
      threshold_(float(threshold < 1 ? kDefaultThreshold : threshold)),
      hold_(std::llround(kHoldSeconds * rate)), gap_(std::llround(kGapSeconds * rate)),
      pole_(float(std::exp(-2.0 * M_PI * kHighPassHz / rate))), lastIn_(size_t(channels)),
      lastOut_(size_t(channels)) {}

void SoundDetector::feed(int64_t first, const float* samples, size_t frames) {
    if (frames == 0) return;
    if (!primed_) { // a level present from the first sample on is an offset, not a start
        std::copy(samples, samples + channels_, lastIn_.begin());
        primed_ = true;
    }
    switch (channels_) {
    case 1: return feedFrames<1>(first, samples, frames);
    case 2: return feedFrames<2>(first, samples, frames);
    default: return feedFrames<0>(first, samples, frames);
    }
}

// The filter's state lives in locals while a block is fed (kept in the members, it was stored
// and reloaded every frame, as the samples might alias it). The frames go in slices no longer
// than the longest quiet gap: within one slice a gap cannot end a run, so a slice needs only
// its first and last loud frame, and the per-frame work is the filter and a maximum, without a
// branch. `Channels` 0 is any count up to kMaxChannels.
template <int Channels>
void SoundDetector::feedFrames(int64_t first, const float* samples, size_t frames) {
    const size_t stride = Channels > 0 ? size_t(Channels) : size_t(channels_);
    const size_t ch = std::min(stride, size_t(kMaxChannels));
    float in[kMaxChannels], out[kMaxChannels], peaks[kSliceFrames];
    std::copy(lastIn_.begin(), lastIn_.begin() + long(ch), in);
    std::copy(lastOut_.begin(), lastOut_.begin() + long(ch), out);
    const float pole = pole_, level = threshold_ / 32768.0f;
    const size_t slice = size_t(std::clamp<int64_t>(gap_, 1, kSliceFrames));
    for (size_t from = 0; from < frames; from += slice) {
        const size_t count = std::min(slice, frames - from);
        float loudest = 0;
        for (size_t i = 0; i < count; ++i) {
            const float* frame = samples + (from + i) * stride;
            float peak = 0;
            for (size_t c = 0; c < (Channels > 0 ? size_t(Channels) : ch); ++c) {
                const float y = frame[c] - in[c] + pole * out[c];
                in[c] = frame[c];
                out[c] = y;
                peak = std::max(peak, std::fabs(y));
            }
            peaks[i] = peak;
            loudest = std::max(loudest, peak);
        }
        if (loudest < level) continue;
        size_t firstLoud = 0, lastLoud = count - 1;
        while (peaks[firstLoud] < level) ++firstLoud;
        while (peaks[lastLoud] < level) --lastLoud;
        const int64_t at = first + int64_t(from);
        if (runStart_ >= 0 && at + int64_t(firstLoud) - runLast_ > gap_) close();
        if (runStart_ < 0) runStart_ = at + int64_t(firstLoud);
        runLast_ = at + int64_t(lastLoud);
        if (firstSound_ < 0 && runLast_ - runStart_ >= hold_) firstSound_ = runStart_;
    }
    std::copy(in, in + ch, lastIn_.begin());
    std::copy(out, out + ch, lastOut_.begin());
}

void SoundDetector::close() {
    if (runStart_ >= 0 && runLast_ - runStart_ >= hold_) {
        if (firstSound_ < 0) firstSound_ = runStart_;
        soundEnd_ = runLast_ + 1;
    }
    runStart_ = runLast_ = -1;
}

void SoundDetector::finish() { close(); }

// ---------------------------------------------------------------- scans

const std::vector<std::string>& scannableFormats() {
    static const std::vector<std::string> formats = {"mp3", "wav", "ogg",
                                                     "mov,mp4,m4a,3gp,3g2,mj2", "flac", "asf"};
    return formats;
}

int32_t findCueIn(DecodedAudio& audio, int32_t threshold, const std::atomic<bool>& cancel) {
    const PcmFormat f = audio.format();
    SoundDetector detector(f.rate, f.channels, threshold);
    listen(audio, detector, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max(),
           cancel, [&] { return detector.firstSound() >= 0; });
    detector.finish();
    if (cancel.load() || detector.firstSound() < 0) return -1;
    return toMs(detector.firstSound(), f.rate);
}

int32_t findSegue(DecodedAudio& audio, int32_t threshold, const std::atomic<bool>& cancel) {
    const PcmFormat f = audio.format();
    const double length = audio.durationSeconds();
    // Windows backwards from the end: [start, end), the first one open to the real end (a
    // declared length can be short of it).
    double end = std::numeric_limits<double>::infinity();
    for (double window = kFirstWindowSeconds;; window *= 2) {
        const double start = std::max(0.0, length - window);
        if (!audio.seek(std::max(0.0, start - kPrerollSeconds)) && !audio.seek(0)) return -1;
        SoundDetector detector(f.rate, f.channels, threshold);
        const int64_t until = std::isinf(end) ? std::numeric_limits<int64_t>::max()
                                              : std::llround((end + kOverlapSeconds) * f.rate);
        listen(audio, detector, std::llround(start * f.rate), until, cancel, [] { return false; });
        if (cancel.load()) return -1;
        detector.finish();
        if (detector.soundEnd() >= 0) return toMs(detector.soundEnd(), f.rate);
        if (start <= 0) return -1;
        end = start;
    }
}

ItemScanner::ItemScanner() = default;
ItemScanner::~ItemScanner() = default;

DecodedAudio* ItemScanner::open(const std::string& file, bool fresh) {
    std::error_code error;
    const int64_t size = int64_t(std::filesystem::file_size(file, error));
    const int64_t modified =
        error ? 0 : int64_t(std::filesystem::last_write_time(file, error).time_since_epoch().count());
    if (!fresh && audio_ && !error && file == file_ && size == size_ && modified == modified_)
        return audio_.get();
    release();
    if (!DecodedAudio::openFile(file, scannableFormats(), audio_)) {
        audio_.reset();
        return nullptr;
    }
    file_ = file;
    size_ = error ? -1 : size;
    modified_ = modified;
    return audio_.get();
}

void ItemScanner::release() {
    audio_.reset();
    file_.clear();
    size_ = -1;
}

int32_t ItemScanner::cueIn(const std::string& file, int32_t threshold,
                           const std::atomic<bool>& cancel) {
    // From a fresh open: a decoder started by a seek to the start can sound different for its
    // first frame (no priming before it), which would move a cue-in near the start.
    DecodedAudio* audio = open(file, true);
    if (!audio) return -1;
    return findCueIn(*audio, threshold, cancel);
}

int32_t ItemScanner::segue(const std::string& file, int32_t threshold,
                           const std::atomic<bool>& cancel) {
    DecodedAudio* audio = open(file, false);
    return audio ? findSegue(*audio, threshold, cancel) : -1;
}

int32_t scanCueIn(const std::string& file, int32_t threshold, const std::atomic<bool>& cancel) {
    return ItemScanner().cueIn(file, threshold, cancel);
}

int32_t scanSegue(const std::string& file, int32_t threshold, const std::atomic<bool>& cancel) {
    return ItemScanner().segue(file, threshold, cancel);
}

platform::Status analyseItem(const std::string& file, int32_t cueThreshold, int32_t segueThreshold,
                             ItemPoints& points, const std::atomic<bool>& cancel) {
    points = ItemPoints{};
    std::unique_ptr<DecodedAudio> audio;
    platform::Status s = DecodedAudio::openFile(file, scannableFormats(), audio);
    if (!s) return s;
    points.durationSeconds = audio->durationSeconds();
    points.cueInMs = findCueIn(*audio, cueThreshold, cancel);
    points.segueMs = findSegue(*audio, segueThreshold, cancel);
    return platform::Status::success();
}

} // namespace corvid::native
