// The stopwatch, checked arithmetic, the persisted player settings and the media tags, over
// small in-file fakes of the platform services.

#include "support/CheckedInt.h"
#include "support/MediaTags.h"
#include "support/PlayerSettings.h"
#include "support/Text.h"
#include "support/TimerClass1.h"
#include "platform/sim/SimPlatform.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <optional>
#include <tuple>

namespace corvid {
namespace {

class FakeTicks : public platform::TickCounter {
public:
    int32_t now = 0;
    int reads = 0;
    int32_t nowMs() override {
        ++reads;
        return now;
    }
    void sleepMs(int32_t ms) override { now += ms; }
    double secondsSinceMidnight() override { return now / 1000.0; }
};

void expectOverflow(const std::function<void()>& f) {
    try {
        f();
        ADD_FAILURE() << "no overflow raised";
    } catch (const AutomationError& e) {
        EXPECT_EQ(e.number(), 6);
        EXPECT_EQ(e.description(), "Overflow");
    }
}

// ---- checked arithmetic ----------------------------------------------------------------

TEST(CheckedInt, RaisesOverflowInsteadOfWrappingAndRoundsHalfToEven) {
    EXPECT_EQ(checked::add(INT_MAX - 1, 1), INT_MAX);
    expectOverflow([] { checked::add(INT_MAX, 1); });
    expectOverflow([] { checked::sub(INT_MIN, 1); });
    expectOverflow([] { checked::mul(65536, 32768); });
    expectOverflow([] { checked::abs(INT_MIN); });
    expectOverflow([] { checked::toInt16(32768); });
    for (auto [in, out] : {std::pair{0.5, 0}, {2.5, 2}, {-2.5, -2}, {-3.5, -4}, {327.68, 328}})
        EXPECT_EQ(checked::toInt32(in), out) << in;
    expectOverflow([] { checked::toInt32(2147483647.5); });
    expectOverflow([] { checked::toInt32(std::nan("")); });
}

// ---- stopwatch ----------------------------------------------------------------------------

class TimerTest : public ::testing::Test {
protected:
    FakeTicks ticks;
};

TEST_F(TimerTest, StartsStoppedAtZeroAccumulatesIntervalsAndIgnoresRepeatedStartStop) {
    ticks.now = 1000;
    TimerClass1 t(ticks);
    EXPECT_FALSE(t.running());
    ticks.now += 5000;
    EXPECT_EQ(t.get_ElapsedTime(), 0);
    ticks.now = 1000;
    t.StartTiming();
    ticks.now = 1100;
    t.StartTiming(); // does not restart the interval
    ticks.now = 1250;
    EXPECT_EQ(t.get_ElapsedTime(), 250);
    t.StopTiming();
    t.StopTiming(); // no effect when stopped
    ticks.now = 9000;
    EXPECT_EQ(t.get_ElapsedTime(), 250);
    t.StartTiming();
    ticks.now = 9040;
    t.StopTiming();
    EXPECT_EQ(t.get_ElapsedTime(), 290);

    // Reset and preset stop a running timer.
    t.StartTiming();
    ticks.now = 9700;
    t.Reset();
    EXPECT_FALSE(t.running());
    EXPECT_EQ(t.get_ElapsedTime(), 0);

    t.StartTiming();
    ticks.now = 900;
    t.put_ElapsedTime(500);
    EXPECT_FALSE(t.running());
    ticks.now = 2000;
    EXPECT_EQ(t.get_ElapsedTime(), 500);
    t.StartTiming();
    ticks.now = 2300;
    EXPECT_EQ(t.get_ElapsedTime(), 800);
}

TEST_F(TimerTest, OverflowIsRaisedAndStopLeavesTheTimerStopped) {
    // The counter passed 2^31 ms during the interval: accumulated + now overflows.
    TimerClass1 t(ticks);
    t.put_ElapsedTime(INT_MAX - 10);
    t.StartTiming(); // start tick 0
    ticks.now = 20;
    expectOverflow([&] { t.get_ElapsedTime(); }); // (0 - 0) + 20 + offset overflows

    TimerClass1 u(ticks);
    ticks.now = INT_MAX - 5;
    u.StartTiming();
    ticks.now = INT_MIN + 5; // wrapped
    expectOverflow([&] { u.get_ElapsedTime(); });
    expectOverflow([&] { u.StopTiming(); });
    EXPECT_FALSE(u.running());
    EXPECT_EQ(u.get_ElapsedTime(), 0);

    ticks.now = INT_MAX;
    const int readsBefore = ticks.reads;
    {
        TimerClass1 v(ticks);
        v.StartTiming();
        ticks.now = INT_MIN; // the destructor's stop overflows; nothing escapes
    }
    EXPECT_EQ(ticks.reads - readsBefore, 2) << "the destructor stopped the timer";
}



// ---- persisted settings ----------------------------------------------------------------

TEST(PlayerSettings, AFreshProfileReadsDefaultsValuesLiveWhereHostsLookUncachedInTheirTextForms) {
    sim::SimPlatform machine;
    auto& store = machine.settings();
    PlayerSettings a(store), b(store);
    EXPECT_FALSE(a.get_NewGraphEveryTime());
    EXPECT_FALSE(a.get_PipeSenderDownstreamMute("Cart1"));
    EXPECT_EQ(a.readSilenceData(), "40,30,-1");
    EXPECT_EQ(store.writeCount(), 0);
    EXPECT_TRUE(a.put_NewGraphEveryTime(true).ok());
    EXPECT_EQ(store.value("Orvo2010", "Fenwick", "NewGraphEveryTime"), "True");
    EXPECT_TRUE(b.get_NewGraphEveryTime());
    store.preset("Orvo2010", "Fenwick", "NewGraphEveryTime", "False");
    EXPECT_FALSE(b.get_NewGraphEveryTime());

    EXPECT_TRUE(a.put_PipeSenderDownstreamMute("Deck A", true).ok());
    EXPECT_TRUE(a.put_PipeSenderDownstreamMute("Deck B", false).ok());
    EXPECT_EQ(store.value("Orvo2020PLUS", "Player-Settings", "Deck A : PipeSenderDownstreamMute"),
              "True");
    EXPECT_EQ(store.value("Orvo2020PLUS", "Player-Settings", "Deck B : PipeSenderDownstreamMute"),
              "False");
    EXPECT_TRUE(b.get_PipeSenderDownstreamMute("Deck A"));
    EXPECT_FALSE(b.get_PipeSenderDownstreamMute("Deck B"));

    EXPECT_TRUE(a.writeSilenceData("-20,5,False").ok());
    EXPECT_EQ(store.value("Corvid", "Fenwick1", "SilenceData"), "-20,5,False");

    // Text forms.
    const std::pair<const char*, std::optional<bool>> cases[] = {
        {"True", true},  {"tRUE", true},   {" false ", false}, {"-1", true}, {"0", false},
        {"1", true},     {"yes", std::nullopt}, {"", std::nullopt}, {"Truee", std::nullopt}};
    for (auto [text, expected] : cases) {
        bool value = false;
        const bool ok = settings::parseBoolean(text, value);
        EXPECT_EQ(ok, expected.has_value()) << text;
        if (ok) {
            EXPECT_EQ(value, *expected) << text;
        }
    }
    for (auto [stored, expected] : {std::pair{"TRUE", true}, {"-1", true}, {"garbage", false}}) {
        store.preset("orvo2010", "fenwick", "newgrapheverytime", stored);
        EXPECT_EQ(b.get_NewGraphEveryTime(), expected) << stored;
    }

    double v = 0;
    EXPECT_TRUE(settings::parseNumber(" +2.5e1 ", v));
    EXPECT_EQ(v, 25);
    for (const char* bad : {"", "-", "inf", "nan", "0x10", "12a", "1e", "1,5"})
        EXPECT_FALSE(settings::parseNumber(bad, v)) << bad;
    EXPECT_EQ(settings::formatNumber(30), "30");
    EXPECT_EQ(settings::formatNumber(2.5), "2.5");
}

// ---- media tags ----------------------------------------------------------------------------

class FakeTags : public platform::TagReader {
public:
    std::map<std::string, std::map<std::string, std::string>> files;
    const std::map<std::string, std::string>* current = nullptr;

    platform::Status open(const std::string& path) override {
        auto it = files.find(path);
        if (it == files.end()) {
            current = nullptr;
            return platform::Status::failure(platform::hr::FileNotFound, "no such file");
        }
        current = &it->second;
        return {};
    }
    void close() override { current = nullptr; }
    platform::Status artist(std::string& v) override { return get("artist", v); }
    platform::Status title(std::string& v) override { return get("title", v); }
    platform::Status attribute(const std::string& name, std::string& v) override {
        platform::Status s = get(name, v);
        if (v == "throw") throw std::runtime_error("reader broke");
        return s;
    }

private:
    platform::Status get(const std::string& name, std::string& v) {
        if (!current) return platform::Status::failure(platform::hr::Fail, "nothing open");
        auto it = current->find(name);
        v = it == current->end() ? "" : it->second;
        return {};
    }
};

TEST(MediaTags, ReadsTheItemFallsBackForTheYearAndReadsEveryFailureEmpty) {
    FakeTags reader;
    reader.files["both.wma"] = {{"artist", "Ana"},
                                {"title", "Song"},
                                {"WM/Genre", "Jazz"},
                                {"WM/OriginalReleaseYear", "1971"},
                                {"WM/Year", "2004"}};
    reader.files["empty-orig.wma"] = {{"WM/OriginalReleaseYear", ""}, {"WM/Year", "2004"}};
    reader.files["text-orig.wma"] = {{"WM/OriginalReleaseYear", "circa 1970"},
                                     {"WM/Year", "n/a"}};
    reader.files["no-year.wma"] = {};

    MediaTags tags(reader);
    tags.Open("both.wma");
    EXPECT_EQ(tags.get_WMAArtist(), "Ana");
    EXPECT_EQ(tags.get_WMATitle(), "Song");
    EXPECT_EQ(tags.get_WMAGenre(), "Jazz");
    EXPECT_EQ(tags.get_WMAYear(), "1971");
    tags.Open("empty-orig.wma");
    EXPECT_EQ(tags.get_WMAYear(), "2004");
    EXPECT_EQ(tags.get_WMAArtist(), "");
    tags.Open("text-orig.wma");
    EXPECT_EQ(tags.get_WMAYear(), "n/a"); // the fallback is returned as it is
    tags.Open("no-year.wma");
    EXPECT_EQ(tags.get_WMAYear(), "");

    // Every failure reads empty.
    reader.files["a.wma"] = {{"artist", "Ana"}, {"WM/OriginalReleaseYear", "throw"}};
    MediaTags fresh(reader);
    using Getter = std::string (MediaTags::*)();
    for (Getter get : {&MediaTags::get_WMAArtist, &MediaTags::get_WMATitle,
                       &MediaTags::get_WMAYear, &MediaTags::get_WMAGenre})
        EXPECT_EQ((fresh.*get)(), "") << "nothing loaded";

    tags.Open("a.wma");
    EXPECT_EQ(tags.get_WMAArtist(), "Ana");
    tags.Open("missing.wma");
    EXPECT_EQ(tags.get_WMAArtist(), "") << "a failed open leaves no item";
    tags.Open("a.wma");
    tags.Clear();
    EXPECT_EQ(tags.get_WMAArtist(), "");
}

} // namespace
} // namespace corvid
