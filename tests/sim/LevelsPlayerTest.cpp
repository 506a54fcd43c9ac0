// Levels in the player: silence raised from the helper's ticks, the silence dialog the host
// opens, and the tag properties of the loaded item.

#include "tests/sim/BehaviourFixture.h"

#include "levels/SilenceDet.h"
#include "levels/SilenceDialog.h"

namespace corvid::testing {
namespace {

class LevelsPlayerTest : public BehaviourTest {
protected:
    // One tick a second for `seconds` with both channels at `level`.
    void tickEverySecond(int seconds, int32_t level) {
        for (int i = 0; i < seconds; ++i) {
            sim->advanceMs(1000);
            helper().fireThreadEvent(level, level);
        }
    }
    void setSilenceSeconds(int32_t s) { player->get_SilenceDet().put_SilenceDetSecs(s); }
};

// ---- Silence ----

TEST_F(LevelsPlayerTest, SilenceIsRaisedAfterTheSetSecondsAndAgainAfterAsManyMore) {
    sim->setSecondsSinceMidnight(36000);
    setSilenceSeconds(30);
    loadAndPlay();
    const int32_t quiet = 100; // threshold 328 at -40 dB

    tickEverySecond(29, quiet);
    EXPECT_TRUE(host.silences.empty());
    tickEverySecond(1, quiet);
    EXPECT_EQ(host.silences, std::vector<int32_t>{30});
    tickEverySecond(30, quiet);
    EXPECT_EQ(host.silences, (std::vector<int32_t>{30, 30}));
}

TEST_F(LevelsPlayerTest, SoundRestartsTheCountAndAPeakAtTheThresholdNeitherRestartsNorCounts) {
    sim->setSecondsSinceMidnight(36000);
    setSilenceSeconds(5);
    loadAndPlay();
    const int32_t threshold = player->get_SilenceDet().intValueSilence();

    tickEverySecond(4, 0);
    helper().fireThreadEvent(threshold + 1, 0); // sound on one channel
    tickEverySecond(4, 0);
    EXPECT_TRUE(host.silences.empty());

    sim->advanceMs(1000);
    helper().fireThreadEvent(threshold, 0); // at the threshold: no restart
    EXPECT_TRUE(host.silences.empty());
    tickEverySecond(1, 0);
    EXPECT_EQ(host.silences, std::vector<int32_t>{6});
}

TEST_F(LevelsPlayerTest, NoSilenceWhileNotPlayingOrWithEitherSwitchOff) {
    sim->setSecondsSinceMidnight(36000);
    setSilenceSeconds(2);
    load(Mp3);
    tickEverySecond(10, 0);
    EXPECT_TRUE(host.silences.empty());

    player->Play();
    bool off = false;
    player->put_SilenceDetEnabled(off);
    tickEverySecond(10, 0);
    EXPECT_TRUE(host.silences.empty());

    bool on = true;
    player->put_SilenceDetEnabled(on);
    player->get_SilenceDet().put_SilenceDetectorEnabled(false);
    tickEverySecond(10, 0);
    EXPECT_TRUE(host.silences.empty());
}

TEST_F(LevelsPlayerTest, EveryPlayStartsTheSilenceCountAgain) {
    sim->setSecondsSinceMidnight(36000);
    setSilenceSeconds(5);
    loadAndPlay();
    tickEverySecond(4, 0);
    player->Pause();
    sim->advanceMs(10000);
    player->Play();
    tickEverySecond(4, 0);
    EXPECT_TRUE(host.silences.empty());
    tickEverySecond(1, 0);
    EXPECT_EQ(host.silences, std::vector<int32_t>{5});
}

// ---- The silence dialog ----

TEST_F(LevelsPlayerTest, TheDialogShowsTheSharedSettingsAndOkCorrectsBadEntries) {
    int shown = 0;
    void* owner = &shown;
    player->setSilenceDialogPresenter([&](dlgSilence& dialog, void* ownerForm) {
        ++shown;
        EXPECT_EQ(ownerForm, owner);
        EXPECT_EQ(dialog.lblNotes(), "Deck A");
        EXPECT_EQ(dialog.txtdB(), "40");
        EXPECT_EQ(dialog.txtSecs(), "30");
        dialog.put_txtdB("loud");
        dialog.put_txtSecs("0");
        dialog.OKButton_Click();
        EXPECT_TRUE(dialog.closed());
    });
    player->SilenceDetShowUI(owner, "Deck A");
    EXPECT_EQ(shown, 1);
    clsSilenceDet& det = player->get_SilenceDet();
    EXPECT_EQ(det.get_SilenceDetdBDownIsSilence(), -25);
    EXPECT_EQ(det.get_SilenceDetSecs(), 30);
    EXPECT_EQ(sim->settings().value("Corvid", "Fenwick1", "SilenceData"), "-25,30,True");
}

TEST_F(LevelsPlayerTest, ZeroDecibelsLeavesTheDialogOpenWithNothingSavedAndNothingReachesTheHost) {
    const int writesBefore = sim->settings().writeCount();
    player->setSilenceDialogPresenter([&](dlgSilence& dialog, void*) {
        dialog.put_txtdB("0");
        dialog.OKButton_Click();
    });
    EXPECT_NO_THROW(player->SilenceDetShowUI());
    EXPECT_EQ(player->get_SilenceDet().get_SilenceDetdBDownIsSilence(), -40);
    EXPECT_EQ(sim->settings().writeCount(), writesBefore);
}

TEST_F(LevelsPlayerTest, WithoutAPresenterTheDialogIsOnlyLogged) {
    logging(true);
    player->SilenceDetShowUI();
    EXPECT_TRUE(host.loggedStartingWith("SilenceDetShowUI:"));
}

// ---- Tags ----

TEST_F(LevelsPlayerTest, TheYearFallsBackWhenTheOriginalReleaseYearIsNoNumber) {
    sim->addFile("/music/both.wma",
                 audioFile("stream/asf;wma", 100.0,
                           {{"Artist", "Ana"}, {"Title", "Song"}, {"WM/Genre", "Pop"},
                            {"WM/OriginalReleaseYear", "1971"}, {"WM/Year", "1999"}}));
    sim->addFile("/music/odd.wma",
                 audioFile("stream/asf;wma", 100.0,
                           {{"WM/OriginalReleaseYear", "early"}, {"WM/Year", "1999"}}));
    EXPECT_EQ(player->get_WMAYear(), "");
    EXPECT_EQ(player->get_WMAArtist(), "");
    allowAsfReader();

    load("/music/both.wma");
    ASSERT_EQ(player->get_FileName(), "/music/both.wma") << player->get_LastError();
    EXPECT_EQ(player->get_WMAYear(), "1971");
    EXPECT_EQ(player->get_WMAArtist(), "Ana");
    EXPECT_EQ(player->get_WMATitle(), "Song");
    EXPECT_EQ(player->get_WMAGenre(), "Pop");

    load("/music/odd.wma");
    EXPECT_EQ(player->get_WMAYear(), "1999");

    load("");
    EXPECT_EQ(player->get_WMAYear(), "");
}

} // namespace
} // namespace corvid::testing
