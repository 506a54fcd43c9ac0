// The player itself on the native runtime: its own chains, built by name from the native
// catalogue, play every format to a real sink; a speaker pair gets its router; a stream
// address opens through the stream source. What the host hears and sees is checked.

#include "NativeTestSupport.h"

#include "control/Player.h"

namespace corvid::native::test {
namespace {

struct HostEvents : PlayerEvents {
    int ends = 0;
    int32_t loudest = 0;
    std::vector<std::string> titles;
    void VUPeak(int32_t& left, int32_t& right) override { loudest = std::max({loudest, left, right}); }
    void EndOfStream(int32_t result) override { ends += result == 1; }
    void ShoutCastMeta(std::string& artistTitle, std::string&, std::string&) override {
        titles.push_back(artistTitle);
    }
};

class PlayerOnNative : public ::testing::Test {
protected:
    void SetUp() override {
        if (!soundServerUp()) GTEST_SKIP() << "no private sound server";
        platform_ = std::make_unique<NativePlatform>(testOptions());
        player_ = std::make_unique<Player>(*platform_);
        player_->setEvents(&events_);
        player_->Init();
        bool allowed = false; // the native reader is current: nothing to fear from it
        player_->put_ASFReaderBanned(allowed);
    }
    void TearDown() override {
        player_.reset();
        platform_.reset();
    }

    // Loads `item` on `device`, plays it to its end and returns the monitor's recording.
    std::vector<float> play(const std::string& item, const std::string& device, const std::string& sink,
                            int channels) {
        std::string name = device;
        EXPECT_TRUE(player_->SetSoundcard(name)) << device;
        std::string file = item;
        player_->put_FileName(file);
        EXPECT_EQ(player_->get_FileName(), item) << player_->get_LastError();
        if (player_->get_FileName() != item) return {};
        MonitorRecorder recorder(sink, channels);
        player_->Play();
        EXPECT_TRUE(pumpUntil(*platform_, [&] { return events_.ends > 0; }, 15000)) << item;
        return recorder.stop();
    }

    std::unique_ptr<NativePlatform> platform_;
    std::unique_ptr<Player> player_;
    HostEvents events_;
};

TEST_F(PlayerOnNative, EveryFormatPlaysThroughThePlayersOwnChain) {
    for (const char* file : {"tone.wav", "tone.mp3", "tone.flac", "tone.ogg", "tone.m4a", "tone.wma"}) {
        SCOPED_TRACE(file);
        events_ = HostEvents{};
        const auto samples = play(mediaPath(file), kSinkADescription, kSinkA, 2);
        const auto m = measureTone(samples, 2, 0, MonitorRecorder::kRate);
        EXPECT_NEAR(m.frequency, kToneHz, 10);
        EXPECT_NEAR(m.peak, kToneAmplitude, 0.06);
        EXPECT_NEAR(events_.loudest, kToneAmplitude * 32768, 32768 * 0.06) << "the meters saw the tone";
        EXPECT_NEAR(player_->get_Duration(), kToneSeconds, 0.15);
        player_->StopPlaying();
    }
}

TEST_F(PlayerOnNative, ASpeakerPairGetsItsRouterAndOnlyItsTwoChannels) {
    const auto samples = play(mediaPath("tone.wav"), std::string(kSink8Description) + " [3-4]", kSink8, 8);
    bool routed = false;
    for (int ch = 0; ch < 8; ++ch) {
        const auto m = measureTone(samples, 8, ch, MonitorRecorder::kRate);
        if (ch == 2 || ch == 3) {
            EXPECT_NEAR(m.peak, kToneAmplitude, 0.06) << "channel " << ch + 1;
            routed = true;
        } else {
            EXPECT_EQ(m.loudSeconds, 0) << "channel " << ch + 1;
        }
    }
    EXPECT_TRUE(routed);
    EXPECT_EQ(player_->get_SurroundRenderName(), std::string(kSink8Description) + " [3-4]");
}

TEST_F(PlayerOnNative, AStreamAddressOpensAndReportsItsTitle) {
    IcyServer server(IcyServer::Mode::Stream, mediaPath("tone.mp3"));
    const auto samples = play(server.address(), kSinkADescription, kSinkA, 2);
    const auto m = measureTone(samples, 2, 0, MonitorRecorder::kRate);
    EXPECT_NEAR(m.frequency, kToneHz, 10);
    ASSERT_FALSE(events_.titles.empty());
    EXPECT_EQ(events_.titles.front(), kStreamTitle);
}

} // namespace
} // namespace corvid::native::test
