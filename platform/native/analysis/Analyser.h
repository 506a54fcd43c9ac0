#pragma once
// Cue-in and segue points of an item: where its audio really starts, and where its ending
// becomes quiet. Both are found by decoding as little as can hold the answer: the cue-in scan
// stops at the first sound, the segue scan seeks near the end and decodes a short window,
// widening it only while the window is all quiet. The `CueHelper` and corvid-analyse run these
// same scans, so that a library import and the player's events agree.
//
// Positions are on the item's one timeline (the decoder's: encoder delay and padding removed),
// so they match the playback position and seeks of the same item.

#include "platform/Status.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace corvid::native {

class DecodedAudio;

// Sound, as the scans hear it: the magnitude of a sample after DC removal (a high-pass well
// below the audible range) reaches the threshold on the 16-bit scale, in a run of such samples
// that lasts at least kHoldSeconds with no quiet gap longer than kGapSeconds. An isolated click
// or a DC offset is not sound; a slow fade-in is sound from the first sample that reaches the
// threshold.
class SoundDetector {
public:
    static constexpr double kHoldSeconds = 0.020;
    static constexpr double kGapSeconds = 0.040;
    static constexpr double kHighPassHz = 5.0;

    // A threshold below 1 is the default level, 500.
    SoundDetector(int rate, int channels, int32_t threshold);
    // Interleaved float frames; `first` is the index (from the item's start) of the first one.
    void feed(int64_t first, const float* samples, size_t frames);
    // Closes the run in progress (call after the last feed).
    void finish();

    // The first sample of the first run of sound, once confirmed; -1 until then.
    int64_t firstSound() const { return firstSound_; }
    // One past the last sample of the last confirmed run; -1 when none (after finish()).
    int64_t soundEnd() const { return soundEnd_; }

    // The most channels a detector hears (the decoder's limit); any more are not listened to.
    static constexpr int kMaxChannels = 8;

private:
    template <int Channels>
    void feedFrames(int64_t first, const float* samples, size_t frames);
    void close();
    static constexpr int64_t kSliceFrames = 256;

    int rate_, channels_;
    float threshold_;
    int64_t hold_, gap_;
    float pole_;
    std::vector<float> lastIn_, lastOut_;
    bool primed_ = false;
    int64_t runStart_ = -1, runLast_ = -1;
    int64_t firstSound_ = -1, soundEnd_ = -1;
};

// Scans of an opened item (positioned anywhere); milliseconds from the start, -1 when there is
// no sound or `cancel` was set. `cancel` is read between packets.
int32_t findCueIn(DecodedAudio& audio, int32_t threshold, const std::atomic<bool>& cancel);
int32_t findSegue(DecodedAudio& audio, int32_t threshold, const std::atomic<bool>& cancel);

// The formats a scan opens.
const std::vector<std::string>& scannableFormats();

// Scans of items by name. A cue-in scan opens the item and leaves it open, so that a segue scan
// of the same item after it does not open it again (an MP4 reads its whole sample table at
// open); an item whose size or modification time changed since is opened afresh. One thread at
// a time.
class ItemScanner {
public:
    ItemScanner();
    ~ItemScanner();
    int32_t cueIn(const std::string& file, int32_t threshold, const std::atomic<bool>& cancel);
    int32_t segue(const std::string& file, int32_t threshold, const std::atomic<bool>& cancel);
    // Closes the item kept open.
    void release();

private:
    // The item, kept open unless `fresh`, else opened now; null when it cannot be read.
    DecodedAudio* open(const std::string& file, bool fresh);

    std::string file_;
    int64_t size_ = -1, modified_ = 0;
    std::unique_ptr<DecodedAudio> audio_;
};

// One scan of `file`, opened for it alone.
int32_t scanCueIn(const std::string& file, int32_t threshold, const std::atomic<bool>& cancel);
int32_t scanSegue(const std::string& file, int32_t threshold, const std::atomic<bool>& cancel);

// Everything a library import asks of one item, from one open.
struct ItemPoints {
    int32_t cueInMs = -1;
    int32_t segueMs = -1;
    double durationSeconds = 0;
};
platform::Status analyseItem(const std::string& file, int32_t cueThreshold, int32_t segueThreshold,
                             ItemPoints& points, const std::atomic<bool>& cancel);

} // namespace corvid::native
