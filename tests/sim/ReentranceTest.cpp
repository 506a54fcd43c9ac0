// A re-entrant host: every event, with every public member called from inside its first
// occurrence. A day's script raises all 21 events; each (event, member) pair runs in a process
// of its own, bounded in time, so that a crash, a hang or a sanitizer report names its pair.
// After the script the player must still load and play an item to the device: whatever the
// host did, the player's state stays true.
//
// Under the sanitizers:
//   bash scripts/reentrance.sh

#include "control/MemberIds.h"
#include "control/Player.h"
#include "levels/SilenceDet.h"
#include "platform/sim/SimPlatform.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

// A sanitizer report ends the process that made it, so that its case fails.
extern "C" const char* __ubsan_default_options() { return "halt_on_error=1:print_stacktrace=1"; }
extern "C" const char* __asan_default_options() { return "detect_leaks=0"; }

namespace corvid::testing {
namespace {

constexpr const char* Mp3 = "/music/a.mp3";
constexpr const char* Mp3B = "/music/b.mp3";
constexpr const char* Unnamed = "/music/ten.xyz"; // only automatic rendering plays it
constexpr const char* Icy = "icystream://radio/live";
constexpr const char* Live = "http://127.0.0.1:8000/live";

struct Call {
    std::string member; // as the host's scripts name it
    std::function<void(Player&)> run;
};

template <class T> void put(Player& p, void (Player::*setter)(T&), T value) { (p.*setter)(value); }

// A read; a write of the other value (flags) or of a given one; any other call.
#define READ(m) Call{#m, [](Player& p) { (void)p.get_##m(); }}
#define FLIP(m) Call{#m, [](Player& p) { put(p, &Player::put_##m, !p.get_##m()); }}
#define WRITE(m, v) Call{#m, [](Player& p) { put(p, &Player::put_##m, v); }}
#define CALL(name, ...) Call{name, [](Player& p) { __VA_ARGS__; }}

const std::vector<Call>& calls() {
    static const std::vector<Call> table = {
        CALL("setEvents(null)", p.setEvents(nullptr)), CALL("setRunMode", p.setRunMode(false)),
        CALL("CanCueIn", p.CanCueIn = !p.CanCueIn), CALL("UsesVu", p.UsesVu = true),
        CALL("UseAutoCue", p.UseAutoCue = !p.UseAutoCue), CALL("ForCart", p.ForCart = "cart"),
        CALL("m_Endraised", p.m_Endraised = !p.m_Endraised), CALL("StateChangeVerify", p.StateChangeVerify = true),
        FLIP(PipeSenderDownstreamMute), FLIP(AutoRenderAllowed), FLIP(LoggingEnabled), FLIP(SilenceDetEnabled),
        FLIP(AutoSeg), FLIP(mute), FLIP(UseACM), FLIP(UsePitchAdjuster), FLIP(NewGraphEveryTime),
        FLIP(HaldenSourcePrefer), FLIP(Pipe2020), FLIP(ASFReaderBanned),
        READ(LastError), READ(UsingASFReaderAsFallback), READ(Elapsed), READ(Duration), READ(Playstate),
        READ(GraphPosition), READ(GraphDuration), READ(Plugins), READ(WMAArtist), READ(WMATitle), READ(WMAYear),
        READ(WMAGenre), READ(SurroundRenderName), READ(isStreaming), READ(StreamBufferingPercent),
        READ(TryingToPlay), READ(StreamingCanCancelPlay), READ(LeftVUPeak), READ(RightVuPeak),
        READ(StreamingIsOnDemandFile), READ(UsingHaldenSource), READ(UsingASFReader), READ(AutoCuePos),
        READ(AutoCueBusy),
        WRITE(ElapsedForcedChange, 2.5f), WRITE(Rate, 1.05), WRITE(Volume, p.get_Volume() - 100),
        WRITE(CurrentPosition, p.get_CurrentPosition() + 10), WRITE(ThisCartName, std::string("cart 1")),
        WRITE(AutoSegThresh, 700), WRITE(autoCueThresh, 300), WRITE(ID, std::string("deck")),
        CALL("AutoSegPos", p.put_AutoSegPos(p.get_AutoSegPos() + 1)),
        CALL("FileName(empty)", put(p, &Player::put_FileName, std::string())),
        CALL("FileName(other)", put(p, &Player::put_FileName, std::string(Mp3B))),
        CALL("FileName(same)", put(p, &Player::put_FileName, p.get_FileName())),
        CALL("FileName(stream)", put(p, &Player::put_FileName, std::string(Live))),
        CALL("FileName(missing)", put(p, &Player::put_FileName, std::string("/music/none.mp3"))),
        CALL("SilenceDet", int32_t s = 3; p.get_SilenceDet().put_SilenceDetSecs(s)),
        CALL("FilterNamesWeNeed", p.putref_FilterNamesWeNeed(NameCollection{})),
        CALL("FilterNamesWeNeed(read)", p.get_FilterNamesWeNeed().Add("x")),
        CALL("IsMp4Capable", p.IsMp4Capable(true)), CALL("IsOggCapable", p.IsOggCapable(true)),
        CALL("QuerySoundCards", p.QuerySoundCards(true)), CALL("EnumRenders", p.EnumRenders(true)),
        CALL("StopPlaying", p.StopPlaying()), CALL("Play", p.Play()), CALL("Pause", p.Pause()),
        CALL("SetSoundCardCollection", p.putref_SetSoundCardCollection(SoundCardCollection{})),
        CALL("SetSoundcard(default)", std::string n; p.SetSoundcard(n)),
        CALL("SetSoundcard(dummy)", std::string n = sim::names::DummyDevice; p.SetSoundcard(n)),
        CALL("SetSoundcard(pair)", std::string n = std::string(sim::names::SurroundDevice) + " [3-4]"; p.SetSoundcard(n)),
        CALL("SetPFLSoundcard", std::string n = sim::names::SurroundDevice; p.SetPFLSoundcard(n)),
        CALL("GetMainSoundcard", p.GetMainSoundcard()), CALL("GetPFLSoundcard", p.GetPFLSoundcard()),
        CALL("DefaultSoundDeviceExists", p.DefaultSoundDeviceExists()),
        CALL("SoundCardRouterSet", p.SoundCardRouterSet()), CALL("SoundCardNullSet", p.SoundCardNullSet()),
        CALL("CreateNewGraph(main)", p.CreateNewGraph(false)), CALL("CreateNewGraph(pfl)", p.CreateNewGraph(true)),
        CALL("Init", p.Init()), CALL("AddPlugin", p.AddPlugin("Plug")),
        CALL("ShowPropPage", p.ShowPropPage("Halden Sample Grabber")), CALL("RaiseEndOfStream", p.RaiseEndOfStream()),
        CALL("GetCurrentMainFilterGraph", std::vector<platform::FilterPtr> f; p.GetCurrentMainFilterGraph(f)),
        CALL("TestOpen", p.TestOpen(Mp3)), CALL("ShowMainCardPage", p.ShowMainCardPage()),
        CALL("PrintFilters", p.PrintFilters(p.mainGraph())),
        CALL("AutoSegSearch", p.AutoSegSearch()), CALL("AutoCueSearch", p.AutoCueSearch()),
        CALL("FindConnectedFilter", platform::FilterPtr f; platform::PinPtr i, o;
             p.FindConnectedFilter("Grabber", p.mainGraph(), f, i, o)),
        CALL("IShoutcastCallback_StreamBuffering", p.IShoutcastCallback_StreamBuffering(40)),
        CALL("IShoutcastCallback_MetaChangeCallback", p.IShoutcastCallback_MetaChangeCallback("a - t", "u", "m")),
        CALL("IShoutcastCallback_OdStreamSeg", p.IShoutcastCallback_OdStreamSeg(3.5)),
        CALL("StreamingCancelPlay", p.StreamingCancelPlay()), CALL("SilenceDetShowUI", p.SilenceDetShowUI()),
    };
    return table;
}

// The host: calls `call` from inside the first occurrence of event `target` (by its number).
struct ReentrantHost : PlayerEvents {
    Player* player = nullptr;
    int32_t target = 0;
    const Call* call = nullptr;
    bool fired = false;

    void on(int32_t event) {
        if (event != target || fired || !player) return;
        fired = true;
        try {
            call->run(*player);
        } catch (...) {
            // Members that fail towards the host throw; the host catches.
        }
    }
    // The host reads what it was handed after its call, as hosts do: it must still be there.
    template <class... A> void on(int32_t event, A&... args) {
        on(event);
        std::size_t sum = 0;
        ((sum += sizeOf(args)), ...);
        touched += sum;
    }
    static std::size_t sizeOf(const std::string& s) { return s.size(); }
    static std::size_t sizeOf(const NameCollection& n) { return n.Count(); }
    template <class T> static std::size_t sizeOf(const T& v) { return static_cast<std::size_t>(v != T{}); }
    std::size_t touched = 0;

    void PlayerLogInfo(std::string& info) override { on(1, info); }
    void StreamBufferingStarted() override { on(2); }
    void StreamBufferingFinished() override { on(3); }
    void RenderedAutomatically(std::string& path) override { on(4, path); }
    void PlayAboutToHappen() override { on(5); }
    void StreamBuffering(int16_t& percent) override { on(6, percent); }
    void ShoutCastMeta(std::string& at, std::string& url, std::string& full) override { on(7, at, url, full); }
    void SegueFound(double& seg) override { on(8, seg); }
    void WriteLog(std::string& info) override { on(9, info); }
    void CueInFound(double& pos) override { on(10, pos); }
    void GotTheFiltersWeNeed(NameCollection& names) override { on(11, names); }
    void VUPeak(int32_t& l, int32_t& r) override { on(12, l, r); }
    void StartedCountingFilters(int32_t& n) override { on(13, n); }
    void CountingFilters(int32_t& i) override { on(14, i); }
    void IsPFLButtonRequired(bool& b) override { on(15, b); }
    void FinishedCountingFilters() override { on(16); }
    void Timing(int32_t& level) override { on(17, level); }
    void EndOfStream(int32_t) override { on(18); }
    void PlayStateChange(int32_t, int32_t) override { on(19); }
    void StreamOnDemandSegFound(double& seg) override { on(20, seg); }
    void SilenceDetected(int32_t) override { on(21); }
};

// Runs the day's script with the host acting inside `target`; returns what went wrong, or
// empty. Each step runs whatever state the host's call left behind.
std::string runDay(int32_t target, const Call* call) {
    auto sim = sim::SimPlatform::standardMachine();
    sim->setTickCount(100000);
    sim->setSecondsSinceMidnight(36000);
    sim::SimFile mp3;
    mp3.mediaType = "stream/mpeg-audio";
    mp3.durationSeconds = 180;
    sim->addFile(Mp3, mp3);
    mp3.durationSeconds = 240;
    sim->addFile(Mp3B, mp3);
    sim::SimFile aac;
    aac.mediaType = "stream/mp4;aac";
    aac.durationSeconds = 60;
    sim->addFile(Unnamed, aac);
    sim->addStream(Icy, {});
    sim->addStream(Live, {});

    ReentrantHost host;
    host.target = target;
    host.call = call;
    auto player = std::make_unique<Player>(*sim);
    host.player = player.get();
    player->setEvents(&host);

    auto step = [&](auto&& body) {
        try {
            body(*player);
        } catch (const AutomationError&) {
            // Play and a few others report to the host by throwing.
        }
    };
    auto helper = [&](platform::GraphHelperKind kind) { return sim->lastHelper(kind); };
    auto load = [&](const std::string& name) { step([&](Player& p) { put(p, &Player::put_FileName, name); }); };

    step([](Player& p) {
        put(p, &Player::put_LoggingEnabled, true);
        put(p, &Player::put_ASFReaderBanned, false);
        put(p, &Player::put_AutoRenderAllowed, true);
        int32_t silenceSecs = 1;
        p.get_SilenceDet().put_SilenceDetSecs(silenceSecs);
        p.Init();
        p.QuerySoundCards(true);
        std::string pfl = sim::names::DummyDevice;
        std::string main = sim::names::SurroundDevice;
        p.SetSoundcard(main);
        p.SetPFLSoundcard(pfl);
        p.CanCueIn = true;
        p.UseAutoCue = true;
    });
    load(Mp3);
    if (auto cue = helper(platform::GraphHelperKind::CueHelper)) cue->fireCueIn(1000);
    step([](Player& p) { p.AutoSegSearch(); });
    if (auto cue = helper(platform::GraphHelperKind::CueHelper)) cue->fireSegue(170000);
    sim->failOnce(sim::FaultPoint::Run, "", platform::Status::failure(platform::hr::Timeout, "slow"));
    step([](Player& p) { p.Play(); });
    step([](Player& p) { p.Play(); });
    for (int second = 0; second < 3; ++second) {
        sim->advanceMs(1000);
        if (auto h = helper(platform::GraphHelperKind::Helper)) h->fireThreadEvent(second == 0 ? 9000 : 0, 0);
    }
    if (auto h = helper(platform::GraphHelperKind::Helper)) h->fireEndOfStream();
    step([](Player& p) { p.Pause(); });
    step([](Player& p) { p.StopPlaying(); });
    load(Unnamed);
    load(Icy);
    if (auto source = sim->lastStreamSource()) {
        source->fireStreamBuffering(50);
        source->fireStreamBuffering(100);
        source->fireMetaChange("Artist - Title", "http://radio", "StreamTitle='x';");
        source->fireOdStreamSeg(12.5);
    }
    step([](Player& p) { p.Play(); });
    step([](Player& p) { p.StopPlaying(); });
    load(Live);
    step([](Player& p) { p.Play(); });
    load("");
    step([](Player& p) { p.CreateNewGraph(true); });
    step([](Player& p) { p.CreateNewGraph(false); });
    sim->runFor(200);

    if (!host.fired) return "the event was never raised";

    // Whatever the host did, the player must still play an item to its device, and say
    // what it holds.
    host.player = nullptr;
    player->setEvents(&host);
    put(*player, &Player::put_ASFReaderBanned, false);
    player->QuerySoundCards(true); // the host may have handed the player a list of its own
    std::string main = sim::names::DefaultDevice;
    player->SetSoundcard(main);
    load(Mp3B);
    if (player->get_FileName() != Mp3B) return "FileName after a final load: " + player->get_FileName() + " (" + player->get_LastError() + ")";
    step([](Player& p) { p.Play(); });
    if (player->get_Playstate() != MpPlaying) return "not playing after a final load";
    sim->clearHeard();
    sim->advanceMs(1000);
    int64_t heard = 0;
    for (const char* device : {sim::names::DefaultDevice, sim::names::DummyDevice, sim::names::SurroundDevice})
        for (int i = 0; i < 4; ++i) heard += sim->heard(device, i).playedMs(Mp3B);
    if (heard <= 0) return "the final item reached no device";
    return {};
}

// Runs one case in a process of its own, bounded in time.
std::string isolated(int32_t target, const Call& call) {
    int pipeFds[2];
    if (pipe(pipeFds) != 0) return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        close(pipeFds[0]);
        alarm(30);
        const std::string problem = runDay(target, &call);
        if (!problem.empty()) (void)!write(pipeFds[1], problem.data(), problem.size());
        close(pipeFds[1]);
        _exit(problem.empty() ? 0 : 3);
    }
    close(pipeFds[1]);
    std::string said;
    char buf[256];
    for (ssize_t n; (n = read(pipeFds[0], buf, sizeof buf)) > 0;) said.append(buf, static_cast<size_t>(n));
    close(pipeFds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status))
        return WTERMSIG(status) == SIGALRM ? "hung" : "crashed with signal " + std::to_string(WTERMSIG(status));
    if (WEXITSTATUS(status) == 3) return said;
    if (WEXITSTATUS(status) != 0) return "sanitizer report (exit " + std::to_string(WEXITSTATUS(status)) + ")";
    return {};
}

// By the event's place in the table: a readable name, and no bytes printed for a struct.
class ReentranceTest : public ::testing::TestWithParam<std::size_t> {};

TEST_P(ReentranceTest, EveryMemberFromInsideTheFirstOccurrence) {
    const ids::Event& event = ids::events[GetParam()];
    for (const Call& call : calls()) {
        const std::string problem = isolated(event.id, call);
        EXPECT_TRUE(problem.empty()) << call.member << " inside " << event.name << ": " << problem;
    }
}

INSTANTIATE_TEST_SUITE_P(Events, ReentranceTest, ::testing::Range<std::size_t>(0, ids::events.size()),
                         [](const auto& info) { return std::string(ids::events[info.param].name); });

TEST(ReentranceTable, CallsEveryPublicMember) {
    std::set<std::string> called;
    for (const Call& call : calls()) called.insert(call.member.substr(0, call.member.find('(')));
    for (const auto& member : ids::members) {
        if (!called.count(std::string(member.name))) ADD_FAILURE() << "not called from inside events: " << member.name;
    }
}

} // namespace
} // namespace corvid::testing
