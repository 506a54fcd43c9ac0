// The engine under a player on a real sound server: every PCM sample layout plays through the
// default chain (pitch shifter in) at its frequency and level, and a position survives a
// long run of stops, pauses and plays.

#include "NativeTestSupport.h"

#include "control/Player.h"

#include <chrono>
#include <cmath>

namespace corvid::native::test {
namespace {

struct Host : PlayerEvents {
    int ends = 0;
    void EndOfStream(int32_t result) override { ends += result == 1; }
};

class EngineTest : public ::testing::Test {
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

    void load(const std::string& path) {
        std::string item = path;
        player_->put_FileName(item);
        ASSERT_EQ(player_->get_FileName(), path) << player_->get_LastError();
    }

    std::unique_ptr<NativePlatform> platform_;
    std::unique_ptr<Player> player_;
    Host host_;
};

TEST_F(EngineTest, EveryPcmSampleLayoutPlaysToTheEndAtItsFrequencyAndLevel) {
    for (const char* codec : {"pcm_u8", "pcm_s16le", "pcm_s24le", "pcm_s32le", "pcm_f32le", "pcm_f64le"}) {
        for (int channels : {1, 2}) {
            SCOPED_TRACE(std::string(codec) + " " + std::to_string(channels) + " ch");
            const std::string file = workDir() + "/media/" + codec + "-" + std::to_string(channels) + ".wav";
            char wave[64];
            std::snprintf(wave, sizeof wave, "%g*sin(2*PI*%g*t)", kToneAmplitude, kToneHz);
            const std::string tone = channels == 1 ? wave : std::string(wave) + "|" + wave;
            ASSERT_EQ(runCommand("ffmpeg -nostdin -loglevel error -y -f lavfi -i 'aevalsrc=" + tone +
                                 ":s=48000:d=1' -c:a " + codec + " " + file),
                      0);
            host_.ends = 0;
            load(file);
            MonitorRecorder recorder(kSinkA, 2);
            player_->Play();
            EXPECT_TRUE(pumpUntil(*platform_, [&] { return host_.ends > 0; }, 10000)) << "no end";
            const auto m = measureTone(recorder.stop(), 2, 0, MonitorRecorder::kRate);
            EXPECT_NEAR(m.frequency, kToneHz, 10);
            EXPECT_NEAR(m.peak, kToneAmplitude, 0.06);
            EXPECT_NEAR(m.loudSeconds, 1.0, 0.2);
            player_->StopPlaying();
        }
    }
}

TEST_F(EngineTest, AHundredStopsPausesAndPlaysKeepThePositionExact) {
    load(mediaPath("tone.wav"));
    using Clock = std::chrono::steady_clock;
    double last = 0;
    for (int i = 0; i < 100; ++i) {
        SCOPED_TRACE("cycle " + std::to_string(i));
        const auto started = Clock::now();
        player_->Play();
        pumpUntil(*platform_, [] { return false; }, 5);
        player_->Pause();
        const double played = std::chrono::duration<double>(Clock::now() - started).count();
        const double held = player_->get_GraphPosition();
        // Never backwards, never ahead of the time that passed, and still while paused.
        EXPECT_GE(held, last - 1e-6);
        EXPECT_LE(held, last + played + 0.005);
        pumpUntil(*platform_, [] { return false; }, 5);
        EXPECT_EQ(player_->get_GraphPosition(), held);
        last = held;
        if (i % 10 == 9) {
            player_->StopPlaying();
            EXPECT_EQ(player_->get_GraphPosition(), 0);
            last = 0;
        }
    }
}

} // namespace
} // namespace corvid::native::test
