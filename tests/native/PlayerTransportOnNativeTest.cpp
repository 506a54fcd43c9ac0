// The player's transport and levels on real audio: what a host sets (volume, mute, rate,
// pause, a seek) is what arrives at the sink, and the meters, the end and the silence alarm
// come from the audio itself.

#include "NativeTestSupport.h"

#include "control/Player.h"
#include "levels/SilenceDet.h"

#include <cmath>

namespace corvid::native::test {
namespace {

struct Host : PlayerEvents {
    int ends = 0;
    int vuPeaks = 0;
    int timings = 0;
    int32_t loudest = 0;
    std::vector<int32_t> silences;
    void VUPeak(int32_t& left, int32_t& right) override {
        ++vuPeaks;
        loudest = std::max({loudest, left, right});
    }
    void Timing(int32_t&) override { ++timings; }
    void EndOfStream(int32_t result) override { ends += result == 1; }
    void SilenceDetected(int32_t seconds) override { silences.push_back(seconds); }
};

class PlayerTransportOnNative : public ::testing::Test {
protected:
    void SetUp() override {
        if (!soundServerUp()) GTEST_SKIP() << "no private sound server";
        platform_ = std::make_unique<NativePlatform>(testOptions());
        player_ = std::make_unique<Player>(*platform_);
        player_->setEvents(&host_);
        player_->Init();
        std::string device = kSinkADescription;
        ASSERT_TRUE(player_->SetSoundcard(device));
    }
    void TearDown() override {
        player_.reset();
        platform_.reset();
    }

    void load(const std::string& path) {
        std::string item = path;
        player_->put_FileName(item);
        ASSERT_EQ(player_->get_FileName(), path) << player_->get_LastError();
    }

    // Plays the loaded item to its end (bounded) while recording the sink.
    std::vector<float> playToEnd(int timeoutMs = 15000) {
        MonitorRecorder recorder(kSinkA, 2);
        player_->Play();
        EXPECT_TRUE(pumpUntil(*platform_, [&] { return host_.ends > 0; }, timeoutMs));
        pumpUntil(*platform_, [] { return false; }, 300); // a second end would arrive now
        return recorder.stop();
    }

    std::unique_ptr<NativePlatform> platform_;
    std::unique_ptr<Player> player_;
    Host host_;
};

TEST_F(PlayerTransportOnNative, VolumeLowersTheToneAndMuteSilencesIt) {
    load(mediaPath("tone.wav"));
    int32_t volume = -600;
    player_->put_Volume(volume);
    const auto quieter = measureTone(playToEnd(), 2, 0, MonitorRecorder::kRate, 0.01);
    EXPECT_NEAR(quieter.frequency, kToneHz, 10);
    EXPECT_NEAR(20 * std::log10(quieter.peak / kToneAmplitude), -6.0, 1.0);
    EXPECT_EQ(host_.ends, 1) << "the end is raised once";

    host_ = Host{};
    load(mediaPath("tone.wav"));
    bool mute = true;
    player_->put_mute(mute);
    EXPECT_TRUE(player_->get_mute());
    const auto muted = measureTone(playToEnd(), 2, 0, MonitorRecorder::kRate, 0.01);
    EXPECT_EQ(muted.loudSeconds, 0);
}

TEST_F(PlayerTransportOnNative, RateThroughThePitchFilterKeepsTheFrequencyAndShortensThePlay) {
    load(mediaPath("tone.wav"));
    double rate = 1.25;
    player_->put_Rate(rate);
    const auto m = measureTone(playToEnd(), 2, 0, MonitorRecorder::kRate);
    EXPECT_NEAR(m.frequency, kToneHz, 15);
    EXPECT_NEAR(m.loudSeconds, kToneSeconds / 1.25, 0.25);
}

TEST_F(PlayerTransportOnNative, MetersTimingAndTheEndComeFromTheAudio) {
    load(mediaPath("tone.mp3"));
    playToEnd();
    EXPECT_EQ(host_.ends, 1);
    // About 20 ticks a second over two seconds; the bounds only say "steadily, while playing".
    EXPECT_GE(host_.vuPeaks, 10);
    EXPECT_LE(host_.vuPeaks, 100);
    EXPECT_GE(host_.timings, host_.vuPeaks - 1); // the end adds one VUPeak of zeros
    EXPECT_NEAR(host_.loudest, kToneAmplitude * 32768, 32768 * 0.06);
    EXPECT_EQ(player_->get_Playstate(), MpPlaying) << "the end leaves the playstate to the host";
}

TEST_F(PlayerTransportOnNative, PauseHoldsThePositionAndASeekMovesIt) {
    load(mediaPath("tone.wav"));
    player_->Play();
    pumpUntil(*platform_, [] { return false; }, 600);
    player_->Pause();
    EXPECT_EQ(player_->get_Playstate(), mpPaused);
    pumpUntil(*platform_, [] { return false; }, 200);
    const double held = player_->get_GraphPosition();
    pumpUntil(*platform_, [] { return false; }, 500);
    EXPECT_NEAR(player_->get_GraphPosition(), held, 0.05) << "paused audio does not move";
    EXPECT_GT(held, 0.2);

    double to = 1.5;
    player_->put_CurrentPosition(to);
    EXPECT_NEAR(player_->get_GraphPosition(), 1.5, 0.1);
    MonitorRecorder recorder(kSinkA, 2);
    player_->Play();
    EXPECT_TRUE(pumpUntil(*platform_, [&] { return host_.ends > 0; }, 5000));
    const auto rest = measureTone(recorder.stop(), 2, 0, MonitorRecorder::kRate);
    EXPECT_NEAR(rest.loudSeconds, kToneSeconds - 1.5, 0.25) << "only what follows the seek plays";
}

TEST_F(PlayerTransportOnNative, ALongSilenceRaisesTheAlarm) {
    // One second of tone, then four of silence.
    const std::string path = workDir() + "/tone-then-silence.wav";
    ASSERT_EQ(runCommand("ffmpeg -hide_banner -loglevel error -y -f lavfi -i "
                         "\"sine=frequency=1000:sample_rate=48000:duration=1,apad=pad_dur=4\" "
                         "-ac 2 '" + path + "'"),
              0);
    int32_t seconds = 1;
    player_->get_SilenceDet().put_SilenceDetSecs(seconds);
    bool on = true;
    player_->put_SilenceDetEnabled(on);
    player_->get_SilenceDet().put_SilenceDetectorEnabled(true);

    load(path);
    playToEnd(20000);
    ASSERT_FALSE(host_.silences.empty());
    for (int32_t s : host_.silences) EXPECT_GE(s, 1);
    EXPECT_GE(host_.silences.size(), 2u) << "and again after as many seconds more";
}

} // namespace
} // namespace corvid::native::test
