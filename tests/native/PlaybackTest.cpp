// Native filters and devices heard at a real sink, in graphs built through the platform
// interfaces: the pitch shifter's modes, a device that goes away, unique names and the pipe
// sender. Every format through the player's own chains is PlayerOnNativeTest's; the rules of
// the graph itself are the contract suite's.

#include "NativeTestSupport.h"

#include "platform/native/NativeCatalogue.h"

#include <cmath>
#include <filesystem>
#include <fstream>

namespace corvid::native::test {
namespace {

using platform::FilterPtr;

class NativePlayback : public NativeGraphTest {
protected:
    void SetUp() override { start(true); }

    // A device by the name the catalogue lists it under, speaker pairs included.
    FilterPtr renderer(const std::string& name) {
        std::vector<platform::CatalogueEntryPtr> entries;
        EXPECT_TRUE(platform_->catalogue().enumerateRenderersWithPairs(entries));
        FilterPtr f;
        for (auto& e : entries)
            if (e->name() == name) e->createIn(*graph_, f);
        EXPECT_TRUE(f) << "no device: " << name;
        return f;
    }
    // source (loaded with `file`) -> each named filter -> grabber -> renderer, all direct.
    void build(const std::string& file, std::vector<std::string> names, const FilterPtr& render) {
        names.push_back("Halden Sample Grabber");
        const auto s = NativeGraphTest::build(file, names, {render});
        ASSERT_TRUE(s) << s.description;
    }

    std::vector<float> playToEnd(const std::string& sink, int channels) {
        MonitorRecorder recorder(sink, channels);
        EXPECT_TRUE(graph_->run());
        EXPECT_TRUE(pumpUntil(*platform_, [&] { return ends_ > 0; }, 15000)) << "no end of stream";
        return recorder.stop();
    }
};

// The pitch shifter's three modes, one play each: rate (shorter, same pitch, the position counts
// media time), pitch (an octave down), pass-through (untouched whatever the rate says); and the
// graph's own rate, which speeds the play up pitch and all.
TEST_F(NativePlayback, PitchShifterRatePitchPassThroughAndGraphRate) {
    ASSERT_NO_FATAL_FAILURE(build(mediaPath("tone.wav"),
                                  {"File Source (Async.)", "Wave Parser", "Brindle Pitch Shifter"},
                                  renderer(kSinkADescription)));
    FilterPtr shifter;
    for (auto& f : graph_->filters())
        if (f->name() == "Brindle Pitch Shifter") shifter = f;
    ASSERT_TRUE(shifter && shifter->pitchShifter());
    auto* control = shifter->pitchShifter();
    struct Mode {
        double graphRate, rate, semitones;
        bool passThrough;
        double hz, seconds;
    };
    for (const Mode& mode : {Mode{1, 1.25, 0, false, kToneHz, kToneSeconds / 1.25},
                             Mode{1, 1.0, -12, false, kToneHz / 2, kToneSeconds},
                             Mode{1, 1.5, -12, true, kToneHz, kToneSeconds},
                             Mode{1.25, 1.0, 0, false, kToneHz * 1.25, kToneSeconds / 1.25}}) {
        SCOPED_TRACE(::testing::Message() << mode.graphRate << " " << mode.rate << " " << mode.semitones);
        ASSERT_TRUE(graph_->stop());
        ASSERT_TRUE(graph_->setCurrentPosition(0));
        ASSERT_TRUE(graph_->setRate(mode.graphRate));
        double rate = 0;
        graph_->rate(rate);
        EXPECT_EQ(rate, mode.graphRate);
        ASSERT_TRUE(control->setRate(mode.rate));
        ASSERT_TRUE(control->setPitchSemitones(mode.semitones));
        ASSERT_TRUE(control->setPassThrough(mode.passThrough));
        EXPECT_EQ(control->pitchSemitones(), mode.semitones);
        EXPECT_EQ(control->passThrough(), mode.passThrough);
        ends_ = 0;
        const auto m = measureTone(playToEnd(kSinkA, 2), 2, 0, MonitorRecorder::kRate);
        EXPECT_NEAR(m.frequency, mode.hz, 15);
        EXPECT_NEAR(m.loudSeconds, mode.seconds, 0.25);
        double position = 0;
        graph_->currentPosition(position);
        EXPECT_NEAR(position, kToneSeconds, 0.25) << "the position counts media time";
    }
    EXPECT_FALSE(control->setRate(0));
}

// Unlike the simulated one, the native reader decodes by itself: its PCM plays with no decoder.
TEST_F(NativePlayback, TheWindowsMediaReaderDecodesByItself) {
    ASSERT_NO_FATAL_FAILURE(build(mediaPath("tone.wma"), {"WM ASF READER"}, renderer(kSinkADescription)));
    const auto m = measureTone(playToEnd(kSinkA, 2), 2, 0, MonitorRecorder::kRate);
    EXPECT_NEAR(m.frequency, kToneHz, 10);
    EXPECT_NEAR(m.loudSeconds, kToneSeconds, 0.3);
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

TEST_F(NativePlayback, NamesInTheGraphStayUniqueAndThePipeSenderWritesThePcmToItsPipe) {
    create("Halden Sample Grabber");
    EXPECT_EQ(create("Halden Sample Grabber")->name(), "Halden Sample Grabber 0001");
    graph_ = newGraph();

    ASSERT_NO_FATAL_FAILURE(build(mediaPath("tone.wav"), {"File Source (Async.)", "Wave Parser", "Pipe Sender"},
                                  renderer(kSinkADescription)));
    FilterPtr sender;
    for (auto& f : graph_->filters())
        if (f->pipeSender()) sender = f;
    ASSERT_TRUE(sender);
    const std::string pipe = sender->pipeSender()->pipePath();
    ASSERT_TRUE(std::filesystem::is_fifo(pipe));
    ASSERT_TRUE(sender->pipeSender()->setDownstreamMute(true));
    const std::string captured = workDir() + "/pipe-capture.raw";
    std::filesystem::remove(captured);
    ChildProcess reader({"timeout", "10", "sh", "-c", "cat " + pipe + " > " + captured});
    pumpUntil(*platform_, [] { return false; }, 300); // the reader opens the pipe
    const auto m = measureTone(playToEnd(kSinkA, 2), 2, 0, MonitorRecorder::kRate, 0.01);
    EXPECT_EQ(m.loudSeconds, 0) << "a muted pipe sender sends silence downstream";
    reader.stop();
    EXPECT_GT(std::filesystem::file_size(captured), 44100u * 4u)
        << "more than a second of 16-bit stereo reached the pipe";
}

} // namespace
} // namespace corvid::native::test
