// Levels in the player: silence from the helper's ticks, the silence dialog, the tag properties.

#include "tests/sim/GraphFixture.h"

#include "levels/SilenceDet.h"
#include "levels/SilenceDialog.h"

namespace corvid::testing {
namespace {

class LevelsPlayerTest : public BehaviourTest {
protected:
    void SetUp() override { sim->setSecondsSinceMidnight(36000); }
    void tickEverySecond(int seconds, int32_t left, int32_t right = 0) {
        for (int i = 0; i < seconds; ++i) {
            sim->advanceMs(1000);
            helper().fireThreadEvent(left, right);
        }
    }
    void silenceSeconds(int32_t s) { player->get_SilenceDet().put_SilenceDetSecs(s); }
};

TEST_F(LevelsPlayerTest, SilenceIsRaisedAfterTheSetSecondsAndAgainAfterAsManyMore) {
    silenceSeconds(5);
    loadAndPlay();
    const int32_t threshold = player->get_SilenceDet().intValueSilence(); // 328 at -40 dB
    tickEverySecond(4, 0);
    tickEverySecond(1, threshold + 1); // sound on one channel restarts the count
    tickEverySecond(4, 0);
    tickEverySecond(1, threshold); // a peak at the threshold neither restarts nor counts
    EXPECT_TRUE(host.silences.empty());
    tickEverySecond(6, threshold - 1);
    EXPECT_EQ(host.silences, (std::vector<int32_t>{6, 5}));
}

TEST_F(LevelsPlayerTest, NoSilenceWhileNotPlayingOrWithEitherSwitchOffAndEveryPlayRestartsTheCount) {
    silenceSeconds(2);
    load(Mp3);
    tickEverySecond(5, 0);
    player->Play();
    set(&Player::put_SilenceDetEnabled, false);
    tickEverySecond(5, 0);
    set(&Player::put_SilenceDetEnabled, true);
    player->get_SilenceDet().put_SilenceDetectorEnabled(false);
    tickEverySecond(5, 0);
    EXPECT_TRUE(host.silences.empty());

    player->get_SilenceDet().put_SilenceDetectorEnabled(true);
    player->Play();
    tickEverySecond(1, 0);
    EXPECT_TRUE(host.silences.empty());
    tickEverySecond(1, 0);
    EXPECT_EQ(host.silences, std::vector<int32_t>{2});
}

TEST_F(LevelsPlayerTest, TheDialogShowsTheSharedSettingsOkCorrectsBadEntriesAndTheYearFallsBack) {
    int shown = 0;
    player->setSilenceDialogPresenter([&](dlgSilence& dialog, void* owner) {
        ++shown;
        EXPECT_EQ(owner, &shown);
        EXPECT_EQ(dialog.lblNotes(), "Deck A");
        EXPECT_EQ(dialog.txtdB(), "40");
        dialog.put_txtdB("loud");
        dialog.put_txtSecs("0");
        dialog.OKButton_Click();
    });
    player->SilenceDetShowUI(&shown, "Deck A");
    EXPECT_EQ(shown, 1);
    EXPECT_EQ(player->get_SilenceDet().get_SilenceDetdBDownIsSilence(), -25);
    EXPECT_EQ(sim->settings().value("Corvid", "Fenwick1", "SilenceData"), "-25,30,True");

    const int writes = sim->settings().writeCount(); // 0 dB: the dialog stays open, nothing saved
    player->setSilenceDialogPresenter([&](dlgSilence& dialog, void*) {
        dialog.put_txtdB("0");
        dialog.OKButton_Click();
    });
    EXPECT_NO_THROW(player->SilenceDetShowUI());
    EXPECT_EQ(sim->settings().writeCount(), writes);

    logging(true);
    player->setSilenceDialogPresenter(nullptr);
    player->SilenceDetShowUI();
    EXPECT_EQ(host.count("PlayerLogInfo: SilenceDetShowUI:"), 1);

    // The tags are the loaded item's (the year's fallback is the tag reader's own).
    sim->addFile("/music/both.wma", simFile("stream/asf;wma", 100.0,
                                              {{"Artist", "Ana"}, {"WM/Genre", "Pop"},
                                               {"WM/OriginalReleaseYear", "1971"}, {"WM/Year", "1999"}}));
    EXPECT_EQ(player->get_WMAYear(), "");
    load("/music/both.wma");
    ASSERT_EQ(player->get_FileName(), "/music/both.wma") << player->get_LastError();
    EXPECT_EQ(player->get_WMAYear(), "1971");
    EXPECT_EQ(player->get_WMAArtist(), "Ana");
    EXPECT_EQ(player->get_WMAGenre(), "Pop");
    load("");
    EXPECT_EQ(player->get_WMAArtist(), "");
}

} // namespace
} // namespace corvid::testing
