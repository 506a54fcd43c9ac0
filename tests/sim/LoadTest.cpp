// Loading: a full load of each kind of item with its log, logging off, unloads and reloads,
// the failure path, and hosts that write FileName or call Play from inside the load's events.

#include "tests/sim/BehaviourFixture.h"

#include "support/PlayerSettings.h"

namespace corvid::testing {
namespace {

using sim::FaultPoint;

std::string checkpoint(int n, int ms = 0) {
    return "Filename Let In Player: took: " + std::to_string(ms) + "(" + std::to_string(n) +
           ") so far...";
}

class LoadTest : public BehaviourTest {};

// ---- A full load of each kind ----

struct Item {
    const char* name;
    const char* mediaType; // empty: a stream address
    double expectedDuration;
};

class LoadEachKindTest : public BehaviourTest, public ::testing::WithParamInterface<Item> {};

TEST_P(LoadEachKindTest, LoadsWithEveryStepLoggedInOrder) {
    const Item item = GetParam();
    const std::string name = item.name;
    const bool stream = name.find("://") != std::string::npos;
    allowAsfReader();
    if (stream)
        sim->addStream(name, {});
    else
        sim->addFile(name, audioFile(item.mediaType, item.expectedDuration));
    logging(true);

    load(name);

    ASSERT_EQ(player->get_FileName(), name) << player->get_LastError();
    EXPECT_EQ(player->get_LastError(), "");
    EXPECT_DOUBLE_EQ(player->get_Duration(), item.expectedDuration);
    EXPECT_EQ(player->get_Playstate(), mpstopped);
    EXPECT_EQ(helper().currentGraph(), player->mainGraph());

    std::vector<std::string> expected = {
        "Setting filename = " + name,
        "Attempting to actually load file: " + name,
        name + "Succeeded to build the graph.  ",
        checkpoint(2),
        "Setting Volume --  " + name,
        checkpoint(3),
        checkpoint(4),
        "Err here (may well be none!) is: 0 ",
        checkpoint(5),
    };
    const bool wmStream = name.find("icyx://") != std::string::npos;
    if (wmStream) {
        expected.insert(expected.end(), {"Set pitch adjust options(2)... ", "Set pitch adjust options.(2) "});
    } else {
        expected.insert(expected.end(), {"Setting pitch adjust options(1)... ", "Set pitch adjust options. "});
    }
    expected.insert(expected.end(), {"Setting Helper's currentgraph... ", checkpoint(6), checkpoint(7),
                                     "Setting CurrentGraph on MainGraphMan...",
                                     "Have Set CurrentGraph on MainGraphMan.", checkpoint(8),
                                     checkpoint(9), "Set Helper's currentgraph... "});
    if (!stream) expected.insert(expected.end(), {"Setting Pitch...to 0 ", "Set Pitch... "});
    expected.insert(expected.end(), {checkpoint(8), "Apparently succeeded to load: " + name,
                                     "Here we are, at 'done' - this is a successful load...: " + name,
                                     "Filename (Let) in Player succeeded: in 0 ms."});
    EXPECT_TRUE(inOrder(host.log, expected));
    EXPECT_TRUE(host.loggedStartingWith("BuildGraph took "));
    EXPECT_TRUE(host.loggedStartingWith("\r\nFilters in MainGraphMan: "));
    EXPECT_TRUE(host.loggedStartingWith("\r\nFilters in Helper Graph: "));
    EXPECT_TRUE(host.loggedStartingWith("\r\nFilters in CueHelper Graph: "));
    EXPECT_FALSE(host.logged("Filename: BUSY - quitting!"));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, LoadEachKindTest,
    ::testing::Values(Item{"/music/one.mp3", "stream/mpeg-audio", 180.0},
                      Item{"/music/two.wav", "stream/wave;pcm16", 61.5},
                      Item{"/music/three.wma", "stream/asf;wma", 200.0},
                      Item{"/music/four.ogg", "stream/ogg;vorbis", 95.0},
                      Item{"/music/five.flac", "stream/flac", 300.0},
                      Item{"/music/six.m4a", "stream/mp4;aac", 240.0},
                      Item{"icystream://127.0.0.1:8000/live", "", 216000.0}),
    [](const ::testing::TestParamInfo<Item>& info) {
        const std::string n = info.param.name;
        return n.substr(0, 4) == "icys" ? std::string("stream") : n.substr(n.rfind('.') + 1);
    });

// ---- Logging off ----

TEST_F(LoadTest, WithLoggingOffNoLogLineIsRaisedButStateAndMetersStillAre) {
    PI(*player).storedPlaystate() = mpPaused; // as a host may leave it before the first item
    load(Mp3);
    ASSERT_EQ(player->get_FileName(), Mp3) << player->get_LastError();
    EXPECT_NE(std::find(host.states.begin(), host.states.end(), std::pair<int32_t, int32_t>{1, 0}),
              host.states.end());

    player->Play();
    load(Mp3B); // over a loaded item: the unload raises the meters' zeros
    load("");
    load("/music/missing.mp3"); // the failure path is silent too
    EXPECT_EQ(host.vuPeaks, (std::vector<std::pair<int32_t, int32_t>>{{0, 0}, {0, 0}}));
    EXPECT_TRUE(host.log.empty()) << host.log.front();
}

// ---- Unload and reload ----

TEST_F(LoadTest, WritingTheSameNameAgainUnloadsAndReloads) {
    load(Mp3);
    player->Play();
    logging(true);
    host.clear();
    load(Mp3);
    EXPECT_TRUE(inOrder(host.log, {"Setting filename = ", "NewFileName is NULL, so removesourcefilter et al...",
                                   "Setting filename = " + std::string(Mp3),
                                   "Filename (Let) in Player succeeded: in 0 ms."}));
    EXPECT_EQ(host.vuPeaks.size(), 1u);
    EXPECT_EQ(player->get_FileName(), Mp3);
    EXPECT_EQ(player->get_Playstate(), mpstopped);
}

TEST_F(LoadTest, AnEmptyNameOnAnEmptyPlayerStillLogsTheUnloadAndZeroesTheMeters) {
    logging(true);
    load("");
    EXPECT_TRUE(host.logged("NewFileName is NULL, so removesourcefilter et al..."));
    EXPECT_EQ(host.vuPeaks, (std::vector<std::pair<int32_t, int32_t>>{{0, 0}}));
    EXPECT_EQ(player->get_FileName(), "");
}

TEST_F(LoadTest, ANewGraphForEveryItemWhenTheUserAsksForIt) {
    load(Mp3);
    const auto first = player->mainGraph();
    bool every = true;
    player->put_NewGraphEveryTime(every);
    logging(true);
    load(Mp3B);
    EXPECT_TRUE(inOrder(host.log, {"Player Setting: NewGraphEveryTime = True",
                                   "NewGraphEveryTime means we destroy the graph...", "Graph Destroyed."}));
    ASSERT_EQ(player->get_FileName(), Mp3B) << player->get_LastError();
    EXPECT_NE(player->mainGraph(), first);
}

// ---- Failure ----

TEST_F(LoadTest, AnItemThatCannotBeBuiltIsRetriedOnceThenTheGraphIsDestroyed) {
    logging(true);
    const std::string bad = "/music/missing.mp3";
    load(bad);
    EXPECT_TRUE(inOrder(host.log,
                        {"BuildGraph DIDNT succeed - lets try again with a different source filter...",
                         "BuildGraph DIDNT succeed - even with a different source filter failing this file...",
                         "Last Error: " + player->get_LastError() + "  ",
                         "Here we are, at 'Fail:' - this is a *NOT* successful load...:  " + bad,
                         bad + " - this is a *NOT* successful load...: ",
                         "What happens here, is we destroy the graph...",
                         "Ok, back at the end of filename property let now...", "Done with filename let now"}));
    EXPECT_EQ(player->get_FileName(), "");
    EXPECT_EQ(player->get_Playstate(), mpstopped);
    EXPECT_FALSE(player->mainGraph());

    // The next write starts from scratch.
    load(Mp3);
    EXPECT_EQ(player->get_FileName(), Mp3) << player->get_LastError();
    EXPECT_EQ(player->get_LastError(), "");
}

TEST_F(LoadTest, AnItemThatOnlyTheOtherSourceFilterCanReadLoadsAsAFallback) {
    allowAsfReader();
    logging(true);
    const auto refuse = platform::Status::failure(platform::hr::CannotConnect, "no");
    sim->failAlways(FaultPoint::ConnectDirect, "File Source (Async.)", refuse);
    sim->failAlways(FaultPoint::Connect, "File Source (Async.)", refuse);
    load(Mp3);
    EXPECT_EQ(player->get_FileName(), Mp3) << player->get_LastError();
    EXPECT_TRUE(player->get_UsingASFReaderAsFallback());
    EXPECT_TRUE(host.logged("BuildGraph DIDNT succeed - lets try again with a different source filter..."));

    sim->healAll();
    load(Mp3B); // every write starts without the fallback
    EXPECT_FALSE(player->get_UsingASFReaderAsFallback());
}

// ---- Streams ----

TEST_F(LoadTest, AStreamLoadsWithTheFixedDurationAndIsReloadedForEveryPlay) {
    const std::string address = "http://127.0.0.1:8000/live";
    sim->addStream(address, {});
    allowAsfReader();
    load(address);
    ASSERT_EQ(player->get_FileName(), address) << player->get_LastError();
    EXPECT_DOUBLE_EQ(player->get_Duration(), 216000.0);

    logging(true);
    player->Play();
    EXPECT_TRUE(host.logged("NewFileName is NULL, so removesourcefilter et al..."));
    EXPECT_EQ(player->get_Playstate(), MpPlaying);
    host.clear();
    player->Play(); // already playing: no reload
    EXPECT_FALSE(host.logged("NewFileName is NULL, so removesourcefilter et al..."));
    EXPECT_TRUE(host.states.empty());
    EXPECT_EQ(player->get_Playstate(), MpPlaying);
}

TEST_F(LoadTest, AStreamThatCannotBeReloadedRaisesStreamNotFound) {
    const std::string address = "http://127.0.0.1:8000/live";
    sim->addStream(address, {});
    allowAsfReader();
    load(address);
    ASSERT_EQ(player->get_FileName(), address) << player->get_LastError();
    sim->failAlways(FaultPoint::AddSourceFilter, "", platform::Status::failure(platform::hr::FileNotFound, "gone"));
    sim->failAlways(FaultPoint::SetFileName, "", platform::Status::failure(platform::hr::FileNotFound, "gone"));
    sim->failAlways(FaultPoint::StreamOpen, "", platform::Status::failure(platform::hr::FileNotFound, "gone"));

    PlayCondition during = mpstopped;
    host.onLog = [&](const std::string&) { during = player->get_Playstate(); };
    logging(true);
    try {
        player->Play();
        FAIL() << "Play must raise";
    } catch (const AutomationError& e) {
        EXPECT_EQ(e.number(), 3333);
        EXPECT_EQ(e.description(), "The stream cannot be found.");
    }
    EXPECT_EQ(during, MpPlaying); // the reload reads as playing
    EXPECT_EQ(player->get_Playstate(), mpUnknown);
    EXPECT_EQ(player->get_FileName(), "Stream FAIL");
    EXPECT_GE(host.bufferingFinished, 1);
}

// A stream source kept from an earlier item, answering as the test tells it.
struct ScriptedStreamSource : platform::StreamSourceControl {
    std::vector<bool> canCancelAnswers;
    int cancels = 0;
    bool detached = false;
    void registerCallback(platform::ShoutcastCallback* cb) override { detached = cb == nullptr; }
    platform::Status open(const std::string&) override { return {}; }
    OpenState openState() const override { return OpenState::Open; }
    platform::Status openFailure() const override { return {}; }
    bool canCancel() const override {
        if (calls >= canCancelAnswers.size()) return false;
        return canCancelAnswers[calls++];
    }
    platform::Status cancel() override {
        ++cancels;
        return {};
    }
    mutable std::size_t calls = 0;
};

TEST_F(LoadTest, AStreamStartThatCanStillBeCancelledIsCancelledInsteadOfLoading) {
    load(Mp3);
    ScriptedStreamSource source;
    source.canCancelAnswers = {true, false};
    PI(*player).streamControl() = &source;
    logging(true);
    load(Mp3B);
    EXPECT_EQ(source.cancels, 1);
    EXPECT_TRUE(PI(*player).streamStartCancelled());
    EXPECT_EQ(player->get_FileName(), Mp3); // the write ended there
    EXPECT_TRUE(host.log.empty());
    PI(*player).streamControl() = nullptr;
}

TEST_F(LoadTest, AStreamSourceThatCanNoLongerBeCancelledIsLetGo) {
    load(Mp3);
    ScriptedStreamSource source;
    source.canCancelAnswers = {false};
    PI(*player).streamControl() = &source;
    load(Mp3B);
    EXPECT_EQ(source.cancels, 0);
    EXPECT_TRUE(source.detached);
    EXPECT_EQ(PI(*player).streamControl(), nullptr);
    EXPECT_EQ(player->get_FileName(), Mp3B) << player->get_LastError();
}

// ---- Re-entrant hosts ----

TEST_F(LoadTest, AWriteLeftBusyFromInsideTheAnnouncementMakesTheOuterWriteQuit) {
    logging(true);
    bool once = false;
    host.onLog = [&](const std::string& line) {
        if (!once && line == "Setting filename = " + std::string(Mp3)) {
            once = true;
            load("/music/missing.mp3"); // fails: the failure path leaves the load busy
        }
    };
    load(Mp3);
    EXPECT_TRUE(host.logged("Filename: BUSY - quitting!"));
    EXPECT_EQ(player->get_FileName(), "");
    EXPECT_FALSE(host.logged("Attempting to actually load file: " + std::string(Mp3)));
}

TEST_F(LoadTest, AWriteThatSucceededFromInsideTheAnnouncementIsReplacedByTheOuterOne) {
    logging(true);
    bool once = false;
    host.onLog = [&](const std::string& line) {
        if (!once && line == "Setting filename = " + std::string(Mp3)) {
            once = true;
            load(Mp3B);
        }
    };
    load(Mp3);
    EXPECT_FALSE(host.logged("Filename: BUSY - quitting!"));
    EXPECT_EQ(player->get_FileName(), Mp3) << player->get_LastError();
}

TEST_F(LoadTest, PlayFromInsideALoadFindsNothingToPlayAndTheLoadGoesOn) {
    logging(true);
    bool once = false;
    host.onLog = [&](const std::string& line) {
        if (!once && line == "Setting Helper's currentgraph... ") {
            once = true;
            player->Play();
        }
    };
    load(Mp3);
    EXPECT_TRUE(host.logged("There was an Expected error here, so not destroying graph"));
    EXPECT_EQ(player->get_FileName(), Mp3) << player->get_LastError();
    EXPECT_EQ(player->get_Playstate(), mpstopped);
}

} // namespace
} // namespace corvid::testing
