// Cue-in and segue searches: what the cue helper is asked, results in seconds, the segue search
// that waits for a cue result, and the give-up after 5001 ms.

#include "tests/sim/GraphFixture.h"

namespace corvid::testing {
namespace {

using sim::HelperSearch;
using Kind = HelperSearch::Kind;

class CueSegueTest : public BehaviourTest {
protected:
    void SetUp() override {
        load(Mp3);
        ASSERT_EQ(player->get_FileName(), Mp3) << player->get_LastError();
        logging(true);
        host.clear();
    }
    std::size_t searches() { return cueHelper().searches().size(); }
    const HelperSearch& last() { return *cueHelper().lastSearch(); }
};

TEST_F(CueSegueTest, ACueResultIsRaisedInSecondsAndANegativeOneIsNotFound) {
    player->AutoCueSearch();
    EXPECT_EQ(last().kind, Kind::Cue);
    EXPECT_EQ(last().file, Mp3);
    EXPECT_EQ(last().threshold, 500);
    EXPECT_TRUE(player->get_AutoCueBusy());
    EXPECT_TRUE(host.logged("AutoCueSearch(setup) Took: 0 ms."));
    sim->advanceMs(1234);
    cueHelper().fireCueIn(2500);
    const std::string dashes(58, '-');
    EXPECT_TRUE(host.logged("\r\n" + dashes + "\r\nAutoCue Took: 1234 ms.\r\nUsing ASF Reader = False. " +
                            "Using Halden Source = False\r\n" + dashes + "\r\n"));
    EXPECT_EQ(host.cueIns, std::vector<double>{2.5});
    EXPECT_FALSE(player->get_AutoCueBusy());

    player->AutoCueSearch();
    cueHelper().fireCueIn(-1);
    EXPECT_EQ(host.cueIns.size(), 1u);
    EXPECT_EQ(player->get_AutoCuePos(), 0.0);
}

TEST_F(CueSegueTest, ASegueSearchDuringACueSearchWaitsForTheCueResult) {
    set(&Player::put_AutoSegThresh, 700);
    player->AutoCueSearch();
    player->AutoSegSearch();
    EXPECT_EQ(searches(), 1u);
    cueHelper().fireCueIn(1000);
    ASSERT_EQ(searches(), 2u);
    EXPECT_EQ(last().kind, Kind::Segue);
    EXPECT_EQ(last().threshold, 700);
    cueHelper().fireSegue(171250);
    EXPECT_EQ(host.segues, std::vector<double>{171.25});
}

TEST_F(CueSegueTest, APendingSegueSearchGivesUpOnTheCueResultAfter5001Ms) {
    player->AutoCueSearch();
    player->AutoSegSearch();
    sim->advanceMs(5000);
    cueHelper().fireThreadEvent(0, 0);
    EXPECT_EQ(searches(), 1u);
    sim->advanceMs(1);
    cueHelper().fireThreadEvent(0, 0);
    EXPECT_TRUE(host.logged("Waited TOO LONG for the autocue to happen, and an autoseg command is pending. "
                            "Giving up lookin' for AutoCue, and lookng for seg instead"));
    ASSERT_EQ(searches(), 2u);
    EXPECT_EQ(last().kind, Kind::Segue);
    EXPECT_FALSE(player->get_AutoCueBusy());
    cueHelper().fireCueIn(500); // late: counted, starts nothing more
    EXPECT_EQ(host.cueIns, std::vector<double>{0.5});
    EXPECT_EQ(searches(), 2u);
}

TEST_F(CueSegueTest, SourceChoicesRetriesAndWhatSearchesNothing) {
    set(&Player::put_HaldenSourcePrefer, true);
    load(Mp3B); // through the own reader
    player->AutoSegSearch();
    EXPECT_EQ(last().kind, Kind::SegueOwnSource);
    set(&Player::put_HaldenSourcePrefer, false);
    load(Mp3);
    sim->failOnce(sim::FaultPoint::SegueSearch, "", platform::Status::failure(platform::hr::Fail, "no"));
    player->AutoSegSearch(); // one retry, through the ASF reader
    EXPECT_EQ(cueHelper().count("startSegueSearch"), 2);
    EXPECT_TRUE(last().useAsfReader);

    sim->failOnce(sim::FaultPoint::CueSearch, "", platform::Status::failure(platform::hr::Fail, "no"));
    player->AutoCueSearch();
    EXPECT_FALSE(player->get_AutoCueBusy());

    const auto cue = sim->lastHelper(platform::GraphHelperKind::CueHelper);
    const std::size_t before = cue->searches().size();
    load(Live);
    player->AutoSegSearch();
    sim->failAlways(sim::FaultPoint::CreateHelper, "CueHelper", platform::Status::failure(platform::hr::Fail, "no"));
    player->CreateNewGraph(false); // a graph without a cue helper
    player->AutoCueSearch();
    EXPECT_EQ(cue->searches().size(), before);
    EXPECT_EQ(host.count("PlayerLogInfo: AutoCueSearch(setup) Took: "), 2);
}

TEST_F(CueSegueTest, TheLoadStartsTheCueSearchAndTheNextLoadForgetsIt) {
    player->UseAutoCue = true;
    player->CanCueIn = true;
    load(Mp3B);
    EXPECT_EQ(last().kind, Kind::Cue);
    EXPECT_EQ(last().file, Mp3B);
    player->AutoSegSearch();
    player->CanCueIn = false;
    load(Mp3);
    EXPECT_FALSE(player->get_AutoCueBusy());
    const std::size_t before = searches();
    cueHelper().fireCueIn(500); // the forgotten segue search does not start with it
    EXPECT_EQ(searches(), before);
}

} // namespace
} // namespace corvid::testing
