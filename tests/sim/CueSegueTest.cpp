// Cue-in and segue searches: what the cue helper is asked, the results in seconds, the
// segue search that waits for a cue result, and the give-up after 5001 ms.

#include "tests/sim/BehaviourFixture.h"

namespace corvid::testing {
namespace {

using sim::FaultPoint;
using sim::HelperSearch;

class CueSegueTest : public BehaviourTest {
protected:
    void SetUp() override {
        sim->setTickCount(100000); // a machine that has been up a while: a search start is never 0
        load(Mp3);
        ASSERT_EQ(player->get_FileName(), Mp3) << player->get_LastError();
        host.clear();
    }
    std::size_t searches() { return cueHelper().searches().size(); }
};

TEST_F(CueSegueTest, ACueResultIsRaisedInSecondsWithItsTimingBlock) {
    logging(true);
    player->AutoCueSearch();
    ASSERT_EQ(searches(), 1u);
    const HelperSearch& s = *cueHelper().lastSearch();
    EXPECT_EQ(s.kind, HelperSearch::Kind::Cue);
    EXPECT_EQ(s.file, Mp3);
    EXPECT_EQ(s.threshold, 500);
    EXPECT_TRUE(player->get_AutoCueBusy());
    EXPECT_TRUE(host.logged("AutoCueSearch(setup) Took: 0 ms."));

    sim->advanceMs(1234);
    cueHelper().fireCueIn(2500);
    const std::string dashes(58, '-');
    EXPECT_TRUE(host.logged("\r\n" + dashes + "\r\nAutoCue Took: 1234 ms.\r\nUsing ASF Reader = False. "
                            "Using Halden Source = False\r\n" + dashes + "\r\n"));
    EXPECT_EQ(host.cueIns, std::vector<double>{2.5});
    EXPECT_DOUBLE_EQ(player->get_AutoCuePos(), 2.5);
    EXPECT_FALSE(player->get_AutoCueBusy());
}

TEST_F(CueSegueTest, ANegativeCueResultIsNotFound) {
    player->AutoCueSearch();
    cueHelper().fireCueIn(-1);
    EXPECT_TRUE(host.cueIns.empty());
    EXPECT_EQ(player->get_AutoCuePos(), 0.0);
}

TEST_F(CueSegueTest, ACueSearchForAnotherFileUsesTheProcessThresholdAndTheSourceChoice) {
    int32_t thresh = -300;
    player->put_autoCueThresh(thresh);
    PI(*player).usingAsfReader() = true;
    player->AutoCueSearch("/music/other.mp3");
    const HelperSearch& s = *cueHelper().lastSearch();
    EXPECT_EQ(s.file, "/music/other.mp3");
    EXPECT_EQ(s.threshold, 300);
    EXPECT_TRUE(s.useAsfReader);

    PI(*player).usingHaldenSource() = true; // the player's own source: not the ASF reader
    player->AutoCueSearch();
    EXPECT_FALSE(cueHelper().lastSearch()->useAsfReader);
}

TEST_F(CueSegueTest, ACueSearchThatCannotStartIsNotBusy) {
    sim->failOnce(FaultPoint::CueSearch, "", platform::Status::failure(platform::hr::Fail, "no"));
    player->AutoCueSearch();
    EXPECT_FALSE(player->get_AutoCueBusy());
}

TEST_F(CueSegueTest, TheCueHelpersEndEndsTheSearch) {
    player->AutoCueSearch();
    cueHelper().fireEndOfStream();
    EXPECT_FALSE(player->get_AutoCueBusy());
}

TEST_F(CueSegueTest, ASegueSearchDuringACueSearchWaitsForTheCueResult) {
    int32_t segThresh = 700;
    player->put_AutoSegThresh(segThresh);
    player->AutoCueSearch();
    player->AutoSegSearch();
    EXPECT_EQ(searches(), 1u);
    EXPECT_TRUE(PI(*player).seguePending());

    cueHelper().fireCueIn(1000);
    ASSERT_EQ(searches(), 2u);
    const HelperSearch& s = *cueHelper().lastSearch();
    EXPECT_EQ(s.kind, HelperSearch::Kind::Segue);
    EXPECT_EQ(s.file, Mp3);
    EXPECT_EQ(s.threshold, 700);
    EXPECT_FALSE(PI(*player).seguePending());

    cueHelper().fireSegue(171250);
    EXPECT_EQ(host.segues, std::vector<double>{171.25});
    EXPECT_DOUBLE_EQ(player->get_AutoSegPos(), 171.25);
}

TEST_F(CueSegueTest, APendingSegueSearchGivesUpOnTheCueResultAfter5001Ms) {
    logging(true);
    player->AutoCueSearch();
    player->AutoSegSearch();

    sim->advanceMs(5000);
    cueHelper().fireThreadEvent(0, 0);
    EXPECT_EQ(searches(), 1u);
    EXPECT_TRUE(player->get_AutoCueBusy());

    sim->advanceMs(1);
    cueHelper().fireThreadEvent(0, 0);
    EXPECT_TRUE(host.logged("Waited TOO LONG for the autocue to happen, and an autoseg command is "
                            "pending. Giving up lookin' for AutoCue, and lookng for seg instead"));
    ASSERT_EQ(searches(), 2u);
    EXPECT_EQ(cueHelper().lastSearch()->kind, HelperSearch::Kind::Segue);
    EXPECT_FALSE(player->get_AutoCueBusy());
    EXPECT_FALSE(PI(*player).seguePending());

    // The late cue result still counts, but starts nothing more.
    cueHelper().fireCueIn(500);
    EXPECT_EQ(host.cueIns, std::vector<double>{0.5});
    EXPECT_EQ(searches(), 2u);
}

TEST_F(CueSegueTest, CueHelperTicksWithoutAPendingSegueChangeNothing) {
    player->AutoCueSearch();
    sim->advanceMs(60000);
    cueHelper().fireThreadEvent(0, 0);
    EXPECT_TRUE(player->get_AutoCueBusy());
    EXPECT_EQ(searches(), 1u);
}

TEST_F(CueSegueTest, ASegueSearchThatCannotStartIsTriedOnceMoreThroughTheAsfReader) {
    sim->failOnce(FaultPoint::SegueSearch, "", platform::Status::failure(platform::hr::Fail, "no"));
    player->AutoSegSearch();
    EXPECT_EQ(cueHelper().count("startSegueSearch"), 2);
    ASSERT_EQ(searches(), 1u); // the refused one is not under way
    EXPECT_TRUE(cueHelper().lastSearch()->useAsfReader);
    EXPECT_EQ(cueHelper().lastSearch()->kind, HelperSearch::Kind::Segue);
}

TEST_F(CueSegueTest, ThePlayersOwnSourceUsesItsOwnSegueVariant) {
    PI(*player).usingHaldenSource() = true;
    player->AutoSegSearch();
    EXPECT_EQ(cueHelper().lastSearch()->kind, HelperSearch::Kind::SegueOwnSource);
}

TEST_F(CueSegueTest, StreamsAndPlayersWithoutACueHelperSearchNothing) {
    PI(*player).currentItem() = "http://127.0.0.1:8000/live";
    player->AutoSegSearch();
    EXPECT_EQ(searches(), 0u);

    logging(true);
    PI(*player).cueHelper().reset();
    player->AutoCueSearch();
    player->AutoSegSearch();
    EXPECT_FALSE(player->get_AutoCueBusy());
    EXPECT_TRUE(host.logged("AutoCueSearch(setup) Took: 0 ms."));
}

TEST_F(CueSegueTest, TheLoadStartsTheCueSearchWhenTheHostAllowsIt) {
    player->UseAutoCue = true;
    player->CanCueIn = true;
    load(Mp3B);
    ASSERT_GE(searches(), 1u);
    EXPECT_EQ(cueHelper().lastSearch()->kind, HelperSearch::Kind::Cue);
    EXPECT_EQ(cueHelper().lastSearch()->file, Mp3B);
    EXPECT_TRUE(player->get_AutoCueBusy());

    // A new load forgets a search under way and its pending segue.
    player->AutoSegSearch();
    player->CanCueIn = false;
    load(Mp3);
    EXPECT_FALSE(player->get_AutoCueBusy());
    EXPECT_FALSE(PI(*player).seguePending());
    EXPECT_EQ(player->get_AutoCuePos(), 0.0);
}

} // namespace
} // namespace corvid::testing
