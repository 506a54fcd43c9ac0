// End to end through a real sound server: graphs built through the platform interfaces the
// way the format chains build them, played to null sinks whose monitors are recorded.

#include "NativeTestSupport.h"

#include "platform/native/NativeCatalogue.h"

#include <cmath>
#include <fstream>

namespace corvid::native::test {
namespace {

using platform::FilterPtr;
using platform::GraphEvent;
using platform::PinDirection;
using platform::PinPtr;

class NativePlayback : public ::testing::Test {
protected:
    void SetUp() override {
        if (!soundServerUp()) GTEST_SKIP() << "no private sound server";
        platform_ = std::make_unique<NativePlatform>(testOptions());
        ASSERT_TRUE(platform_->createGraph(graph_));
        graph_->setEventHandler([this](GraphEvent e) {
            if (e == GraphEvent::EndOfStream) ++ends_;
            if (e == GraphEvent::DeviceLost) ++lost_;
        });
    }
    void TearDown() override {
        graph_.reset();
        platform_.reset();
    }

    FilterPtr create(const std::string& name) {
        std::vector<platform::CatalogueEntryPtr> entries;
        EXPECT_TRUE(platform_->catalogue().enumerate(platform::category::LegacyFilters, entries));
        for (auto& e : entries)
            if (e->name() == name) {
                FilterPtr f;
                EXPECT_TRUE(e->createIn(*graph_, f)) << name;
                return f;
            }
        ADD_FAILURE() << "not registered: " << name;
        return nullptr;
    }

    FilterPtr renderer(const std::string& name) {
        std::vector<platform::CatalogueEntryPtr> entries;
        EXPECT_TRUE(platform_->catalogue().enumerateRenderersWithPairs(entries));
        for (auto& e : entries)
            if (e->name() == name) {
                FilterPtr f;
                EXPECT_TRUE(e->createIn(*graph_, f)) << name;
                return f;
            }
        ADD_FAILURE() << "no device: " << name;
        return nullptr;
    }

    // The last pin of a direction, as the chains look pins up.
    static PinPtr pin(const FilterPtr& f, PinDirection d) {
        PinPtr found;
        for (auto& p : f->pins())
            if (p->direction() == d) found = p;
        return found;
    }

    // source (loaded with `file`) -> each named filter -> grabber -> renderer, all direct.
    void build(const std::string& file, const std::vector<std::string>& names, const FilterPtr& render) {
        source_ = create(names.front());
        ASSERT_TRUE(source_);
        const auto loaded = source_->setFileName(file);
        ASSERT_TRUE(loaded) << loaded.description;
        FilterPtr previous = source_;
        std::vector<std::string> rest(names.begin() + 1, names.end());
        rest.push_back("Halden Sample Grabber");
        for (auto& name : rest) {
            FilterPtr next = create(name);
            ASSERT_TRUE(next);
            const auto s = pin(previous, PinDirection::Output)->connectDirect(pin(next, PinDirection::Input));
            ASSERT_TRUE(s) << previous->name() << " -> " << name << ": " << s.description;
            previous = next;
        }
        grabber_ = previous;
        const auto s = pin(grabber_, PinDirection::Output)->connectDirect(pin(render, PinDirection::Input));
        ASSERT_TRUE(s) << s.description;
    }

    std::vector<float> playToEnd(const std::string& sink, int channels) {
        MonitorRecorder recorder(sink, channels);
        EXPECT_TRUE(graph_->run());
        EXPECT_TRUE(pumpUntil(*platform_, [&] { return ends_ > 0; }, 15000)) << "no end of stream";
        return recorder.stop();
    }

    std::unique_ptr<NativePlatform> platform_;
    platform::GraphPtr graph_;
    FilterPtr source_, grabber_;
    int ends_ = 0, lost_ = 0;
};

struct FormatCase {
    const char* file;
    std::vector<std::string> chain;
};

class NativeFormats : public NativePlayback, public ::testing::WithParamInterface<FormatCase> {};

TEST_P(NativeFormats, ToneArrivesWithItsFrequencyAndLevelAndEndsOnce) {
    const auto& c = GetParam();
    ASSERT_NO_FATAL_FAILURE(build(mediaPath(c.file), c.chain, renderer(kSinkADescription)));
    double duration = 0;
    ASSERT_TRUE(graph_->duration(duration));
    EXPECT_NEAR(duration, kToneSeconds, 0.15);

    const auto samples = playToEnd(kSinkA, 2);
    for (int ch = 0; ch < 2; ++ch) {
        const auto m = measureTone(samples, 2, ch, MonitorRecorder::kRate);
        EXPECT_NEAR(m.frequency, kToneHz, 10) << c.file << " channel " << ch;
        EXPECT_NEAR(m.peak, kToneAmplitude, 0.06) << c.file << " channel " << ch;
        EXPECT_NEAR(m.loudSeconds, kToneSeconds, 0.3) << c.file << " channel " << ch;
    }
    // The end is reported once, however long the loop keeps running.
    pumpUntil(*platform_, [] { return false; }, 300);
    EXPECT_EQ(ends_, 1);
    double position = 0;
    graph_->currentPosition(position);
    EXPECT_NEAR(position, kToneSeconds, 0.2);
}

INSTANTIATE_TEST_SUITE_P(
    EveryFormat, NativeFormats,
    ::testing::Values(
        FormatCase{"tone.wav", {"File Source (Async.)", "Wave Parser"}},
        FormatCase{"tone.mp3", {"File Source (Async.)", "MPEG-I Stream Splitter", "MPEG Layer-3 Decoder"}},
        FormatCase{"tone.mp3", {"Halden WM ASF Reader"}},
        FormatCase{"tone.mpg", {"File Source (Async.)", "MPEG-I Stream Splitter", "MPEG Layer-3 Decoder"}},
        FormatCase{"tone.flac", {"Native FLAC Decoder"}},
        FormatCase{"tone.ogg", {"OggDSFMux2", "dsf Ogg Demuxer2+", "Xiph.Org Vorbis Decoder PLUS"}},
        FormatCase{"tone.m4a",
                   {"File Source (Async.)", "GDCL Mpeg-4 Demultiplexor2", "Microsoft DTV-DVD Audio Decoder"}},
        FormatCase{"tone.wma", {"WM ASF READER", "WMAudio Decoder DMO"}},
        FormatCase{"tone.wma", {"WM ASF READER"}}),
    [](const auto& info) {
        std::string n = std::string(info.param.file) + "_" + std::to_string(info.param.chain.size());
        for (auto& c : n)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        return n;
    });

TEST_F(NativePlayback, ASeekBeforeRunStartsCompressedItemsWhereAsked) {
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"tone.mp3", {"File Source (Async.)", "MPEG-I Stream Splitter", "MPEG Layer-3 Decoder"}},
        {"tone.ogg", {"OggDSFMux2", "dsf Ogg Demuxer2+", "Xiph.Org Vorbis Decoder PLUS"}},
        {"tone.m4a", {"File Source (Async.)", "GDCL Mpeg-4 Demultiplexor2", "Microsoft DTV-DVD Audio Decoder"}},
        {"tone.flac", {"Native FLAC Decoder"}},
    };
    for (const auto& [file, chain] : cases) {
        SCOPED_TRACE(file);
        platform_->createGraph(graph_);
        graph_->setEventHandler([this](GraphEvent e) { ends_ += e == GraphEvent::EndOfStream; });
        ends_ = 0;
        ASSERT_NO_FATAL_FAILURE(build(mediaPath(file), chain, renderer(kSinkADescription)));
        ASSERT_TRUE(graph_->setCurrentPosition(1.2));
        double position = 0;
        graph_->currentPosition(position);
        EXPECT_DOUBLE_EQ(position, 1.2);
        const auto m = measureTone(playToEnd(kSinkA, 2), 2, 0, MonitorRecorder::kRate);
        EXPECT_NEAR(m.loudSeconds, kToneSeconds - 1.2, 0.15);
        EXPECT_NEAR(m.frequency, kToneHz, 10);
    }
}

TEST_F(NativePlayback, VolumeMinus600LowersTheToneBySixDecibels) {
    ASSERT_NO_FATAL_FAILURE(build(mediaPath("tone.wav"), {"File Source (Async.)", "Wave Parser"},
                                  renderer(kSinkADescription)));
    ASSERT_TRUE(graph_->setVolume(-600));
    int32_t v = 0;
    graph_->volume(v);
    EXPECT_EQ(v, -600);
    const auto m = measureTone(playToEnd(kSinkA, 2), 2, 0, MonitorRecorder::kRate);
    EXPECT_NEAR(20 * std::log10(m.peak / kToneAmplitude), -6.0, 0.7);
    EXPECT_FALSE(graph_->setVolume(1));
    EXPECT_FALSE(graph_->setVolume(-10001));
}

TEST_F(NativePlayback, SpeakerPairThreeFourCarriesTheToneOnChannelsThreeAndFourOnly) {
    auto render = renderer(std::string(kSink8Description) + " [3-4]");
    ASSERT_TRUE(render);
    ASSERT_NO_FATAL_FAILURE(build(mediaPath("tone.wav"), {"File Source (Async.)", "Wave Parser"}, render));
    // The surround insert: the router between the grabber and the renderer.
    auto router = create("Sondrel 3-4");
    auto in = pin(render, PinDirection::Input);
    auto feeding = in->connectedTo();
    ASSERT_TRUE(in->disconnect());
    ASSERT_TRUE(feeding->connectDirect(pin(router, PinDirection::Input)));
    ASSERT_TRUE(pin(router, PinDirection::Output)->connectDirect(in));

    const auto samples = playToEnd(kSink8, 8);
    for (int ch = 0; ch < 8; ++ch) {
        const auto m = measureTone(samples, 8, ch, MonitorRecorder::kRate);
        if (ch == 2 || ch == 3) {
            EXPECT_NEAR(m.frequency, kToneHz, 10) << "channel " << ch + 1;
            EXPECT_NEAR(m.peak, kToneAmplitude, 0.06) << "channel " << ch + 1;
        } else {
            EXPECT_EQ(m.loudSeconds, 0) << "channel " << ch + 1 << " should be silent";
        }
    }
}

TEST_F(NativePlayback, PitchShifterRateKeepsTheFrequencyAndShortensThePlayingTime) {
    ASSERT_NO_FATAL_FAILURE(build(mediaPath("tone.wav"),
                                  {"File Source (Async.)", "Wave Parser", "Brindle Pitch Shifter"},
                                  renderer(kSinkADescription)));
    FilterPtr shifter;
    for (auto& f : graph_->filters())
        if (f->name() == "Brindle Pitch Shifter") shifter = f;
    ASSERT_TRUE(shifter && shifter->pitchShifter());
    ASSERT_TRUE(shifter->pitchShifter()->setRate(1.25));
    const auto m = measureTone(playToEnd(kSinkA, 2), 2, 0, MonitorRecorder::kRate);
    EXPECT_NEAR(m.frequency, kToneHz, 12);
    EXPECT_NEAR(m.loudSeconds, kToneSeconds / 1.25, 0.25);
    double position = 0;
    graph_->currentPosition(position);
    EXPECT_NEAR(position, kToneSeconds, 0.25) << "the position counts media time";
}

TEST_F(NativePlayback, PitchShifterMovesThePitchByOctavesAndPassThroughLeavesItAlone) {
    ASSERT_NO_FATAL_FAILURE(build(mediaPath("tone.wav"),
                                  {"File Source (Async.)", "Wave Parser", "Brindle Pitch Shifter"},
                                  renderer(kSinkADescription)));
    FilterPtr shifter;
    for (auto& f : graph_->filters())
        if (f->name() == "Brindle Pitch Shifter") shifter = f;
    auto* control = shifter->pitchShifter();
    ASSERT_TRUE(control->setPitchSemitones(-12));
    EXPECT_EQ(control->pitchSemitones(), -12);
    auto m = measureTone(playToEnd(kSinkA, 2), 2, 0, MonitorRecorder::kRate);
    EXPECT_NEAR(m.frequency, kToneHz / 2, 10);
    EXPECT_NEAR(m.loudSeconds, kToneSeconds, 0.25);

    ASSERT_TRUE(graph_->stop());
    ASSERT_TRUE(graph_->setCurrentPosition(0));
    ASSERT_TRUE(control->setRate(1.5));
    ASSERT_TRUE(control->setPassThrough(true));
    EXPECT_TRUE(control->passThrough());
    ends_ = 0;
    m = measureTone(playToEnd(kSinkA, 2), 2, 0, MonitorRecorder::kRate);
    EXPECT_NEAR(m.frequency, kToneHz, 10);
    EXPECT_NEAR(m.loudSeconds, kToneSeconds, 0.25);
    EXPECT_FALSE(control->setRate(0));
}

TEST_F(NativePlayback, GraphRateSpeedsThePlayUpPitchAndAll) {
    ASSERT_NO_FATAL_FAILURE(build(mediaPath("tone.wav"), {"File Source (Async.)", "Wave Parser"},
                                  renderer(kSinkADescription)));
    ASSERT_TRUE(graph_->setRate(1.25));
    double rate = 0;
    graph_->rate(rate);
    EXPECT_EQ(rate, 1.25);
    const auto m = measureTone(playToEnd(kSinkA, 2), 2, 0, MonitorRecorder::kRate);
    EXPECT_NEAR(m.frequency, kToneHz * 1.25, 15);
    EXPECT_NEAR(m.loudSeconds, kToneSeconds / 1.25, 0.25);
    EXPECT_FALSE(graph_->setRate(0));
}

TEST_F(NativePlayback, PauseHoldsThePositionAndSeekMovesIt) {
    ASSERT_NO_FATAL_FAILURE(build(mediaPath("tone.wav"), {"File Source (Async.)", "Wave Parser"},
                                  renderer(kSinkADescription)));
    ASSERT_TRUE(graph_->run());
    pumpUntil(*platform_, [] { return false; }, 500);
    ASSERT_TRUE(graph_->pause());
    EXPECT_EQ(graph_->state(), platform::GraphState::Paused);
    double a = 0, b = 0;
    graph_->currentPosition(a);
    pumpUntil(*platform_, [] { return false; }, 300);
    graph_->currentPosition(b);
    EXPECT_GT(a, 0.2);
    EXPECT_DOUBLE_EQ(a, b) << "a paused graph does not move";

    ASSERT_TRUE(graph_->setCurrentPosition(1.5));
    graph_->currentPosition(a);
    EXPECT_DOUBLE_EQ(a, 1.5);
    ASSERT_TRUE(graph_->run());
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return ends_ > 0; }, 5000));
    EXPECT_EQ(ends_, 1);

    // A seek after the end plays the rest again and ends once more.
    ASSERT_TRUE(graph_->setCurrentPosition(1.8));
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return ends_ > 1; }, 5000));
    EXPECT_EQ(ends_, 2);

    ASSERT_TRUE(graph_->stop());
    graph_->currentPosition(a);
    EXPECT_NEAR(a, kToneSeconds, 0.2);
    ASSERT_TRUE(graph_->setCurrentPosition(0));
    graph_->currentPosition(a);
    EXPECT_EQ(a, 0);
}

TEST_F(NativePlayback, ADeviceThatGoesAwayIsReportedAndNotReplaced) {
    const std::string module = workDir() + "/gone-module";
    ASSERT_EQ(runCommand("pactl load-module module-null-sink sink_name=corvid_gone "
                         "sink_properties=device.description=Corvid_Gone > " + module),
              0);
    std::string index;
    std::ifstream(module) >> index;
    ASSERT_NO_FATAL_FAILURE(build(mediaPath("tone.wav"), {"File Source (Async.)", "Wave Parser"},
                                  renderer("Corvid_Gone")));
    ASSERT_TRUE(graph_->run());
    pumpUntil(*platform_, [] { return false; }, 300);
    ASSERT_EQ(runCommand("pactl unload-module " + index), 0);
    EXPECT_TRUE(pumpUntil(*platform_, [&] { return lost_ > 0; }, 5000));
    EXPECT_EQ(lost_, 1);
    EXPECT_TRUE(graph_->stop());
}

} // namespace
} // namespace corvid::native::test
