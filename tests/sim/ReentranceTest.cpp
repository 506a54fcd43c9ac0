// A re-entrant host: every public member called from inside the first occurrence of every
// event within each act of a day on air (a load, a play, a stream, a new graph...). Each case
// runs in a process of its own, bounded in time, so that a crash, a hang or a sanitizer report
// names its case. After the act the player must say what it holds and play it, or, failing
// that, still load and play a new item to its device: whatever the host did, the player's state
// stays true.
//
// Under the sanitizers: bash scripts/reentrance.sh

#include <corvid/MemberIds.h>
#include <corvid/Player.h>
#include "levels/SilenceDet.h"
#include "platform/sim/SimPlatform.h"
#include "tests/sim/GraphFixture.h"

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
    bool armed = false, fired = false;
    std::set<int32_t> raised;
    std::size_t touched = 0;

    void on(int32_t event) {
        raised.insert(event);
        if (!armed || event != target || fired || !player || !call) return;
        fired = true;
        try {
            call->run(*player);
        } catch (...) { // members that fail towards the host throw; the host catches
        }
    }
    // The host reads what it was handed after its call, as hosts do: it must still be there.
    template <class... A> void on(int32_t event, A&... args) {
        on(event);
        ((touched += sizeOf(args)), ...);
    }
    static std::size_t sizeOf(const std::string& s) { return s.size(); }
    static std::size_t sizeOf(const NameCollection& n) { return n.Count(); }
    template <class T> static std::size_t sizeOf(const T& v) { return v != T{}; }

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

// One player on a standard machine, and the acts of its day. Each act starts from where the
// ones before it left the player.
struct Day {
    std::unique_ptr<sim::SimPlatform> sim = sim::SimPlatform::standardMachine();
    ReentrantHost host;
    std::unique_ptr<Player> player;

    Day() {
        sim->setTickCount(100000);
        sim->setSecondsSinceMidnight(36000);
        sim->addFile(Mp3, simFile("stream/mpeg-audio", 180.0));
        sim->addFile(Mp3B, simFile("stream/mpeg-audio", 240.0));
        sim->addFile(Unnamed, simFile("stream/mp4;aac", 60.0));
        sim->addStream(Icy, {});
        sim->addStream(Live, {});
        player = std::make_unique<Player>(*sim);
        host.player = player.get();
        player->setEvents(&host);
    }
    template <class F> void step(F&& body) {
        try {
            body(*player);
        } catch (const AutomationError&) {
            // Play and a few others report to the host by throwing.
        }
    }
    void load(const std::string& name) { step([&](Player& p) { put(p, &Player::put_FileName, name); }); }
    std::shared_ptr<sim::SimGraphHelper> helper(platform::GraphHelperKind kind) { return sim->lastHelper(kind); }
    // What reached any device since the last look, muted or not.
    int64_t heard() {
        int64_t ms = 0;
        for (const char* device : {sim::names::DefaultDevice, sim::names::DummyDevice, sim::names::SurroundDevice})
            for (int i = 0; i < 4; ++i)
                for (const auto& span : sim->heard(device, i).spans) ms += span.playedMs;
        sim->clearHeard();
        return ms;
    }
};

using Act = void (*)(Day&);
const std::vector<std::pair<const char*, Act>> kActs = {
    {"detect and route", [](Day& d) {
         d.step([](Player& p) {
             put(p, &Player::put_ASFReaderBanned, false);
             put(p, &Player::put_AutoRenderAllowed, true);
             int32_t silenceSecs = 1;
             p.get_SilenceDet().put_SilenceDetSecs(silenceSecs);
             p.Init();
             p.QuerySoundCards(true);
             std::string main = sim::names::SurroundDevice, pfl = sim::names::DummyDevice;
             p.SetSoundcard(main);
             p.SetPFLSoundcard(pfl);
             p.CanCueIn = p.UseAutoCue = true;
             put(p, &Player::put_LoggingEnabled, true);
         });
     }},
    {"load", [](Day& d) { d.load(Mp3); }},
    {"cue, segue and play", [](Day& d) {
         if (auto cue = d.helper(platform::GraphHelperKind::CueHelper)) cue->fireCueIn(1000);
         d.step([](Player& p) { p.AutoSegSearch(); });
         if (auto cue = d.helper(platform::GraphHelperKind::CueHelper)) cue->fireSegue(170000);
         const int slow = d.sim->failOnce(sim::FaultPoint::Run, "", platform::Status::failure(platform::hr::Timeout, "slow"));
         d.step([](Player& p) { p.Play(); });
         d.sim->heal(slow);
         d.step([](Player& p) { p.Play(); });
     }},
    {"ticks, silence and the end", [](Day& d) {
         for (int second = 0; second < 3; ++second) {
             d.sim->advanceMs(1000);
             if (auto h = d.helper(platform::GraphHelperKind::Helper)) h->fireThreadEvent(second ? 0 : 9000, 0);
         }
         if (auto h = d.helper(platform::GraphHelperKind::Helper)) h->fireEndOfStream();
     }},
    {"load over a playing item", [](Day& d) {
         d.step([](Player& p) { p.Play(); });
         d.load(Mp3B);
     }},
    {"load what only automatic rendering plays", [](Day& d) { d.load(Unnamed); }},
    {"stream", [](Day& d) {
         d.load(Icy);
         if (auto source = d.sim->lastStreamSource()) {
             source->fireStreamBuffering(50);
             source->fireStreamBuffering(100);
             source->fireMetaChange("Artist - Title", "http://radio", "StreamTitle='x';");
             source->fireOdStreamSeg(12.5);
         }
         d.step([](Player& p) { p.Play(); });
     }},
    {"stream reloaded by play", [](Day& d) {
         d.load(Live);
         d.step([](Player& p) { p.Play(); });
     }},
    {"new graphs over a loaded item", [](Day& d) {
         d.step([](Player& p) { p.CreateNewGraph(true); });
         d.step([](Player& p) { p.CreateNewGraph(false); });
     }},
    {"unload", [](Day& d) { d.load(""); }},
};

// What is wrong with the player after the host's act, or empty.
std::string checkAfter(Day& d) {
    Player& player = *d.player;
    d.host.player = nullptr; // the host sits still from here
    player.setEvents(&d.host);
    d.sim->runFor(200);
    d.heard();

    // The item it names plays, or Play says that it does not.
    const std::string item = player.get_FileName();
    if (!item.empty() && item != "Stream FAIL") {
        d.step([](Player& p) { p.Play(); });
        d.sim->advanceMs(1000);
        if (player.get_Playstate() == MpPlaying && d.heard() == 0)
            return "playing " + item + " with nothing reaching a device";
        d.step([](Player& p) { p.StopPlaying(); });
    }

    // A new item loads and plays to the device.
    put(player, &Player::put_ASFReaderBanned, false);
    player.QuerySoundCards(true); // the host may have handed the player a list of its own
    std::string main = sim::names::DefaultDevice;
    player.SetSoundcard(main);
    d.load(Mp3B);
    if (player.get_FileName() != Mp3B) return "FileName after a final load: " + player.get_FileName() + " (" + player.get_LastError() + ")";
    d.step([](Player& p) { p.Play(); });
    if (player.get_Playstate() != MpPlaying) return "not playing after a final load";
    d.sim->advanceMs(1000);
    if (d.heard() <= 0) return "the final item reached no device";
    return {};
}

// Runs `body` in a process of its own, bounded in time; what it returns, or what ended it.
std::string isolated(const std::function<std::string()>& body) {
    int pipeFds[2];
    if (pipe(pipeFds) != 0) return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        close(pipeFds[0]);
        alarm(30);
        const std::string problem = body();
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

TEST_P(ReentranceTest, EveryMemberFromInsideTheFirstOccurrenceInEveryAct) {
    const ids::Event& event = ids::events[GetParam()];
    int cases = 0;
    for (std::size_t act = 0; act < kActs.size(); ++act) {
        // The acts before, then this one once without the host acting: is the event raised?
        Day day;
        for (std::size_t before = 0; before < act; ++before) kActs[before].second(day);
        const std::string quiet = isolated([&] {
            day.host.raised.clear();
            kActs[act].second(day);
            return day.host.raised.count(event.id) ? std::string() : std::string("-");
        });
        if (!quiet.empty()) continue;
        for (const Call& call : calls()) {
            ++cases;
            const std::string problem = isolated([&] {
                day.host.armed = true;
                day.host.target = event.id;
                day.host.call = &call;
                kActs[act].second(day);
                return checkAfter(day);
            });
            EXPECT_TRUE(problem.empty()) << call.member << " inside " << event.name << " in act \""
                                         << kActs[act].first << "\": " << problem;
        }
    }
    if (cases == 0) ADD_FAILURE() << event.name << " is raised in no act";
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
