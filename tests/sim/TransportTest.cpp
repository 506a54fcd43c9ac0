// The transport: the playstate table, re-entrant hosts, play errors, the helper's tick and
// end, and the arithmetic of seek, elapsed time, rate, volume and mute.

#include "tests/sim/BehaviourFixture.h"

#include "support/TimerClass1.h"

namespace corvid::testing {
namespace {

using sim::FaultPoint;
namespace hr = platform::hr;

class TransportTest : public BehaviourTest {};

// ---- The playstate table ----

TEST_F(TransportTest, PlayPauseStopAndEndMoveThePlaystateWithOneEventEach) {
    load(Mp3);
    host.clear();

    player->Play();
    player->Pause();
    player->Play();
    player->StopPlaying();
    player->StopPlaying(); // stopped again: raised all the same, with equal states
    player->Play();
    player->RaiseEndOfStream();

    using S = std::pair<int32_t, int32_t>;
    EXPECT_EQ(host.states, (std::vector<S>{{0, 2}, {2, 1}, {1, 2}, {2, 0}, {0, 0}, {0, 2}, {2, 0}}));
    EXPECT_EQ(host.ends, std::vector<int32_t>{0});
    EXPECT_EQ(host.playAboutToHappen, 3);
}

TEST_F(TransportTest, TheStopwatchRunsWhilePlayingHoldsWhilePausedAndClearsOnStop) {
    loadAndPlay();
    sim->advanceMs(1500);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 1.5f);
    player->Pause();
    sim->advanceMs(1000);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 1.5f);
    player->Play();
    sim->advanceMs(500);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 2.0f);
    player->StopPlaying();
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 0.0f);
    EXPECT_EQ(player->get_CurrentPosition(), 0.0);
}

TEST_F(TransportTest, TheHelpersEndIsRaisedOncePerPlayAndLeavesThePlaystate) {
    loadAndPlay();
    helper().fireEndOfStream();
    helper().fireEndOfStream();
    EXPECT_EQ(host.ends, std::vector<int32_t>{1});
    EXPECT_EQ(host.vuPeaks, (std::vector<std::pair<int32_t, int32_t>>{{0, 0}}));
    EXPECT_EQ(player->get_Playstate(), MpPlaying);
    EXPECT_TRUE(player->m_Endraised);

    player->StopPlaying(); // every playstate change re-arms the end
    player->Play();
    helper().fireEndOfStream();
    EXPECT_EQ(host.ends, (std::vector<int32_t>{1, 1}));
}

TEST_F(TransportTest, PausingAStreamStopsItAndPausingAStoppedStreamAtItsStartDoesNothing) {
    // A loaded stream as the load leaves it: stopped at position 0.
    load(Mp3);
    PI(*player).currentItem() = "http://127.0.0.1:8000/live";
    host.clear();
    player->Pause();
    EXPECT_TRUE(host.states.empty());

    PI(*player).storedPlaystate() = MpPlaying;
    player->Pause();
    EXPECT_EQ(host.states, (std::vector<std::pair<int32_t, int32_t>>{{2, 0}}));
    EXPECT_EQ(player->get_Playstate(), mpstopped);
}

TEST_F(TransportTest, PauseWithoutALoadedGraphDoesNothing) {
    player->Pause();
    EXPECT_TRUE(host.states.empty());
    EXPECT_EQ(player->get_Playstate(), mpstopped);
}

// ---- Re-entrant hosts ----

TEST_F(TransportTest, AStopFromInsideTheStopsOwnPlaystateChangeDoesNothing) {
    loadAndPlay();
    int calls = 0;
    host.onState = [&](int32_t, int32_t) {
        ++calls;
        player->StopPlaying();
    };
    player->StopPlaying();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(host.states.size(), 1u);
}

TEST_F(TransportTest, AHostThatStopsFromInsidePlaysStateChangeGetsTheStateError) {
    load(Mp3);
    host.onState = [&](int32_t, int32_t newState) {
        if (newState == MpPlaying) player->StopPlaying();
    };
    try {
        player->Play();
        FAIL() << "Play must raise";
    } catch (const AutomationError& e) {
        EXPECT_EQ(e.description(), "FileName got changed whilst playstate changing");
    }
    EXPECT_EQ(host.bufferingFinished, 1);
    EXPECT_EQ(player->get_Playstate(), mpstopped);
}

TEST_F(TransportTest, AHostThatUnloadsFromInsidePlaysStateChangeGetsTheStateError) {
    load(Mp3);
    host.onState = [&](int32_t, int32_t newState) {
        if (newState == MpPlaying) load("");
    };
    EXPECT_THROW(player->Play(), AutomationError);
    EXPECT_EQ(player->get_FileName(), "");
}

// ---- Play errors ----

TEST_F(TransportTest, PlayOnAnEmptyPlayerChangesNothingAndKeepsTheGraph) {
    logging(true);
    player->Play();
    EXPECT_TRUE(host.logged("There was an Expected error here, so not destroying graph"));
    EXPECT_TRUE(host.states.empty());
    EXPECT_EQ(host.bufferingFinished, 0);
}

TEST_F(TransportTest, AGraphThatWillNotRunIsDestroyed) {
    load(Mp3);
    logging(true);
    sim->failAlways(FaultPoint::Run, "", platform::Status::failure(hr::Fail, "Unspecified error"));
    player->Play();
    EXPECT_TRUE(inOrder(host.log, {"ERROR: After a catastrophic play error, the graph will be destroyed ... ",
                                   "Filename is set to nothing here, here comes the destroy ...",
                                   "Graph destroyed."}));
    EXPECT_EQ(host.bufferingFinished, 1);
    EXPECT_FALSE(player->mainGraph());
    EXPECT_EQ(player->get_Playstate(), mpstopped);
}

TEST_F(TransportTest, ATimedOutRunIsExpectedAndLeavesTheGraphStanding) {
    load(Mp3);
    host.clear();
    logging(true);
    const auto graph = player->mainGraph();
    sim->failOnce(FaultPoint::Run, "", platform::Status::failure(hr::Timeout, "Timed out"));
    player->Play();
    EXPECT_TRUE(host.logged("There was an Expected error here, so not destroying graph"));
    EXPECT_TRUE(host.logged("Play: " + std::to_string(hr::Timeout) +
                            " The data from the streaming server could not be buffered quickly enough."));
    EXPECT_EQ(player->mainGraph(), graph);
    EXPECT_EQ(host.bufferingFinished, 1);
    EXPECT_TRUE(host.states.empty());
}

TEST_F(TransportTest, AHelperThatWillNotRunKeepsTheGraphFromRunning) {
    load(Mp3);
    sim->failOnce(FaultPoint::HelperRun, "Helper", platform::Status::failure(hr::Fail, "no"));
    player->Play();
    EXPECT_EQ(player->get_Playstate(), mpstopped);
    EXPECT_EQ(host.bufferingFinished, 1);
}

// ---- The helper's tick ----

TEST_F(TransportTest, TicksRaiseMetersOnlyWhilePlayingAndTheOverallLevelAlways) {
    load(Mp3);
    helper().fireThreadEvent(-5000, 3000); // stopped
    EXPECT_TRUE(host.vuPeaks.empty());
    EXPECT_EQ(host.timings, std::vector<int32_t>{-5000});
    EXPECT_EQ(player->get_LeftVUPeak(), 5000);
    EXPECT_EQ(player->get_RightVuPeak(), 3000);

    player->Play();
    host.clear();
    helper().fireThreadEvent(-900, 500);
    helper().fireThreadEvent(300, -800);
    helper().fireThreadEvent(4000, 4000);
    EXPECT_EQ(host.vuPeaks.size(), 3u);
    EXPECT_EQ(host.timings, (std::vector<int32_t>{-900, 800, 4000}));
}

TEST_F(TransportTest, AHostThatChangesTheMeterValuesChangesTheOverallLevel) {
    loadAndPlay();
    host.onVuPeak = [](int32_t& left, int32_t& right) {
        left = 100;
        right = -7000;
    };
    helper().fireThreadEvent(20000, 20000);
    EXPECT_EQ(host.timings, std::vector<int32_t>{7000});
}

TEST_F(TransportTest, TicksRefreshThePositionExceptDuringASeek) {
    loadAndPlay();
    sim->advanceMs(2000);
    helper().fireThreadEvent(1, 1);
    EXPECT_NEAR(player->get_CurrentPosition(), 2.0, 1e-9);

    PI(*player).seeking() = true;
    sim->advanceMs(1000);
    helper().fireThreadEvent(1, 1);
    EXPECT_NEAR(player->get_CurrentPosition(), 2.0, 1e-9);
    EXPECT_TRUE(host.timings.size() == 1u); // the whole tick is skipped
}

// ---- Seek, elapsed, rate ----

TEST_F(TransportTest, ASeekSetsElapsedToThePlayTimeAtTheCurrentRate) {
    bool noPitch = false;
    player->put_UsePitchAdjuster(noPitch);
    loadAndPlay();
    double rate = 1.25;
    player->put_Rate(rate);
    double to = 100;
    player->put_CurrentPosition(to);
    EXPECT_DOUBLE_EQ(to, 80);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 80.0f);
    EXPECT_NEAR(player->get_CurrentPosition(), 100.0, 1e-9);
    EXPECT_NEAR(player->get_GraphPosition(), 100.0, 1e-9);

    double negative = -5;
    player->put_CurrentPosition(negative);
    EXPECT_EQ(negative, 0);
    EXPECT_NEAR(player->get_GraphPosition(), 0.0, 1e-9);
}

TEST_F(TransportTest, AStreamIsNotSeeked) {
    load(Mp3);
    PI(*player).currentItem() = "http://127.0.0.1:8000/live";
    double to = 50;
    player->put_CurrentPosition(to);
    EXPECT_EQ(to, 50);
    EXPECT_NEAR(player->get_GraphPosition(), 0.0, 1e-9);
}

TEST_F(TransportTest, AForcedElapsedChangeAddsMillisecondsToSecondsAndStopsTheStopwatch) {
    loadAndPlay();
    sim->advanceMs(1500);
    float seconds = 2.0f;
    player->put_ElapsedForcedChange(seconds);
    EXPECT_FLOAT_EQ(seconds, 2000.0f);
    // 2000 ms plus the 1.5 "seconds" already elapsed, rounded: 2002 ms.
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 2.002f);
    sim->advanceMs(1000);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 2.002f);
}

TEST_F(TransportTest, RateIsClampedBelowAndAllowedFastOnlyWhereTheMarkerFileIs) {
    bool noPitch = false;
    player->put_UsePitchAdjuster(noPitch);
    load(Mp3);
    double r = 0.5;
    player->put_Rate(r);
    EXPECT_DOUBLE_EQ(r, 0.9);
    r = 1.5;
    player->put_Rate(r);
    EXPECT_DOUBLE_EQ(r, 1.5);
    EXPECT_DOUBLE_EQ(player->get_Rate(), 1.5);

    sim->operatorServices().addExistingFile(sim->operatorServices().markerFilePath());
    r = 1.5;
    player->put_Rate(r);
    EXPECT_DOUBLE_EQ(r, 2.0);
    r = 1.05;
    player->put_Rate(r);
    EXPECT_DOUBLE_EQ(r, 1.05);
}

TEST_F(TransportTest, ARateChangeWhilePlayingKeepsElapsedGoing) {
    bool noPitch = false;
    player->put_UsePitchAdjuster(noPitch);
    loadAndPlay();
    sim->advanceMs(1000);
    double r = 1.5;
    player->put_Rate(r);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 1.0f);
    sim->advanceMs(500);
    EXPECT_FLOAT_EQ(player->get_Elapsed(), 1.5f);
}

TEST_F(TransportTest, WindowsMediaFilesPlayAtTheirOwnSpeed) {
    bool noPitch = false;
    player->put_UsePitchAdjuster(noPitch);
    sim->addFile("/music/c.WMA", audioFile("stream/asf;wma", 100.0));
    allowAsfReader();
    load("/music/c.WMA");
    ASSERT_EQ(player->get_FileName(), "/music/c.WMA") << player->get_LastError();
    double r = 1.3;
    player->put_Rate(r);
    EXPECT_DOUBLE_EQ(r, 1.0);
}

TEST_F(TransportTest, WithThePitchAdjusterTheRateGoesToThePitchFilterAndReadsAsOne) {
    load(Mp3);
    double r = 1.2;
    player->put_Rate(r);
    EXPECT_DOUBLE_EQ(player->get_Rate(), 1.0);
    double graphRate = 0;
    player->mainGraph()->rate(graphRate);
    EXPECT_DOUBLE_EQ(graphRate, 1.0);
    auto pitch = PI(*player).pitchShifter();
    ASSERT_TRUE(pitch && pitch->pitchShifter());
    EXPECT_DOUBLE_EQ(pitch->pitchShifter()->rate(), 1.2);

    // The next item's pitch filter takes the same rate.
    load(Mp3B);
    pitch = PI(*player).pitchShifter();
    ASSERT_TRUE(pitch && pitch->pitchShifter());
    EXPECT_DOUBLE_EQ(pitch->pitchShifter()->rate(), 1.2);
    EXPECT_FALSE(pitch->pitchShifter()->passThrough());
}

// ---- Volume and mute ----

TEST_F(TransportTest, VolumeAboveZeroIsFullAndVeryQuietLevelsAreNotRemembered) {
    load(Mp3);
    int32_t v = 100;
    player->put_Volume(v);
    EXPECT_EQ(v, 0);
    EXPECT_EQ(graphVolume(), 0);

    v = -1500;
    player->put_Volume(v);
    v = -7000;
    player->put_Volume(v);
    EXPECT_EQ(graphVolume(), -7000);
    EXPECT_EQ(player->get_Volume(), -7000);
    EXPECT_TRUE(player->get_mute());

    bool mute = false;
    player->put_mute(mute);
    EXPECT_EQ(graphVolume(), -1500);
    mute = true;
    player->put_mute(mute);
    EXPECT_EQ(graphVolume(), -6800);
}

TEST_F(TransportTest, PlayReappliesAMuteOneUnitLower) {
    load(Mp3);
    bool mute = true;
    player->put_mute(mute);
    player->Play();
    EXPECT_EQ(graphVolume(), -6801);
    EXPECT_TRUE(player->get_mute());
}

TEST_F(TransportTest, APlayerOnItsPreFadeGraphPausesAndSetsTheVolumeThere) {
    load(Mp3);
    platform::GraphPtr pfl;
    ASSERT_TRUE(sim->createGraph(pfl).ok());
    PI(*player).pflGraph() = pfl;
    PI(*player).pflGraphFlag() = true;
    host.clear();

    int32_t v = -1200;
    player->put_Volume(v);
    int32_t level = 0;
    pfl->volume(level);
    EXPECT_EQ(level, -1200);
    EXPECT_EQ(graphVolume(), 0); // the main graph keeps its level
    EXPECT_EQ(player->get_Volume(), -1200);

    player->Pause();
    EXPECT_EQ(pfl->state(), platform::GraphState::Paused);
    EXPECT_EQ(host.states, (std::vector<std::pair<int32_t, int32_t>>{{0, 1}}));
}

TEST_F(TransportTest, WithoutAGraphVolumeIsTheStoredValueAndMuteIsOff) {
    int32_t v = -2000;
    player->put_Volume(v);
    EXPECT_EQ(player->get_Volume(), -2000);
    EXPECT_FALSE(player->get_mute());
    load(Mp3);
    EXPECT_EQ(graphVolume(), -2000); // the load applies it
}

} // namespace
} // namespace corvid::testing
