// The transport: the playstate table, re-entrant hosts, play errors, the helper's tick and
// end, and the arithmetic of seek, elapsed time, rate, volume and mute.

#include "tests/sim/GraphFixture.h"

namespace corvid::testing {
namespace {

using sim::FaultPoint;
using platform::Status;
namespace hr = platform::hr;

class TransportTest : public BehaviourTest {};

TEST_F(TransportTest, ThePlaystateTableWithItsStopwatch) {
    load(Mp3);
    host.clear();
    player->Play();
    sim->advanceMs(1500);
    player->Pause();
    sim->advanceMs(1000);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 1.5f); // held while paused
    player->Play();
    sim->advanceMs(500);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 2.0f);
    player->StopPlaying();
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 0.0f);
    player->StopPlaying(); // equal states are raised all the same
    player->Play();
    player->RaiseEndOfStream();
    EXPECT_EQ(host.playStates, States({{0, 2}, {2, 1}, {1, 2}, {2, 0}, {0, 0}, {0, 2}, {2, 0}}));
    EXPECT_EQ(host.endOfStreams, std::vector<int32_t>{0});

    // A stream is never paused: it stops, unless it stands stopped at its start.
    load(Live);
    host.clear();
    player->Pause();
    EXPECT_TRUE(host.playStates.empty());
    player->Play();
    host.clear();
    player->Pause();
    EXPECT_EQ(host.playStates, States({{2, 0}}));
}

TEST_F(TransportTest, TheHelpersEndIsRaisedOncePerPlayAndHostsStopFromInsideTheStateChange) {
    loadAndPlay();
    helper().fireEndOfStream();
    helper().fireEndOfStream();
    EXPECT_EQ(host.endOfStreams, std::vector<int32_t>{1});
    EXPECT_EQ(host.vuPeaks, States({{0, 0}}));
    EXPECT_EQ(player->get_Playstate(), MpPlaying);
    player->Pause(); // every playstate change re-arms it
    helper().fireEndOfStream();
    EXPECT_EQ(host.endOfStreams, (std::vector<int32_t>{1, 1}));

    // Hosts that stop from inside the state change.
    loadAndPlay();
    int calls = 0;
    host.onPlayStateChange = [&](int32_t, int32_t) { ++calls, player->StopPlaying(); };
    player->StopPlaying(); // the nested stop does nothing
    EXPECT_EQ(calls, 1);

    // Stopping (or unloading) from inside Play's own change is the state error.
    const auto e = raised([&] { player->Play(); });
    EXPECT_EQ(e ? e->description() : "Play must raise", "FileName got changed whilst playstate changing");
    EXPECT_EQ(host.count("StreamBufferingFinished"), 1);
    EXPECT_EQ(player->get_Playstate(), mpstopped);
}

TEST_F(TransportTest, AGraphThatWillNotRunIsDestroyedUnlessTheErrorIsExpected) {
    load(Mp3);
    logging(true);
    host.clear();
    sim->failOnce(FaultPoint::Run, "", Status::failure(hr::Timeout, "Timed out"));
    player->Play();
    EXPECT_TRUE(host.logged("Play: " + std::to_string(hr::Timeout) +
                            " The data from the streaming server could not be buffered quickly enough."));
    EXPECT_TRUE(host.logged("There was an Expected error here, so not destroying graph"));
    EXPECT_TRUE(player->mainGraph());
    EXPECT_TRUE(host.playStates.empty());

    sim->failOnce(FaultPoint::Run, "", Status::failure(hr::Fail, "The graph would not run."));
    player->Play();
    EXPECT_TRUE(inOrder(host.log, {"ERROR: After a catastrophic play error, the graph will be destroyed ... ",
                                   "Filename is set to nothing here, here comes the destroy ...", "Graph destroyed."}));
    EXPECT_FALSE(player->mainGraph());
    EXPECT_EQ(host.count("StreamBufferingFinished"), 2);
}

TEST_F(TransportTest, TicksRaiseMetersOnlyWhilePlayingAndSeekElapsedAndRateArithmetic) {
    load(Mp3);
    helper().fireThreadEvent(-5000, 3000); // stopped: no meters
    EXPECT_TRUE(host.vuPeaks.empty());
    EXPECT_EQ(player->get_LeftVUPeak(), 5000);
    player->Play();
    sim->advanceMs(2000);
    helper().fireThreadEvent(-900, 500);
    helper().fireThreadEvent(300, -800);
    host.onVUPeak = [](int32_t& l, int32_t& r) { l = 100, r = -7000; }; // the host's values count
    helper().fireThreadEvent(4000, 4000);
    EXPECT_EQ(host.vuPeaks.size(), 3u);
    EXPECT_EQ(host.timings, (std::vector<int32_t>{-5000, -900, 800, 7000}));
    EXPECT_NEAR(player->get_CurrentPosition(), 2.0, 1e-9);

    // Seek, elapsed and rate arithmetic.
    noPitchAdjuster();
    loadAndPlay();
    EXPECT_DOUBLE_EQ(set(&Player::put_Rate, 0.5), 0.9);
    sim->advanceMs(1500); // 2000 ms plus the 1.5 "seconds" elapsed, as they are
    EXPECT_FLOAT_EQ(set(&Player::put_ElapsedForcedChange, 2.0f), 2000.0f);
    sim->advanceMs(1000);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 2.002f); // and the stopwatch stands

    set(&Player::put_Rate, 1.25);
    EXPECT_DOUBLE_EQ(set(&Player::put_CurrentPosition, 100.0), 80);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 80.0f);
    EXPECT_NEAR(player->get_GraphPosition(), 100.0, 1e-9);
    sim->advanceMs(1000); // a seek while playing goes on counting from there
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 81.0f);
    EXPECT_EQ(set(&Player::put_CurrentPosition, -5.0), 0);

    player->StopPlaying();
    player->Play();
    sim->advanceMs(1000);
    set(&Player::put_Rate, 1.5); // re-based: elapsed goes on from where it was
    sim->advanceMs(500);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 1.5f);
    EXPECT_DOUBLE_EQ(player->get_Rate(), 1.5);

    sim->operatorServices().addExistingFile(sim->operatorServices().markerFilePath());
    EXPECT_DOUBLE_EQ(set(&Player::put_Rate, 1.1), 2.0);

    sim->addFile("/music/a.WMA", simFile("stream/asf;wma", 60.0));
    load("/music/a.WMA");
    EXPECT_DOUBLE_EQ(set(&Player::put_Rate, 1.3), 1.0);
    load(Live);
    EXPECT_EQ(set(&Player::put_CurrentPosition, 50.0), 50); // streams are not seeked
}

TEST_F(TransportTest, WithThePitchAdjusterTheRateGoesToThePitchFilterOfThisAndTheNextItem) {
    load(Mp3);
    set(&Player::put_Rate, 1.2);
    EXPECT_DOUBLE_EQ(player->get_Rate(), 1.0);
    load(Mp3B);
    platform::FilterPtr pitch;
    for (const auto& f : player->mainGraph()->filters())
        if (f->name() == "Brindle Pitch Shifter") pitch = f;
    ASSERT_TRUE(pitch && pitch->pitchShifter());
    EXPECT_DOUBLE_EQ(pitch->pitchShifter()->rate(), 1.2);
    EXPECT_FALSE(pitch->pitchShifter()->passThrough());
}

TEST_F(TransportTest, VolumeAndMute) {
    set(&Player::put_Volume, -2000);
    EXPECT_EQ(player->get_Volume(), -2000); // no graph: the stored value
    EXPECT_FALSE(player->get_mute());
    load(Mp3);
    EXPECT_EQ(graphVolume(), -2000); // the load applies it
    EXPECT_EQ(set(&Player::put_Volume, 100), 0);
    set(&Player::put_Volume, -1500);
    set(&Player::put_Volume, -7000); // applied, not remembered
    EXPECT_EQ(player->get_Volume(), -7000);
    EXPECT_TRUE(player->get_mute());
    set(&Player::put_mute, false);
    EXPECT_EQ(graphVolume(), -1500);
    set(&Player::put_mute, true);
    EXPECT_EQ(graphVolume(), -6800);
    player->Play();
    EXPECT_EQ(graphVolume(), -6801);
}

} // namespace
} // namespace corvid::testing
