// The silence settings, the silence decision, the settings dialog model and the peak
// levels, over the simulated machine's settings store.

#include "levels/Peaks.h"
#include "levels/SilenceDet.h"
#include "levels/SilenceDialog.h"
#include "platform/sim/SimPlatform.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <optional>
#include <tuple>

namespace corvid {
namespace {

// The silence settings where the simulated machine keeps them.
struct SilenceStore {
    sim::SimPlatform machine;
    operator platform::SettingsStore&() { return machine.settings(); }
    void putSilence(const std::string& v) { machine.settings().preset("Corvid", "Fenwick1", "SilenceData", v); }
    std::string silence() { return machine.settings().value("corvid", "fenwick1", "silencedata").value_or("<absent>"); }
    void failWrites() {
        machine.failAlways(sim::FaultPoint::SettingsWrite, "", platform::Status::failure(platform::hr::AccessDenied, "denied"));
    }
};

bool raisesOverflow(const std::function<void()>& f) {
    try {
        f();
    } catch (const AutomationError& e) {
        return e.number() == 6 && e.description() == "Overflow";
    }
    return false;
}

// ---- loading and saving --------------------------------------------------------------------

struct LoadCase {
    const char* stored; // nullptr: nothing stored
    int32_t dB;
    int16_t threshold;
    double seconds;
    bool enabled;
};

TEST(SilenceDet, LoadsTheStoredText) {
    const LoadCase cases[] = {
        {nullptr, -40, 328, 30, true},           // fresh profile: the default "40,30,-1"
        {"40,30,-1", -40, 328, 30, true},
        {"-20,5,False", -20, 3277, 5, false},
        {"0,12.5,true", -40, 328, 12.5, true},   // at or above full scale reads as -40
        {"-50,30,TRUE,extra", -50, 104, 30, true},
        {"-70,30,0", -70, 10, 30, false},        // loading does not clamp
        {"-20.5,3,-1", -20, 3277, 3, true},      // rounded half to even
        {"-20,abc,True", -20, 3277, 0, false},   // an unreadable field ends the parse
        {"-20,7", -20, 3277, 7, false},          // a missing field too
        {"x,7,True", 0, 0, 0, false},
        {",", 0, 0, 0, false},
        {"", 40, 328, 30, true},                 // no comma: the positive 40 is deliberate
        {"-20", 40, 328, 30, true},
    };
    for (const auto& c : cases) {
        SilenceStore store;
        if (c.stored) store.putSilence(c.stored);
        clsSilenceDet det(store);
        const SilenceDet& r = det.Record();
        const std::string label = c.stored ? c.stored : "<absent>";
        EXPECT_EQ(r.dBDownSilence, c.dB) << label;
        EXPECT_EQ(r.intValueSilence, c.threshold) << label;
        EXPECT_EQ(r.HowLongFor, c.seconds) << label;
        EXPECT_EQ(r.Enabled, c.enabled) << label;
    }
}

TEST(SilenceDet, SavesOnReleaseAndIgnoresAFailedSave) {
    SilenceStore store;
    {
        clsSilenceDet det(store);
        int32_t dB = -20, secs = 5;
        det.put_SilenceDetdBDownIsSilence(dB);
        det.put_SilenceDetSecs(secs);
        det.put_SilenceDetectorEnabled(false);
    }
    EXPECT_EQ(store.silence(), "-20,5,False");

    // No comma stores an empty value and the next load corrects the level.
    store.putSilence("");
    {
        clsSilenceDet det(store);
        EXPECT_EQ(store.silence(), "");
    } // released: saved
    EXPECT_EQ(store.silence(), "40,30,True");
    EXPECT_EQ(clsSilenceDet(store).get_SilenceDetdBDownIsSilence(), -40);

    store.putSilence("-30,2.5,True");
    store.failWrites();
    {
        clsSilenceDet det(store);
        EXPECT_EQ(det.get_SilenceDetSecs(), 2); // 2.5 rounds to even
        det.Save();
    }
    EXPECT_EQ(store.silence(), "-30,2.5,True");
}

// ---- the level and seconds properties -----------------------------------------------------

TEST(SilenceDet, LevelAndSecondsWritesCorrectTheCallersValueOrOverflow) {
    const std::tuple<int32_t, int32_t, int16_t> cases[] = {
        {12, -12, 8231}, {-70, -50, 104}, {70, -50, 104}, {-50, -50, 104}, {-1, -1, 29205}};
    for (auto [in, out, threshold] : cases) {
        SilenceStore store;
        clsSilenceDet det(store);
        int32_t v = in;
        det.put_SilenceDetdBDownIsSilence(v);
        EXPECT_EQ(v, out) << in;
        EXPECT_EQ(det.get_SilenceDetdBDownIsSilence(), out) << in;
        EXPECT_EQ(det.intValueSilence(), threshold) << in;
    }
    // Zero decibels overflows and leaves the record; seconds below one become thirty.
    SilenceStore store;
    store.putSilence("-20,5,False");
    clsSilenceDet det(store);
    for (int32_t v : {0, INT_MIN}) {
        EXPECT_TRUE(raisesOverflow([&] { det.put_SilenceDetdBDownIsSilence(v); })) << v;
        EXPECT_EQ(det.get_SilenceDetdBDownIsSilence(), -20);
        EXPECT_EQ(det.intValueSilence(), 3277);
    }
    for (auto [in, out] : {std::pair{0, 30}, {-5, 30}, {1, 1}, {45, 45}}) {
        int32_t v = in;
        det.put_SilenceDetSecs(v);
        EXPECT_EQ(v, out);
        EXPECT_EQ(det.get_SilenceDetSecs(), out);
        EXPECT_EQ(det.Record().HowLongFor, out);
    }
    store.putSilence("-20,1e12,True");
    det.Load();
    EXPECT_TRUE(raisesOverflow([&] { det.get_SilenceDetSecs(); }));
    EXPECT_EQ(clsSilenceDet::dBToAmplitude(-400), 0);
}

// ---- the silence decision ----------------------------------------------------------------

TEST(SilenceCheck, DecisionTableAndContinuousSilenceRepeatingEveryPeriod) {
    using A = SilenceAction;
    struct Row {
        int32_t left, right;
        double start, now;
        int32_t secs;
        A action;
        int32_t reported;
    };
    const int32_t T = 328;
    const Row rows[] = {
        {329, 0, 100, 200, 30, A::Restart, 0},     // sound on the left
        {0, 5000, 0, 200, 30, A::Restart, 0},      // sound on the right, start unset
        {T, 0, 100, 200, 30, A::Nothing, 0},       // equal on one channel: no count
        {0, T, 0, 200, 30, A::Nothing, 0},
        {T, T + 1, 100, 200, 30, A::Restart, 0},   // above wins over equal
        {0, 0, 0, 200, 30, A::Start, 0},           // silence begins
        {327, -900, 100, 129.9, 30, A::Continue, 0},
        {0, 0, 100, 130, 30, A::Raise, 30},
        {0, 0, 100.7, 130.2, 30, A::Raise, 30},    // whole seconds as the clock shows them
        {0, 0, 100.2, 129.9, 30, A::Continue, 0},
        {0, 0, 100, 145, 30, A::Raise, 45},
        {0, 0, 200, 150, 30, A::Raise, 50},        // the clock went back: absolute value
    };
    for (const auto& r : rows) {
        const SilenceDecision d = silenceCheck(T, r.left, r.right, r.start, r.now, r.secs);
        EXPECT_EQ(d.action, r.action) << r.left << "," << r.right << " " << r.start << "->" << r.now;
        EXPECT_EQ(d.seconds, r.reported) << r.left << "," << r.right << " " << r.start;
    }

    // Continuous silence repeats every period: a 20 Hz tick over 70 s of silence with 30 s set, applying each decision as a player.
    double start = 0;
    std::vector<std::pair<double, int32_t>> raised;
    for (int tick = 1; tick <= 70 * 20; ++tick) {
        const double now = 1000 + tick / 20.0;
        const SilenceDecision d = silenceCheck(328, 10, 12, start, now, 30);
        if (d.action == SilenceAction::Start || d.action == SilenceAction::Restart) start = now;
        if (d.action == SilenceAction::Raise) {
            start = now;
            raised.emplace_back(now, d.seconds);
        }
    }
    ASSERT_EQ(raised.size(), 2u);
    EXPECT_EQ(raised[0], (std::pair<double, int32_t>{1030.0, 30}));
    EXPECT_EQ(raised[1], (std::pair<double, int32_t>{1060.0, 30}));
}

// ---- the settings dialog ----------------------------------------------------------------

class SilenceDialogTest : public ::testing::Test {
protected:
    SilenceStore store;
    std::optional<clsSilenceDet> det;
    dlgSilence dlg;

    void open(const char* stored) {
        det.reset(); // released first: it saves
        store.putSilence(stored);
        det.emplace(store);
        dlg.Show(*det, "Applies to every deck.");
    }
};

TEST_F(SilenceDialogTest, ShowsThePositiveValuesAndUncheckingGreysAtOnce) {
    open("-40,30,True");
    EXPECT_EQ(dlg.lblNotes(), "Applies to every deck.");
    EXPECT_EQ(dlg.txtdB(), "40");
    EXPECT_EQ(dlg.txtSecs(), "30");
    EXPECT_TRUE(dlg.txtdBEnabled() && dlg.txtSecsEnabled());
    EXPECT_EQ(dlg.get_chkEnable(), 1);
    EXPECT_FALSE(dlg.filling());
    EXPECT_TRUE(det->get_SilenceDetectorEnabled()) << "filling is not a click";

    open("-20,5,False");
    EXPECT_EQ(dlg.txtdB(), "20");
    EXPECT_FALSE(dlg.txtdBEnabled() || dlg.txtSecsEnabled());
    EXPECT_EQ(dlg.get_chkEnable(), 0);

    // Unchecking greys at once and OK saves disabled.
    open("-40,30,True");
    dlg.put_chkEnable(0);
    EXPECT_FALSE(dlg.txtdBEnabled() || dlg.txtSecsEnabled());
    EXPECT_EQ(store.silence(), "-40,30,True") << "nothing saved before OK";
    dlg.OKButton_Click();
    EXPECT_TRUE(dlg.closed());
    EXPECT_EQ(store.silence(), "-40,30,False");
}

TEST_F(SilenceDialogTest, OKCorrectsTheEntriesButZeroDecibelsKeepsTheDialogOpen) {
    struct Row {
        const char *dB, *secs;
        const char *showndB, *shownSecs, *saved;
    };
    const Row rows[] = {
        {"loud", "30", "25", "30", "-25,30,True"},   // a non-number is 25 dB
        {"-12", "", "12", "30", "-12,30,True"},      // the sign typed is ignored
        {"12.5", "0", "12.5", "0", "-12,30,True"},   // half to even; 0 s becomes 30
        {"70", "-45", "70", "45", "-50,45,True"},
        {" 6 ", "2.5", "6", "2.5", "-6,2,True"},
    };
    for (const auto& r : rows) {
        open("-40,30,True");
        dlg.put_txtdB(r.dB);
        dlg.put_txtSecs(r.secs);
        dlg.OKButton_Click();
        EXPECT_EQ(dlg.txtdB(), r.showndB) << r.dB;
        EXPECT_EQ(dlg.txtSecs(), r.shownSecs) << r.secs;
        EXPECT_TRUE(dlg.closed());
        EXPECT_EQ(store.silence(), r.saved) << r.dB << " / " << r.secs;
    }

    // Zero decibels keeps the dialog open and saves nothing.
    open("-40,30,True");
    dlg.put_txtdB("35");
    dlg.put_chkEnable(0); // the click fills again: typed text is replaced
    EXPECT_EQ(dlg.txtdB(), "40");
    dlg.put_txtdB("0");
    dlg.put_txtSecs("10");
    EXPECT_TRUE(raisesOverflow([&] { dlg.OKButton_Click(); }));
    EXPECT_FALSE(dlg.closed());
    EXPECT_EQ(store.silence(), "-40,30,True");
    EXPECT_EQ(det->get_SilenceDetSecs(), 30) << "the steps after the level did not run";
    dlg.put_txtdB("30");
    dlg.OKButton_Click();
    EXPECT_TRUE(dlg.closed());
    EXPECT_EQ(store.silence(), "-30,10,False");
}

// ---- peaks ---------------------------------------------------------------------------------

TEST(Peaks, OverallLevelAndMagnitudes) {
    const std::tuple<int32_t, int32_t, int32_t> cases[] = {
        {-5000, 3000, -5000}, {3000, -5000, 5000}, {4000, 4000, 4000},
        {-4000, 4000, 4000},  {0, 0, 0},           {32768, -1, 32768}};
    for (auto [l, r, level] : cases) EXPECT_EQ(peaks::overallLevel(l, r), level) << l << "," << r;
    EXPECT_EQ(peaks::magnitude(-5000), 5000);
    EXPECT_EQ(peaks::magnitude(3000), 3000);
    EXPECT_TRUE(raisesOverflow([] { peaks::overallLevel(0, INT_MIN); }));
}

} // namespace
} // namespace corvid
