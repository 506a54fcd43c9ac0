// The player's public surface on a fresh simulated machine: process-wide settings, the
// adjusted accessors, the playstate override, the per-user settings and the graph listing.

#include <corvid/MemberIds.h>
#include <corvid/Player.h>
#include "levels/SilenceDet.h"
#include "platform/sim/SimPlatform.h"
#include "tests/contract/GraphOps.h"
#include "tests/sim/GraphFixture.h"

#include <gtest/gtest.h>

#include <set>

namespace corvid {
namespace {

using sim::SimPlatform;

using PlayerSurfaceTest = testing::PlayerFixture;

TEST_F(PlayerSurfaceTest, ProcessWideSettingsAreSharedAndANewPlatformStartsAfresh) {
    auto first = makePlayer();
    auto second = makePlayer();

    // First-construction defaults: only the reader ban is on.
    EXPECT_TRUE(second->get_ASFReaderBanned());
    EXPECT_FALSE(second->get_HaldenSourcePrefer());
    EXPECT_FALSE(second->get_AutoRenderAllowed());
    // The first player made the silence detector and switched its own detection on.
    EXPECT_TRUE(first->get_SilenceDetEnabled());
    EXPECT_FALSE(second->get_SilenceDetEnabled());
    EXPECT_EQ(&first->get_SilenceDet(), &second->get_SilenceDet());
    // The plug-ins are the catalogue's list; reading it starts no detection.
    EXPECT_TRUE(first->get_Plugins().empty());
    EXPECT_EQ(host.count("StartedCountingFilters"), 0);

    first->put_AutoRenderAllowed(true);
    first->put_HaldenSourcePrefer(true);
    second->put_ASFReaderBanned(false);
    second->put_autoCueThresh(1200);
    EXPECT_TRUE(second->get_AutoRenderAllowed());
    EXPECT_TRUE(second->get_HaldenSourcePrefer());
    EXPECT_FALSE(first->get_ASFReaderBanned());
    EXPECT_EQ(first->get_autoCueThresh(), 1200);

    // A player created later in the same process does not reset them.
    auto third = makePlayer();
    EXPECT_FALSE(third->get_ASFReaderBanned());
    EXPECT_TRUE(third->get_AutoRenderAllowed());

    // A new platform is a new process.
    auto otherSim = SimPlatform::standardMachine();
    Player fresh(*otherSim);
    EXPECT_TRUE(fresh.get_ASFReaderBanned());
    EXPECT_FALSE(fresh.get_AutoRenderAllowed());
    EXPECT_FALSE(fresh.get_HaldenSourcePrefer());
    EXPECT_EQ(fresh.get_autoCueThresh(), 500);
    EXPECT_TRUE(fresh.get_SilenceDetEnabled());
}

TEST_F(PlayerSurfaceTest, AdjustedAccessors) {
    auto& p = player = makePlayer();
    // No absolute value for the lowest: it reads as the default.
    for (auto [in, out] : {std::pair{-300, 300}, {0, 500}, {INT32_MIN, 500}}) {
        set(&Player::put_autoCueThresh, in);
        EXPECT_EQ(p->get_autoCueThresh(), out) << in;
    }

    // The fields and stored values read back what was written.
    set(&Player::put_ID, "Deck A");
    EXPECT_EQ(p->get_ID(), "Deck A");
    p->put_ThisCartName("cart 7");
    EXPECT_EQ(p->get_ThisCartName(), "cart 7");
    set(&Player::put_autoCueThresh, INT32_MIN);
    NameCollection& names = p->get_FilterNamesWeNeed();
    EXPECT_EQ(names.Count(), 0u);
    names.Add("Wave Parser");
    EXPECT_TRUE(p->get_FilterNamesWeNeed().Contains("wave parser"));

    // Values and temporaries write as variables do; only a variable learns the adjusted value.
    p->put_AutoSeg(true);
    EXPECT_TRUE(p->get_AutoSeg());
    const int32_t loud = 500;
    p->put_Volume(loud);
    EXPECT_EQ(p->get_Volume(), 0);
    EXPECT_EQ(set(&Player::put_Volume, 500), 0);

    // The meters read the helper's last peaks without their sign.
    sim->addFile("/music/a.mp3", {"stream/mpeg-audio", 60.0});
    p->put_FileName("/music/a.mp3");
    ASSERT_EQ(p->get_FileName(), "/music/a.mp3");
    p->Play();
    auto helper = sim->lastHelper(platform::GraphHelperKind::Helper);
    helper->fireThreadEvent(-5000, 3000);
    EXPECT_EQ(p->get_LeftVUPeak(), 5000);
    EXPECT_EQ(p->get_RightVuPeak(), 3000);
    helper->fireThreadEvent(INT32_MIN, 0);
    EXPECT_EQ(p->get_LeftVUPeak(), INT32_MAX);
}

TEST_F(PlayerSurfaceTest, PlaystateReportsPlayingWhileAStreamStartIsUnderWay) {
    auto& p = player = makePlayer();
    EXPECT_EQ(p->get_Playstate(), mpstopped);
    sim->addStream("http://radio/live", {});
    set(&Player::put_ASFReaderBanned, false);
    set(&Player::put_LoggingEnabled, true);
    load("http://radio/live");
    PlayCondition during = mpUnknown;
    host.onLog = [&](const std::string& line) {
        if (line == "Setting filename = http://radio/live") during = p->get_Playstate();
    };
    p->Play(); // a plain address is loaded anew for every play
    EXPECT_EQ(during, MpPlaying);
    host.onLog = nullptr;
    p->StopPlaying();
    sim->addFile("/music/a.mp3", {"stream/mpeg-audio", 60.0});
    load("/music/a.mp3");
    p->Play();
    p->Pause();
    EXPECT_EQ(p->get_Playstate(), mpPaused);
}

TEST_F(PlayerSurfaceTest, PerUserSettingsUseTheirKeysAndTextForms) {
    auto deckA = makePlayer();
    auto deckB = makePlayer();
    deckA->put_ID("A");
    deckB->put_ID("B");

    // Fresh profile.
    EXPECT_FALSE(deckA->get_NewGraphEveryTime());
    EXPECT_FALSE(deckA->get_PipeSenderDownstreamMute());

    deckA->put_NewGraphEveryTime(true);
    EXPECT_EQ(sim->settings().read("Orvo2010", "Fenwick", "NewGraphEveryTime", ""), "True");
    EXPECT_TRUE(makePlayer()->get_NewGraphEveryTime());

    // The mute is refused while the pipe sender is not enabled, with the operator's text.
    const auto e = raised([&] { deckA->put_PipeSenderDownstreamMute(true); });
    EXPECT_EQ(e ? e->description() : "no error raised",
              "You must first enable Pipe2020. Find it from Orvo in Alt+C, cart options");
    EXPECT_FALSE(deckA->get_PipeSenderDownstreamMute());

    deckA->put_Pipe2020(true);
    deckA->put_PipeSenderDownstreamMute(true);
    EXPECT_EQ(sim->settings().read("Orvo2020PLUS", "Player-Settings",
                                   "A : PipeSenderDownstreamMute", ""),
              "True");
    EXPECT_TRUE(deckA->get_PipeSenderDownstreamMute());
    EXPECT_FALSE(deckB->get_PipeSenderDownstreamMute());

    // A store that refuses the write does not reach the host.
    sim->failAlways(sim::FaultPoint::SettingsWrite, "", {platform::hr::AccessDenied, "denied"});
    EXPECT_NO_THROW(deckA->put_NewGraphEveryTime(false));
    EXPECT_TRUE(deckA->get_NewGraphEveryTime());
}

// A graph of three filters made straight on the platform: a source with no pins, a parser
// with an unconnected input, and a connected pair.
class PrintFiltersTest : public PlayerSurfaceTest {
protected:
    platform::GraphPtr graph;

    void SetUp() override {
        sim::FilterSpec pinless;
        pinless.displayName = "Broken Filter";
        sim->registerFilter(pinless);
        ASSERT_TRUE(sim->createGraph(graph).ok());
    }

    platform::FilterPtr add(const std::string& name) {
        auto f = graphops::make(*sim, *graph, name);
        EXPECT_TRUE(f) << name;
        return f;
    }
};

TEST_F(PrintFiltersTest, ListsFiltersPinsAndConnectionsWhileLogging) {
    auto& p = player = makePlayer();
    add("Broken Filter");
    EXPECT_EQ(p->PrintFilters(graph), "Logging not enabled (m_bLoggingEnabled)");

    set(&Player::put_LoggingEnabled, true);
    const std::string sep = "---------------------------------------------------------";
    EXPECT_EQ(p->PrintFilters(graph),
              sep + "\r\nFILTER NAME: Broken Filter\r\n" + sep +
                  "\r\nBroken Filter will prevent the graph from playing because it has no pins, "
                  "and needs to be removed");

    auto grabber = add("Halden Sample Grabber");
    auto pitch = add("Brindle Pitch Shifter");
    ASSERT_TRUE(grabber && pitch);
    const std::string text = p->PrintFilters(graph);
    EXPECT_NE(text.find("\r\nPin: " + graphops::in(grabber)->name() + " of Halden Sample Grabber is NOT Connected!"),
              std::string::npos);

    auto out = graphops::out(grabber);
    auto in = graphops::in(pitch);
    // The pass-through pair takes PCM once something feeds the grabber; connect a source.
    sim->addFile("/music/tone.wav", testing::simFile("stream/wave;pcm16", 10.0));
    platform::FilterPtr source;
    ASSERT_TRUE(graph->addSourceFilter("/music/tone.wav", source).ok());
    ASSERT_TRUE(graphops::join({source, add("Wave Parser"), grabber, pitch}));

    const std::string connected = p->PrintFilters(graph);
    const std::string fromGrabber = "Pin: " + out->name() + " of Halden Sample Grabber is connected to: " +
                                    in->name() + " of Brindle Pitch Shifter";
    EXPECT_NE(connected.find(fromGrabber), std::string::npos);
    EXPECT_NE(connected.find(" of Brindle Pitch Shifter is NOT Connected!"), std::string::npos);
}

TEST_F(PlayerSurfaceTest, LogLinesFollowTheSwitchAndWriteLogDoesNot) {
    player = makePlayer();
    sim->addFile("/music/nine.xyz", {"stream/unknown", 60.0}); // no chain plays it: WriteLog tells
    load("/music/nine.xyz");
    EXPECT_TRUE(host.log.empty());
    EXPECT_NE(std::find(host.writeLog.begin(), host.writeLog.end(),
                        "Getting desperate to render this file, doing automatically..."),
              host.writeLog.end());

    set(&Player::put_LoggingEnabled, true);
    load("/music/nine.xyz");
    EXPECT_TRUE(host.logged("Setting filename = /music/nine.xyz"));
}

TEST(MemberIdsTest, IdsAreUniqueAndEventsNumberedOneToTwentyOne) {
    std::set<uint32_t> seen;
    for (const auto& m : ids::members) EXPECT_TRUE(seen.insert(m.id).second) << m.name;
    ASSERT_EQ(ids::events.size(), 21u);
    for (size_t i = 0; i < ids::events.size(); ++i) EXPECT_EQ(ids::events[i].id, int32_t(i + 1));
    ASSERT_NE(ids::findMember("FileName"), nullptr);
    EXPECT_EQ(ids::findMember("FileName")->id, 0x68030026u);
    EXPECT_EQ(ids::findMember("ASFReaderBanned")->id, 0x6803007eu);
}

} // namespace
} // namespace corvid
