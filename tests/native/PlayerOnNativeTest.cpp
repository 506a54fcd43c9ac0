// The player itself on the native runtime, heard at a real sink: its own chains play every
// format; what a host sets (volume, mute, rate, pause, a seek, a speaker pair by its sink's
// name) is what arrives; the meters, the end and the silence alarm come from the audio; a
// stream address opens.

#include "NativeTestSupport.h"
#include "StreamServer.h"

#include "levels/SilenceDet.h"

#include <chrono>
#include <cmath>

namespace corvid::native::test {
namespace {

class PlayerOnNative : public NativePlayerTest {
protected:
    void SetUp() override { start(true, kSinkADescription); }
    void load(const std::string& item) {
        NativePlayerTest::load(item);
        ASSERT_EQ(player_->get_FileName(), item) << player_->get_LastError();
    }

    // Plays the loaded item to its end (bounded) while recording `sink`.
    std::vector<float> playToEnd(const std::string& sink = kSinkA, int channels = 2, int timeoutMs = 15000) {
        MonitorRecorder recorder(sink, channels);
        player_->Play();
        EXPECT_TRUE(pumpUntil(*platform_, [&] { return ends() > 0; }, timeoutMs)) << "no end";
        pumpUntil(*platform_, [] { return false; }, 300); // a second end would arrive now
        return recorder.stop();
    }
    static ToneMeasure left(const std::vector<float>& samples, double threshold = 0.02) {
        return measureTone(samples, 2, 0, MonitorRecorder::kRate, threshold);
    }

    int ends() const { return host_.count("EndOfStream: 1"); }
};

// Every format through the player's own chain: a seek before the first play starts the item
// where asked; played again from the start, both channels carry the tone at its frequency and
// level, the meters and timing follow the audio, and the end comes once and leaves the
// playstate to the host.
struct FormatCase {
    const char* name;
    const char* file;
    bool preferOwnReader;
    const char* filter; // stands in the chain the player built
};
void PrintTo(const FormatCase& c, std::ostream* os) { *os << c.name; }

class PlayerFormats : public PlayerOnNative, public ::testing::WithParamInterface<FormatCase> {};

TEST_P(PlayerFormats, PlaysFromASeekAndFromTheStartWithItsFrequencyLevelMetersAndOneEnd) {
    const FormatCase& c = GetParam();
    bool off = false, prefer = c.preferOwnReader; // the native reader is current: nothing to fear from it
    player_->put_ASFReaderBanned(off);
    player_->put_HaldenSourcePrefer(prefer);
    ASSERT_NO_FATAL_FAILURE(load(mediaPath(c.file)));
    std::vector<platform::FilterPtr> filters;
    player_->GetCurrentMainFilterGraph(filters);
    EXPECT_TRUE(std::any_of(filters.begin(), filters.end(), [&](const auto& f) { return f->name() == c.filter; }));
    EXPECT_NEAR(player_->get_Duration(), kToneSeconds, 0.15);

    double at = 1.2;
    player_->put_CurrentPosition(at);
    auto m = left(playToEnd());
    EXPECT_NEAR(m.loudSeconds, kToneSeconds - 1.2, 0.15);
    EXPECT_NEAR(m.frequency, kToneHz, 10);

    player_->StopPlaying();
    at = 0;
    player_->put_CurrentPosition(at);
    host_.clear();
    const auto samples = playToEnd();
    for (int ch = 0; ch < 2; ++ch) {
        m = measureTone(samples, 2, ch, MonitorRecorder::kRate);
        EXPECT_NEAR(m.frequency, kToneHz, 10) << "channel " << ch;
        EXPECT_NEAR(m.peak, kToneAmplitude, 0.06) << "channel " << ch;
        EXPECT_NEAR(m.loudSeconds, kToneSeconds, 0.3) << "channel " << ch;
    }
    EXPECT_EQ(ends(), 1) << "the end is raised once";
    EXPECT_NEAR(player_->get_GraphPosition(), kToneSeconds, 0.2);
    EXPECT_EQ(player_->get_Playstate(), MpPlaying) << "the end leaves the playstate to the host";
    EXPECT_NEAR(host_.loudest(), kToneAmplitude * 32768, 32768 * 0.06) << "the meters saw the tone";
    // About 20 ticks a second over two seconds; the bounds only say "steadily, while playing".
    EXPECT_GE(host_.vuPeaks.size(), 10u);
    EXPECT_LE(host_.vuPeaks.size(), 100u);
    EXPECT_GE(host_.timings.size() + 1, host_.vuPeaks.size()); // the end adds one VUPeak of zeros
}

INSTANTIATE_TEST_SUITE_P(
    EveryFormat, PlayerFormats,
    ::testing::Values(FormatCase{"wav_via_parser", "tone.wav", false, "Wave Parser"},
                      FormatCase{"mp3_via_decoder", "tone.mp3", false, "MPEG Layer-3 Decoder"},
                      FormatCase{"mp3_via_own_reader", "tone.mp3", true, "Halden WM ASF Reader"},
                      FormatCase{"mpg_via_mp3_fallback", "tone.mpg", false, "MPEG Layer-3 Decoder"},
                      FormatCase{"flac_via_decoding_source", "tone.flac", false, "Native FLAC Decoder"},
                      FormatCase{"ogg_via_vorbis_decoder", "tone.ogg", false, "Xiph.Org Vorbis Decoder PLUS"},
                      FormatCase{"m4a_via_mp4_decoder", "tone.m4a", false, "Microsoft DTV-DVD Audio Decoder"},
                      FormatCase{"wma_via_reader_and_decoder", "tone.wma", false, "WMAudio Decoder DMO"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(PlayerOnNative, VolumeLowersTheToneMuteSilencesItAndRateKeepsItsPitch) {
    ASSERT_NO_FATAL_FAILURE(load(mediaPath("tone.wav")));
    int32_t volume = -600;
    player_->put_Volume(volume);
    const auto quieter = left(playToEnd(), 0.01);
    EXPECT_NEAR(quieter.frequency, kToneHz, 10);
    EXPECT_NEAR(20 * std::log10(quieter.peak / kToneAmplitude), -6.0, 1.0);

    ASSERT_NO_FATAL_FAILURE(load(mediaPath("tone.wav")));
    bool mute = true;
    player_->put_mute(mute);
    EXPECT_TRUE(player_->get_mute());
    EXPECT_EQ(left(playToEnd(), 0.01).loudSeconds, 0);
    mute = false;
    player_->put_mute(mute);
    volume = 0;
    player_->put_Volume(volume);

    // Through the pitch filter: shorter, at the same frequency.
    ASSERT_NO_FATAL_FAILURE(load(mediaPath("tone.wav")));
    double rate = 1.25;
    player_->put_Rate(rate);
    const auto faster = left(playToEnd());
    EXPECT_NEAR(faster.frequency, kToneHz, 15);
    EXPECT_NEAR(faster.loudSeconds, kToneSeconds / 1.25, 0.25);
}

TEST_F(PlayerOnNative, PauseHoldsThePositionAndASeekMovesIt) {
    ASSERT_NO_FATAL_FAILURE(load(mediaPath("tone.wav")));
    player_->Play();
    pumpUntil(*platform_, [] { return false; }, 600);
    player_->Pause();
    EXPECT_EQ(player_->get_Playstate(), mpPaused);
    auto threadless = [&] { return pump([] { return threadCount("corvid-stream") == 0; }, 2000); };
    EXPECT_TRUE(threadless()) << "a paused player keeps no thread of its own";
    const double held = player_->get_GraphPosition();
    pumpUntil(*platform_, [] { return false; }, 500);
    EXPECT_NEAR(player_->get_GraphPosition(), held, 0.05) << "paused audio does not move";
    EXPECT_GT(held, 0.2);

    double to = 1.5;
    player_->put_CurrentPosition(to);
    EXPECT_NEAR(player_->get_GraphPosition(), 1.5, 0.1);
    EXPECT_TRUE(threadless()) << "a seek while paused refills the ring and parks again";
    const auto rest = left(playToEnd(kSinkA, 2, 5000));
    EXPECT_NEAR(rest.loudSeconds, kToneSeconds - 1.5, 0.25) << "only what follows the seek plays";
}

// Given by the sink's name, the pair is routed under the listed description.
TEST_F(PlayerOnNative, ASpeakerPairGetsItsRouterAndOnlyItsTwoChannels) {
    std::string pair = std::string(kSink8) + " [3-4]";
    ASSERT_TRUE(player_->SetSoundcard(pair));
    EXPECT_EQ(pair, std::string(kSink8Description) + " [3-4]");
    ASSERT_NO_FATAL_FAILURE(load(mediaPath("tone.wav")));
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
    EXPECT_EQ(player_->get_SurroundRenderName(), pair);
}

TEST_F(PlayerOnNative, ALongSilenceRaisesTheAlarm) {
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
    ASSERT_NO_FATAL_FAILURE(load(path));
    playToEnd(kSinkA, 2, 20000);
    ASSERT_FALSE(host_.silences.empty());
    for (int32_t s : host_.silences) EXPECT_GE(s, 1);
    EXPECT_GE(host_.silences.size(), 2u) << "and again after as many seconds more";
}

TEST_F(PlayerOnNative, AStreamAddressOpensAndReportsItsTitle) {
    StreamServer server(StreamServer::Mode::File, mediaPath("tone.mp3"));
    ASSERT_NO_FATAL_FAILURE(load(server.address()));
    EXPECT_NEAR(left(playToEnd()).frequency, kToneHz, 10);
    EXPECT_GE(host_.count(std::string("ShoutCastMeta: ") + kStreamTitle + "|"), 1);
}

// The engine under the player: every PCM sample layout plays through the default chain (pitch
// shifter in) at its frequency and level, and a position survives a long run of stops, pauses
// and plays.
TEST_F(PlayerOnNative, EveryPcmSampleLayoutPlaysToTheEndAtItsFrequencyAndLevel) {
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
            load(file);
            const auto m = left(playToEnd());
            EXPECT_NEAR(m.frequency, kToneHz, 10);
            EXPECT_NEAR(m.peak, kToneAmplitude, 0.06);
            EXPECT_NEAR(m.loudSeconds, 1.0, 0.2);
            player_->StopPlaying();
        }
    }
}

TEST_F(PlayerOnNative, AHundredStopsPausesAndPlaysKeepThePositionExact) {
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
