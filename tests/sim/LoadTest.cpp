// Loading: each kind of item with its log, logging off, reload and unload, the failure path and
// its retry, streams, and hosts that write FileName or call Play from inside the load's events.

#include "tests/sim/GraphFixture.h"

namespace corvid::testing {
namespace {

using sim::FaultPoint;
using platform::Status;

std::string checkpoint(int n) { return "Filename Let In Player: took: 0(" + std::to_string(n) + ") so far..."; }

class LoadTest : public BehaviourTest {};

// Every kind of item, loaded one per player: its log in order and its duration. Which chain
// each kind gets is ChainTest's.
struct Kind {
    const char* test;
    const char* name;
    const char* mediaType; // empty: a stream address
    double duration;
};

const Kind kKinds[] = {
    {"mp3_via_file_source", "/music/one.mp3", "stream/mpeg-audio", 180.0},
    {"wav_via_wave_parser", "/music/two.wav", "stream/wave;pcm16", 61.5},
    {"wma_via_reader", "/music/three.wma", "stream/asf;wma", 200.0},
    {"asf_via_reader", "/music/three.asf", "stream/asf;wma", 200.0},
    {"ogg_via_ogg_source", "/music/four.ogg", "stream/ogg;vorbis", 95.0},
    {"flac_via_decoding_source", "/music/five.flac", "stream/flac", 300.0},
    {"m4a_via_mp4_demultiplexer", "/music/six.m4a", "stream/mp4;aac", 240.0},
    {"icystream_via_stream_source", "icystream://127.0.0.1:8000/live", "", 216000.0},
    {"mp2_via_mp3_fallback", "/music/seven.mp2", "stream/mpeg-audio", 150.0}, // no chain of its own
};

// ctest names its cases by what it prints: the case's own name, never its bytes.
void PrintTo(const Kind& kind, std::ostream* os) { *os << kind.test; }

class LoadEachKindTest : public BehaviourTest, public ::testing::WithParamInterface<Kind> {};

TEST_P(LoadEachKindTest, LoadsWithEveryStepLoggedInOrder) {
    const std::string name = GetParam().name;
    const bool address = !*GetParam().mediaType;
    if (address) sim->addStream(name, {});
    else sim->addFile(name, simFile(GetParam().mediaType, GetParam().duration));
    logging(true);
    load(name);

    ASSERT_EQ(player->get_FileName(), name) << player->get_LastError();
    EXPECT_DOUBLE_EQ(player->get_Duration(), GetParam().duration);
    EXPECT_EQ(helper().currentGraph(), player->mainGraph());
    EXPECT_EQ(countFilters("Halden Sample Grabber"), 1);
    std::vector<std::string> steps = {"Setting filename = " + name, "Attempting to actually load file: " + name,
                                      name + "Succeeded to build the graph.  ", checkpoint(2),
                                      "Setting Volume --  " + name, checkpoint(3), checkpoint(4),
                                      "Err here (may well be none!) is: 0 ", checkpoint(5),
                                      "Setting pitch adjust options(1)... ", "Set pitch adjust options. ",
                                      "Setting Helper's currentgraph... ", checkpoint(6), checkpoint(7),
                                      "Setting CurrentGraph on MainGraphMan...", "Have Set CurrentGraph on MainGraphMan.",
                                      checkpoint(8), checkpoint(9), "Set Helper's currentgraph... "};
    if (!address) steps.insert(steps.end(), {"Setting Pitch...to 0 ", "Set Pitch... "});
    steps.insert(steps.end(), {checkpoint(8), "Apparently succeeded to load: " + name,
                               "Here we are, at 'done' - this is a successful load...: " + name,
                               "Filename (Let) in Player succeeded: in 0 ms."});
    EXPECT_TRUE(inOrder(host.log, steps));
    EXPECT_TRUE(host.logged("BuildGraph took 0 ms."));
    EXPECT_EQ(host.count("PlayerLogInfo: \r\nFilters in "), 3); // main, helper and cue helper graphs
}

INSTANTIATE_TEST_SUITE_P(Kinds, LoadEachKindTest, ::testing::ValuesIn(kKinds),
                         [](const auto& info) { return std::string(info.param.test); });

TEST_F(LoadTest, WithLoggingOffNoLogLineIsRaisedButStateAndMetersStillAre) {
    load(Mp3);
    player->Play();
    player->Pause();
    load(Mp3B); // over a loaded item: the unload zeroes the meters
    load("");
    load("/music/missing.mp3");
    EXPECT_NE(std::find(host.playStates.begin(), host.playStates.end(), std::pair<int32_t, int32_t>{1, 0}),
              host.playStates.end());
    EXPECT_EQ(host.vuPeaks, States({{0, 0}, {0, 0}}));
    EXPECT_TRUE(host.log.empty());
}

TEST_F(LoadTest, TheSameNameAgainUnloadsAndReloadsAndAnEmptyNameUnloads) {
    load(Mp3);
    player->Play();
    logging(true);
    host.clear();
    load(Mp3);
    EXPECT_TRUE(inOrder(host.log, {"Setting filename = ", "NewFileName is NULL, so removesourcefilter et al...",
                                   std::string("Setting filename = ") + Mp3}));
    EXPECT_EQ(player->get_FileName(), Mp3);
    EXPECT_EQ(player->get_Playstate(), mpstopped);

    load("");
    load(""); // nothing loaded: still logged, still zeroes the meters
    EXPECT_EQ(host.count("PlayerLogInfo: NewFileName is NULL"), 3);
    EXPECT_EQ(host.vuPeaks, States({{0, 0}, {0, 0}, {0, 0}}));
    EXPECT_EQ(player->get_FileName(), "");
}

TEST_F(LoadTest, AFailedBuildIsRetriedThroughTheOtherSourceThenTheGraphIsDestroyed) {
    logging(true);
    const std::string bad = "/music/missing.mp3";
    load(bad);
    EXPECT_TRUE(inOrder(host.log, {"BuildGraph DIDNT succeed - lets try again with a different source filter...",
                                   "BuildGraph DIDNT succeed - even with a different source filter failing this file...",
                                   "Last Error: " + player->get_LastError() + "  ",
                                   "Here we are, at 'Fail:' - this is a *NOT* successful load...:  " + bad,
                                   bad + " - this is a *NOT* successful load...: ",
                                   "What happens here, is we destroy the graph...",
                                   "Ok, back at the end of filename property let now...", "Done with filename let now"}));
    EXPECT_EQ(player->get_FileName(), "");
    EXPECT_FALSE(player->mainGraph());

    // An item only the other source can read loads as a fallback.
    const auto refuse = Status::failure(platform::hr::CannotConnect, "no");
    sim->failAlways(FaultPoint::ConnectDirect, "File Source (Async.)", refuse);
    sim->failAlways(FaultPoint::Connect, "File Source (Async.)", refuse);
    load(Mp3);
    EXPECT_EQ(player->get_FileName(), Mp3) << player->get_LastError();
    EXPECT_TRUE(player->get_UsingASFReaderAsFallback());
}

TEST_F(LoadTest, AStreamIsReloadedForEveryPlayAndOneThatIsGoneRaisesStreamNotFound) {
    load(Live);
    ASSERT_EQ(player->get_FileName(), Live) << player->get_LastError();
    EXPECT_DOUBLE_EQ(player->get_Duration(), 216000.0);
    logging(true);
    player->Play();
    EXPECT_TRUE(host.logged("NewFileName is NULL, so removesourcefilter et al..."));
    EXPECT_EQ(player->get_Playstate(), MpPlaying);
    host.clear();
    player->Play(); // already playing: no reload
    EXPECT_TRUE(host.playStates.empty());

    player->StopPlaying();
    for (FaultPoint where : {FaultPoint::SetFileName, FaultPoint::AddSourceFilter})
        sim->failAlways(where, "", Status::failure(platform::hr::FileNotFound, "gone"));
    PlayCondition during = mpstopped;
    host.onLog = [&](const std::string&) { during = player->get_Playstate(); };
    const auto e = raised([&] { player->Play(); });
    ASSERT_TRUE(e) << "Play must raise";
    EXPECT_EQ(e->number(), 3333);
    EXPECT_EQ(e->description(), "The stream cannot be found.");
    EXPECT_EQ(during, MpPlaying); // the reload reads as playing
    EXPECT_EQ(player->get_Playstate(), mpUnknown);
    EXPECT_EQ(player->get_FileName(), "Stream FAIL");
    EXPECT_GE(host.count("StreamBufferingFinished"), 1);
}

TEST_F(LoadTest, ANewGraphForEveryItemDestroysTheLastOne) {
    load(Mp3);
    const auto first = player->mainGraph();
    set(&Player::put_NewGraphEveryTime, true);
    logging(true);
    load(Mp3B);
    EXPECT_TRUE(inOrder(host.log, {"Player Setting: NewGraphEveryTime = True",
                                   "NewGraphEveryTime means we destroy the graph...", "Graph Destroyed."}));
    EXPECT_NE(player->mainGraph(), first);

}

TEST_F(LoadTest, AStreamThatCanNoLongerBeCancelledIsLetGoByTheNextLoad) {
    sim->addStream("icystream://radio/fixed", {});
    load("icystream://radio/fixed");
    ASSERT_EQ(player->get_FileName(), "icystream://radio/fixed") << player->get_LastError();
    const auto source = sim->lastStreamSource();
    load(Mp3B);
    EXPECT_EQ(player->get_FileName(), Mp3B) << player->get_LastError();
    host.clear();
    source->fireMetaChange("Artist - Title", "http://radio", "StreamTitle='x';"); // no longer heard
    EXPECT_TRUE(host.all.empty());
}

TEST_F(LoadTest, AWriteLeftBusyInsideTheAnnouncementQuitsTheOuterWriteAndPlayInsideALoadFindsNothing) {
    logging(true);
    host.onLog = [&](const std::string& line) {
        if (line == std::string("Setting filename = ") + Mp3) load("/music/missing.mp3"); // fails, stays busy
    };
    load(Mp3);
    EXPECT_TRUE(host.logged("Filename: BUSY - quitting!"));
    EXPECT_FALSE(host.logged(std::string("Attempting to actually load file: ") + Mp3));
    EXPECT_EQ(player->get_FileName(), "");

    // Play from inside a load finds nothing to play and the load goes on.
    host.onLog = [&](const std::string& line) {
        if (line == "Setting Helper's currentgraph... ") player->Play();
    };
    load(Mp3);
    EXPECT_TRUE(host.logged("There was an Expected error here, so not destroying graph"));
    EXPECT_EQ(player->get_FileName(), Mp3) << player->get_LastError();
    EXPECT_EQ(player->get_Playstate(), mpstopped);
}

} // namespace
} // namespace corvid::testing
