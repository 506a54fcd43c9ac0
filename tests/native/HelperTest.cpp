// The graph helpers: peaks at a steady tick, the followed graph's end, and the background
// cue-in and segue scans.

#include "NativeTestSupport.h"

#include "platform/native/NativeCatalogue.h"

namespace corvid::native::test {
namespace {

using platform::GraphHelperKind;

class NativeHelperTest : public NativeGraphTest {
protected:
    // File Source -> (Wave Parser, placed by intelligent connect) -> grabber -> silent device.
    void buildWave(const std::string& file) {
        auto source = create("File Source (Async.)");
        ASSERT_TRUE(source->setFileName(file));
        auto grabber = create("Halden Sample Grabber");
        ASSERT_TRUE(graphops::out(source)->connect(graphops::in(grabber)));
        ASSERT_TRUE(graphops::join({grabber, create(kDefaultDeviceName)}));
    }
};

TEST_F(NativeHelperTest, TicksCarryTheGrabbersPeaksAndTheEndArrivesOnce) {
    ASSERT_NO_FATAL_FAILURE(buildWave(mediaPath("tone.wav")));
    platform::GraphHelperPtr helper;
    ASSERT_TRUE(platform_->createGraphHelper(GraphHelperKind::Helper, helper));
    graphops::HelperRecorder events;
    helper->setEvents(&events);
    helper->setCurrentGraph(graph_);
    EXPECT_EQ(helper->currentGraph(), graph_);
    ASSERT_TRUE(helper->run());
    EXPECT_EQ(graph_->state(), platform::GraphState::Running) << "the helper runs its graph";
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return events.ends > 0; }, 10000));
    EXPECT_GT(events.ticks.size(), 5u);
    EXPECT_NEAR(events.loudest(), kToneAmplitude * 32768, 32768 * 0.01);

    // After the end, the ticks go on with silence (the first may still carry the item's last
    // heard slices), and the end is not repeated.
    events.ticks.clear();
    pumpUntil(*platform_, [&] { return !events.ticks.empty(); }, 3000);
    events.ticks.clear();
    pumpUntil(*platform_, [&] { return events.ticks.size() > 3; }, 3000);
    EXPECT_EQ(events.loudest(), 0);
    EXPECT_EQ(events.ends, 1);
    ASSERT_TRUE(helper->stop());
    EXPECT_EQ(graph_->state(), platform::GraphState::Stopped);
}

TEST_F(NativeHelperTest, AHelperThatGoesLeavesNothingBehind) {
    ASSERT_NO_FATAL_FAILURE(buildWave(mediaPath("tone.wav")));
    platform::GraphHelperPtr helper;
    ASSERT_TRUE(platform_->createGraphHelper(GraphHelperKind::Helper, helper));
    graphops::HelperRecorder events;
    helper->setEvents(&events);
    helper->setCurrentGraph(graph_);
    ASSERT_TRUE(helper->run());
    pumpUntil(*platform_, [&] { return !events.ticks.empty(); }, 2000);
    helper.reset(); // a tick may still wait in the queue
    const auto ticks = events.ticks.size();
    pumpUntil(*platform_, [] { return false; }, 200);
    EXPECT_EQ(events.ticks.size(), ticks);
}

TEST_F(NativeHelperTest, CueHelperFindsWhereTheSoundStartsAndWhereItEnds) {
    platform::GraphHelperPtr cue;
    ASSERT_TRUE(platform_->createGraphHelper(GraphHelperKind::CueHelper, cue));
    graphops::HelperRecorder events;
    cue->setEvents(&events);
    // cue.wav: one second of silence, one of tone, one of silence.
    ASSERT_TRUE(cue->startCueSearch(mediaPath("cue.wav"), {}, false, 1000));
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return !events.cueIns.empty(); }, 10000));
    EXPECT_NEAR(events.cueIns.front(), 1000, 5);
    ASSERT_TRUE(cue->startSegueSearch(mediaPath("cue.wav"), {}, false, 1000));
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return !events.segues.empty(); }, 10000));
    EXPECT_NEAR(events.segues.front(), 2000, 5);
    // Nothing loud enough: not found.
    ASSERT_TRUE(cue->startCueSearch(mediaPath("cue.wav"), {}, false, 32767));
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return events.cueIns.size() > 1; }, 10000));
    EXPECT_EQ(events.cueIns.back(), -1);
    ASSERT_TRUE(cue->startSegueSearchOwnSource(mediaPath("tone.mp3"), {}, 1000));
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return events.segues.size() > 1; }, 10000));
    EXPECT_NEAR(events.segues.back(), kToneSeconds * 1000, 80);
}

} // namespace
} // namespace corvid::native::test
