// A stream load that fails: a host's cancel and a server's final answer end the load at once
// (no second build through another source, which would reach the same server); any other
// failure is still tried once more; an address no source opens is refused at once, a plain one
// while the reader is banned says so.

#include "tests/sim/GraphFixture.h"

namespace corvid::testing {
namespace {

constexpr const char* Icy = "icystream://127.0.0.1:8000/live";
constexpr const char* Retry = "BuildGraph DIDNT succeed - lets try again with a different source filter...";

class StreamFailureTest : public BehaviourTest {};

TEST_F(StreamFailureTest, ACancelOrAFinalAnswerEndsTheLoadWithoutASecondBuild) {
    struct Case {
        const char* name;
        sim::SimStream::Outcome outcome;
        bool finalFailure;
        std::function<void(Player&)> host; // runs inside the stream wait
        const char* lastError;             // a part of it
        bool retried;
        std::string address = Icy;
    };
    const platform::Status refused = platform::Status::failure(platform::hr::FileNotFound, "The stream does not exist (HTTP/1.0 404).");
    const std::vector<Case> cases = {
        {"server refuses", sim::SimStream::Outcome::Fails, true, nullptr, "does not exist", false},
        {"server times out", sim::SimStream::Outcome::NeverOpens, false, nullptr, "Waiting too long", false},
        {"host cancels", sim::SimStream::Outcome::NeverOpens, false, [](Player& p) { p.StreamingCancelPlay(); },
         "cancelled", false},
        {"host stops", sim::SimStream::Outcome::NeverOpens, false, [](Player& p) { p.StopPlaying(); }, "cancelled",
         false},
        {"host loads another item", sim::SimStream::Outcome::NeverOpens, false,
         [](Player& p) { p.put_FileName(std::string(Mp3)); }, "cancelled", false},
        {"a failure that is not final", sim::SimStream::Outcome::Fails, false, nullptr, "", true},
        // An address no source opens is refused before any source is tried.
        {"ftp", {}, false, nullptr, "The address ftp://127.0.0.1/a.mp3 cannot be played: no source takes ftp:// "
         "addresses. Addresses that play: http://, https://, icystream://, icystreams://.", false, "ftp://127.0.0.1/a.mp3"},
        {"rtsp", {}, false, nullptr, "no source takes RTSP:// addresses", false, "RTSP://127.0.0.1/live"},
        {"unknown scheme", {}, false, nullptr, "no source takes unknown:// addresses", false, "unknown://x"},
        {"plain address, reader banned", {}, false, nullptr, "ASFReaderBanned", true, Live},
    };
    set(&Player::put_ASFReaderBanned, true);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        sim->addStream(Icy, {.outcome = c.outcome, .afterMs = 300, .failure = refused, .levels = {}, .finalFailure = c.finalFailure});
        logging(true);
        host.clear();
        if (c.host) sim->eventLoop().post([&] { c.host(*player); });
        const int64_t before = sim->elapsedMs();
        load(c.address);
        EXPECT_EQ(player->get_FileName(), "");
        EXPECT_NE(player->get_LastError().find(c.lastError), std::string::npos) << player->get_LastError();
        EXPECT_EQ(host.logged(Retry), c.retried);
        EXPECT_NE(host.logged("This is AddSourceFilter for " + c.address + "..."),
                  std::string(c.lastError).find("no source takes") != std::string::npos);
        const int64_t waited = sim->elapsedMs() - before;
        EXPECT_TRUE(c.host ? waited < 300 : c.outcome != sim::SimStream::Outcome::NeverOpens || waited == 10000)
            << waited << " ms: a cancel ends the load at once, a silent server after 10 s";
        EXPECT_FALSE(player->get_StreamingCanCancelPlay());
        load(Mp3);
        EXPECT_EQ(player->get_FileName(), Mp3) << "the next load works as ever";
        load("");
    }
}

// ---- What the stream source reports while it plays ----

TEST_F(StreamFailureTest, BufferingPhasesRaiseEventsAndTheirCountOverflowsOnlyToACallingHost) {
    for (int p : {50, 80, 100}) player->IShoutcastCallback_StreamBuffering(p);
    EXPECT_EQ(host.count("StreamBufferingStarted"), 1);
    EXPECT_EQ(host.count("StreamBuffering: "), 3);
    EXPECT_EQ(host.all.back(), "StreamBuffering: 100");
    EXPECT_EQ(player->get_StreamBufferingPercent(), -1);

    host.clear();
    player->IShoutcastCallback_StreamBuffering(50);
    player->IShoutcastCallback_StreamBuffering(-1);
    EXPECT_EQ(host.all, (std::vector<std::string>{"StreamBufferingStarted", "StreamBuffering: 50",
                                                  "StreamBuffering: -1"}));

    // A report of 0 while idle starts a phase's clock without announcing it.
    host.clear();
    player->IShoutcastCallback_StreamBuffering(0);
    EXPECT_EQ(host.count("StreamBufferingStarted"), 0);
    EXPECT_EQ(player->get_StreamBufferingPercent(), 0);

    EXPECT_THROW(player->IShoutcastCallback_StreamBuffering(40000), AutomationError);
    // Restarts are counted in 16 bits: one restart more than that overflows.
    for (int restart = 1; restart < 32767; ++restart) {
        player->IShoutcastCallback_StreamBuffering(50);
        player->IShoutcastCallback_StreamBuffering(-1);
    }
    host.clear();
    player->IShoutcastCallback_StreamBuffering(50);
    const auto overflow = raised([&] { player->IShoutcastCallback_StreamBuffering(-1); });
    EXPECT_EQ(overflow ? overflow->number() : 0, 6) << "no overflow";
}

TEST_F(StreamFailureTest, TheSourcesCallbacksBecomeEventsAndItsPropertiesReadTheStream) {
    sim->addStream("icystream://radio/show", {.durationSeconds = 1800.0, .levels = {}});
    sim->addStream(Icy, {});
    load(Icy);
    ASSERT_EQ(player->get_FileName(), Icy) << player->get_LastError();
    auto source = sim->lastStreamSource();
    ASSERT_TRUE(source);
    host.clear();
    EXPECT_TRUE(source->fireMetaChange("Artist - Title", "http://radio", "StreamTitle='x';"));
    EXPECT_TRUE(source->fireOdStreamSeg(12.5));
    EXPECT_TRUE(source->fireStreamBuffering(70000)); // its overflow is not the client's business
    EXPECT_EQ(host.all, (std::vector<std::string>{"ShoutCastMeta: Artist - Title|http://radio|StreamTitle='x';",
                                                  "StreamOnDemandSegFound: 12.500000", "StreamBufferingStarted"}));
    EXPECT_TRUE(player->get_isStreaming());
    EXPECT_FALSE(player->get_StreamingIsOnDemandFile()); // live: 525600 seconds
    EXPECT_FALSE(player->get_StreamingCanCancelPlay()) << "only while it opens";

    load("icystream://radio/show");
    EXPECT_TRUE(player->get_StreamingIsOnDemandFile());
    load(Mp3);
    EXPECT_FALSE(player->get_isStreaming());
    EXPECT_FALSE(player->get_StreamingIsOnDemandFile());
}

} // namespace
} // namespace corvid::testing
