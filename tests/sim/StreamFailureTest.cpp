// A stream load that fails: a host's cancel and a server's final answer end the load at once
// (no second build through another source, which would reach the same server); any other
// failure is still tried once more. And a plain address while the reader is banned.

#include "tests/sim/BehaviourFixture.h"

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
         [](Player& p) {
             std::string other = Mp3;
             p.put_FileName(other);
         },
         "cancelled", false},
        {"a failure that is not final", sim::SimStream::Outcome::Fails, false, nullptr, "", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        sim::SimStream stream;
        stream.outcome = c.outcome;
        stream.afterMs = 300;
        stream.failure = refused;
        stream.finalFailure = c.finalFailure;
        sim->addStream(Icy, stream);
        logging(true);
        host.clear();
        if (c.host) sim->eventLoop().post([&] { c.host(*player); });
        const int32_t sleeps = sim->ticks().sleepCount();
        load(Icy);
        EXPECT_EQ(player->get_FileName(), "");
        EXPECT_NE(player->get_LastError().find(c.lastError), std::string::npos) << player->get_LastError();
        EXPECT_EQ(host.logged(Retry), c.retried);
        if (c.host) {
            EXPECT_LE(sim->ticks().sleepCount() - sleeps, 2) << "the load returns at the cancel";
        }
        EXPECT_FALSE(player->get_StreamingCanCancelPlay());
        load(Mp3);
        EXPECT_EQ(player->get_FileName(), Mp3) << "the next load works as ever";
        load("");
    }
}

TEST_F(StreamFailureTest, APlainAddressWithTheReaderBannedSaysSo) {
    bool banned = true;
    player->put_ASFReaderBanned(banned);
    load(Live);
    EXPECT_EQ(player->get_FileName(), "");
    EXPECT_NE(player->get_LastError().find("ASFReaderBanned"), std::string::npos) << player->get_LastError();
}

} // namespace
} // namespace corvid::testing
