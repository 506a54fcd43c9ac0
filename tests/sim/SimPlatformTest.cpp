// The simulation is what every player test stands on: these tests pin down what only the
// simulation has and no player test reaches (its media types, the test clock, recorded
// renderers, fault points with skips and silent successes, unplugged and speaker-pair
// renderers, stream sources and a reader that opens an address as it loads, automatic helpers),
// checked through the platform interfaces as the player uses them. Its message boxes, settings
// and operator files are checked through the player tests that use them.

#include "platform/sim/SimPlatform.h"
#include "tests/contract/GraphOps.h"

#include <gtest/gtest.h>

#include <algorithm>


namespace corvid::sim {
namespace {

using graphops::in;
using graphops::out;
using platform::FilterPtr;
using platform::GraphEvent;
using platform::GraphHelperKind;
using platform::GraphPtr;
using platform::GraphState;
using platform::PinPtr;
namespace hr = platform::hr;
namespace category = platform::category;

class SimPlatformTest : public ::testing::Test {
protected:
    void SetUp() override {
        sim = SimPlatform::standardMachine();
        ASSERT_TRUE(sim->createGraph(graph));
        sim->addFile("/m/song.mp3", {"stream/mpeg-audio", 10.0, {}, {}, true});
        sim->addFile("/m/tone.wav", {"stream/wave;pcm16", 4.0, {}, {}, true});
        sim->addFile("/m/float.wav", {"stream/wave;float32", 4.0, {}, {}, true});
        sim->addFile("/m/talk.wma", {"stream/asf;wma", 6.0, {}, {}, true});
        sim->addFile("/m/tune.flac", {"stream/flac", 5.0, {}, {}, true});
        sim->addFile("/m/locked.mp3", {"stream/mpeg-audio", 10.0, {}, {}, false});
    }

    FilterPtr add(const std::string& name, const GraphPtr& g = nullptr) {
        return graphops::make(*sim, g ? *g : *graph, name);
    }

    FilterPtr source(const std::string& name, const std::string& file) {
        auto f = add(name);
        EXPECT_TRUE(f);
        EXPECT_TRUE(f->setFileName(file)) << name << " " << file;
        return f;
    }

    static std::string typeOf(const PinPtr& p) { return std::static_pointer_cast<SimPin>(p)->mediaType(); }

    static bool join(const std::vector<FilterPtr>& filters) { return graphops::join(filters).ok(); }
    // source -> MPEG splitter -> MP3 decoder -> sample grabber -> default renderer.
    void buildMp3Chain(const std::string& file = "/m/song.mp3") {
        EXPECT_TRUE(join({source("File Source (Async.)", file), add("MPEG-I Stream Splitter"),
                          add("MPEG Layer-3 Decoder"), add("Halden Sample Grabber"), add(names::DefaultDevice)}));
    }
    double position() {
        double pos = -1;
        EXPECT_TRUE(graph->currentPosition(pos));
        return pos;
    }
    void listen() { graph->setEventHandler([this](GraphEvent e) { events.push_back(e); }); }

    const RenderLog& heard() { return sim->heard(names::DefaultDevice); }

    std::unique_ptr<SimPlatform> sim;
    GraphPtr graph;
    std::vector<GraphEvent> events;
};

// The standard machine's media types ------------------------------------------------------------
// How pins join and intelligent connect builds chains is the graph contract (tests/contract),
// which the simulation passes with the native runtime; here only what the simulation alone says.

TEST_F(SimPlatformTest, TheStandardMachineTypesEveryPinAndNamesEveryRefusal) {
    auto src = add("File Source (Async.)");
    EXPECT_TRUE(src->pins().empty()) << "a source's pin appears with its file";
    ASSERT_TRUE(src->setFileName("/m/float.wav"));
    EXPECT_EQ(typeOf(out(src)), "stream/wave;float32");
    auto parser = add("Wave Parser");
    auto card = add(names::DefaultDevice);
    EXPECT_EQ(out(add("Halden Sample Grabber"))->connectDirect(in(card)).number, hr::NotConnected);
    EXPECT_EQ(out(src)->connectDirect(in(add("MPEG-I Stream Splitter"))).number, hr::NoAcceptableTypes);
    ASSERT_TRUE(out(src)->connectDirect(in(parser)));
    EXPECT_EQ(typeOf(out(parser)), "audio/pcm-float");
    EXPECT_EQ(out(parser)->connectDirect(in(card)).number, hr::NoAcceptableTypes);
    EXPECT_EQ(in(card)->name(), names::RendererInputPin);
    auto conv = add("Brindle Format Converter");
    ASSERT_TRUE(out(parser)->connectDirect(in(conv)));
    EXPECT_EQ(typeOf(out(conv)), "audio/pcm16");
    ASSERT_TRUE(in(parser)->disconnect());
    EXPECT_TRUE(typeOf(out(conv)).empty()) << "nothing arrives any more";

    EXPECT_EQ(add("File Source (Async.)")->setFileName("/m/locked.mp3").number, hr::AccessDenied);
    EXPECT_EQ(add("Native FLAC Decoder")->setFileName("/m/song.mp3").number, hr::InvalidFileFormat);
    sim->addFile("/m/a.asf", {"stream/asf;mp3", 3, {}, {}, true});
    auto reader = source("WM ASF READER", "/m/talk.wma");
    EXPECT_EQ(typeOf(out(reader)), "audio/wma");
    ASSERT_TRUE(out(reader)->connectDirect(in(add("WMAudio Decoder DMO"))));
    EXPECT_TRUE(out(source("WM ASF READER", "/m/a.asf"))->connectDirect(in(add("MPEG Layer-3 Decoder"))));
    EXPECT_EQ(typeOf(out(source("Halden WM ASF Reader", "/m/song.mp3"))), "audio/pcm16");
    // The reader opens an address as it loads, synchronously; the file source refuses one.
    sim->addStream("http://host/ondemand.asf", {.afterMs = 250, .mediaType = "stream/asf;wma", .durationSeconds = 90, .levels = {}});
    auto remote = add("WM ASF READER");
    ASSERT_TRUE(remote->setFileName("http://host/ondemand.asf"));
    EXPECT_EQ(sim->elapsedMs(), 250);
    EXPECT_EQ(typeOf(out(remote)), "audio/wma");
    EXPECT_EQ(add("File Source (Async.)")->setFileName("http://host/ondemand.asf").number, hr::UnsupportedStream);
    EXPECT_EQ(typeOf(out(source("Native FLAC Decoder", "/m/tune.flac"))), "audio/pcm16");
    // The ACM Wrapper decodes MPEG audio by itself, as the platform's codec manager does.
    auto split = add("MPEG-I Stream Splitter");
    ASSERT_TRUE(out(source("File Source (Async.)", "/m/song.mp3"))->connectDirect(in(split)));
    EXPECT_TRUE(out(split)->connectDirect(in(add("ACM Wrapper"))));

    FilterPtr system;
    ASSERT_TRUE(graph->addSourceFilter("/m/tone.wav", system));
    EXPECT_EQ(typeOf(out(system)), "stream/wave;pcm16");
    // Unregistered: no system source reads the file, and an entry taken earlier makes nothing.
    std::vector<platform::CatalogueEntryPtr> entries;
    ASSERT_TRUE(sim->catalogue().enumerate(category::LegacyFilters, entries));
    auto taken = std::find_if(entries.begin(), entries.end(), [](auto& e) { return e->name() == "File Source (Async.)"; });
    ASSERT_NE(taken, entries.end());
    EXPECT_EQ(sim->unregisterFilter("File Source (Async.)"), 1);
    EXPECT_EQ(graph->addSourceFilter("/m/tone.wav", system).number, hr::UnknownFileType);
    EXPECT_FALSE((*taken)->createIn(*graph, system));

    // A test open tells a locked file from a missing one.
    auto& op = sim->operatorServices();
    EXPECT_TRUE(op.testOpen("/m/song.mp3"));
    EXPECT_EQ(op.testOpen("/m/locked.mp3").number, hr::AccessDenied);
    EXPECT_EQ(op.testOpen("/m/none.mp3").number, hr::FileNotFound);
}

// The clock, position and end of stream -----------------------------------------------------------

TEST_F(SimPlatformTest, PositionMovesOnlyWhileRunningOrSleepingAndTheRendererHearsIt) {
    buildMp3Chain();
    ASSERT_TRUE(graph->setVolume(-600));
    sim->advanceMs(500);
    EXPECT_EQ(position(), 0.0);

    ASSERT_TRUE(graph->run());
    EXPECT_EQ(graph->state(), GraphState::Running);
    sim->advanceMs(1500);
    ASSERT_TRUE(graph->pause());
    sim->advanceMs(1000);
    EXPECT_DOUBLE_EQ(position(), 1.5);

    ASSERT_TRUE(graph->setCurrentPosition(6.0));
    ASSERT_TRUE(graph->setRate(2.0));
    ASSERT_TRUE(graph->run());
    sim->advanceMs(1000);
    EXPECT_DOUBLE_EQ(position(), 8.0);

    const auto& log = heard();
    EXPECT_EQ(log.playedMs("/m/song.mp3"), 2500);
    ASSERT_EQ(log.spans.size(), 2u);
    EXPECT_EQ(log.spans[0].volume, -600);
    EXPECT_DOUBLE_EQ(log.spans[0].toSeconds, 1.5);
    EXPECT_DOUBLE_EQ(log.spans[1].fromSeconds, 6.0);
    EXPECT_EQ(log.count(RendererEvent::Kind::Pause), 1);
    EXPECT_EQ(log.count(RendererEvent::Kind::Seek), 1);
    double d = 0;
    ASSERT_TRUE(graph->duration(d));
    EXPECT_DOUBLE_EQ(d, 10.0);
    sim->ticks().sleepMs(100); // sleeping moves the whole machine
    EXPECT_NEAR(position(), 8.2, 1e-9);
}

TEST_F(SimPlatformTest, EndOfStreamIsPostedOnceWhenThePositionReachesTheDuration) {
    buildMp3Chain();
    listen();
    ASSERT_TRUE(graph->run());
    sim->advanceMs(9999);
    sim->pump();
    EXPECT_TRUE(events.empty());
    sim->advanceMs(1);
    EXPECT_TRUE(events.empty()); // posted, not yet delivered
    EXPECT_EQ(sim->pump(), 1);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0], GraphEvent::EndOfStream);
    sim->advanceMs(5000);
    sim->pump();
    EXPECT_EQ(events.size(), 1u);
    EXPECT_EQ(heard().playedMs(), 10000);
    EXPECT_EQ(heard().count(RendererEvent::Kind::EndOfStream), 1);
}

TEST_F(SimPlatformTest, AGraphWhoseChainDoesNotReachARendererNeitherMovesNorEnds) {
    ASSERT_TRUE(join({source("File Source (Async.)", "/m/song.mp3"), add("MPEG-I Stream Splitter")}));
    add(names::DefaultDevice);
    listen();
    ASSERT_TRUE(graph->run());
    sim->runFor(20000, 1000);
    EXPECT_EQ(position(), 0.0);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(heard().playedMs(), 0);
}

TEST_F(SimPlatformTest, PitchShifterRateAndPipeMuteShapeWhatIsHeard) {
    auto src = source("File Source (Async.)", "/m/tone.wav");
    auto pitch = add("Brindle Pitch Shifter");
    auto pipe = add("Pipe Sender");
    ASSERT_TRUE(join({src, add("Wave Parser"), pitch, pipe, add(names::DefaultDevice)}));
    ASSERT_TRUE(pitch->pitchShifter());
    ASSERT_TRUE(pitch->pitchShifter()->setRate(1.5));
    ASSERT_TRUE(graph->run());
    sim->advanceMs(1000);
    EXPECT_DOUBLE_EQ(position(), 1.5);
    ASSERT_TRUE(pipe->pipeSender());
    pipe->pipeSender()->setDownstreamMute(true);
    sim->advanceMs(1000);
    EXPECT_EQ(heard().playedMs(), 1000);
    ASSERT_EQ(heard().spans.size(), 2u);
    EXPECT_TRUE(heard().spans[1].muted);
    EXPECT_FALSE(src->pitchShifter());
}

TEST_F(SimPlatformTest, TheTickCounterStartsWhereTheTestSaysAndWraps) {
    sim->setTickCount(INT32_MAX - 100);
    auto& ticks = sim->ticks();
    EXPECT_EQ(ticks.nowMs(), INT32_MAX - 100);
    sim->advanceMs(100);
    EXPECT_EQ(ticks.nowMs(), INT32_MAX);
    ticks.sleepMs(1);
    EXPECT_EQ(ticks.nowMs(), INT32_MIN);
    EXPECT_EQ(sim->elapsedMs(), 101);

    sim->setSecondsSinceMidnight(86399.5);
    sim->advanceMs(1000);
    EXPECT_NEAR(ticks.secondsSinceMidnight(), 0.5, 1e-9);

}

// Stream sources ---------------------------------------------------------------------------------

class SimStreamTest : public SimPlatformTest {
protected:
    struct Receiver : platform::ShoutcastCallback {
        std::vector<std::string> heard;
        void StreamBuffering(int32_t p) override { heard.push_back(std::to_string(p) + "%"); }
        void MetaChangeCallback(const std::string& a, const std::string& u, const std::string& f) override {
            heard.push_back(a + "|" + u + "|" + f);
        }
        void OdStreamSeg(double s) override { heard.push_back("seg " + std::to_string(s)); }
    };

    using OpenState = platform::StreamSourceControl::OpenState;
    // The player's wait, up to 10 s: the simulated clock moves to the open's outcome.
    OpenState wait(platform::StreamSourceControl& c) { return c.waitForChange(10000), c.openState(); }
    Receiver receiver;
};

TEST_F(SimStreamTest, AStreamOpensDuringTheWaitAndOffersPcm) {
    sim->addStream("icystream://radio:8000/live", {.afterMs = 800, .levels = {}});
    auto shout = add("_DShowShoutCast");
    auto* control = shout->streamSource();
    ASSERT_TRUE(control);
    control->registerCallback(&receiver);
    ASSERT_TRUE(control->open("icystream://radio:8000/live"));
    EXPECT_EQ(control->openState(), OpenState::Opening);
    EXPECT_TRUE(shout->pins().empty());
    EXPECT_EQ(wait(*control), OpenState::Open);
    EXPECT_EQ(sim->elapsedMs(), 800);
    EXPECT_EQ(shout->fileName(), "icystream://radio:8000/live");
    EXPECT_EQ(typeOf(out(shout)), "audio/pcm16");

    ASSERT_TRUE(join({shout, add(names::DefaultDevice)}));
    double d = 0;
    ASSERT_TRUE(graph->duration(d));
    EXPECT_EQ(d, SimStream::LiveDuration);

    EXPECT_TRUE(sim->lastStreamSource()->fireStreamBuffering(50));
    sim->lastStreamSource()->fireMetaChange("A - T", "http://x", "StreamTitle='A - T';");
    sim->lastStreamSource()->fireOdStreamSeg(12.5);
    EXPECT_EQ(receiver.heard, (std::vector<std::string>{"50%", "A - T|http://x|StreamTitle='A - T';",
                                                         "seg " + std::to_string(12.5)}));
}

TEST_F(SimStreamTest, FailingAndUnknownStreams) {
    sim->addStream("icystream://bad", {.outcome = SimStream::Outcome::Fails, .afterMs = 300,
                                       .failure = Status::failure(hr::AccessDenied, "403 Forbidden"), .levels = {}});

    auto* c1 = add("_DShowShoutCast")->streamSource();
    ASSERT_TRUE(c1->open("icystream://bad"));
    EXPECT_EQ(wait(*c1), OpenState::Failed);
    EXPECT_EQ(c1->openFailure().description, "403 Forbidden");
    EXPECT_EQ(sim->elapsedMs(), 300);

    auto* c2 = add("_DShowShoutCast")->streamSource();
    ASSERT_TRUE(c2->open("icystream://nowhere"));
    EXPECT_EQ(c2->openState(), OpenState::Failed);
    EXPECT_EQ(c2->openFailure().number, hr::FileNotFound);
}

// Fault injection ---------------------------------------------------------------------------------

TEST_F(SimPlatformTest, FaultsStrikeTheNamedOperationAsOftenAsAskedHidePinsAndSilentlySucceed) {
    int id = sim->inject({.point = FaultPoint::CreateFilter, .subject = "Halden Sample Grabber", .object = {},
                          .status = Status::failure(hr::Fail, "no grabber"), .skip = 1, .times = 1});
    EXPECT_TRUE(add("Halden Sample Grabber"));  // skipped
    EXPECT_FALSE(add("Halden Sample Grabber")); // fails
    EXPECT_TRUE(add("Halden Sample Grabber"));  // spent
    EXPECT_EQ(sim->failures(id), 1);
    EXPECT_TRUE(add("Wave Parser"));

    sim->failAlways(FaultPoint::SetFileName, "WM ASF Reader", Status::failure(hr::Timeout, "hang"));
    auto reader = add("WM ASF READER");
    EXPECT_EQ(reader->setFileName("/m/talk.wma").number, hr::Timeout);
    sim->healAll();
    EXPECT_TRUE(reader->setFileName("/m/talk.wma"));

    // Pins can be made missing, and a load can silently do nothing.
    for (const auto& [filter, pin] : {std::pair{"MPEG-I Stream Splitter", "Audio"}, {"ACM Wrapper", "Output"}})
        sim->inject({.point = FaultPoint::PinAppears, .subject = filter, .object = pin, .times = 1});
    auto split = add("MPEG-I Stream Splitter");
    ASSERT_TRUE(join({source("File Source (Async.)", "/m/song.mp3"), split}));
    EXPECT_FALSE(out(split)) << "an output that should appear with the connection";
    EXPECT_FALSE(out(add("ACM Wrapper"))) << "a pin every instance has";
    EXPECT_TRUE(out(add("ACM Wrapper"))) << "spent";

    sim->failOnce(FaultPoint::SetFileName, "Native FLAC Decoder", Status::success());
    auto flac = add("Native FLAC Decoder");
    EXPECT_TRUE(flac->setFileName("/m/tune.flac"));
    EXPECT_NE(flac->fileName(), "/m/tune.flac");
}

TEST_F(SimPlatformTest, GraphTransportAndSeekFailWithTheGivenStatus) {
    buildMp3Chain();
    sim->failOnce(FaultPoint::Run, "/m/song.mp3", Status::failure(hr::NoAudioHardware, "gone"));
    sim->failAlways(FaultPoint::Seek, "", Status::failure(hr::WrongState, "no seek"));
    auto s = graph->run();
    EXPECT_EQ(s.number, hr::NoAudioHardware);
    EXPECT_EQ(s.description, "gone");
    EXPECT_EQ(graph->state(), GraphState::Stopped);
    EXPECT_TRUE(graph->run());
    EXPECT_EQ(graph->setCurrentPosition(3).number, hr::WrongState);
}

// Devices -----------------------------------------------------------------------------------------

TEST_F(SimPlatformTest, AnUnpluggedDeviceEndsTheAudioAndTellsTheGraph) {
    buildMp3Chain();
    listen();
    ASSERT_TRUE(graph->run());
    sim->advanceMs(300);
    EXPECT_EQ(sim->removeAudioRenderer(names::DefaultDevice), 1);
    sim->advanceMs(300);
    sim->pump();
    EXPECT_EQ(events, std::vector<GraphEvent>{GraphEvent::DeviceLost});
    EXPECT_EQ(heard().playedMs(), 300);
    std::vector<platform::CatalogueEntryPtr> entries;
    ASSERT_TRUE(sim->catalogue().enumerate(category::AudioRenderers, entries));
    EXPECT_EQ(entries.size(), 2u);
}

TEST_F(SimPlatformTest, RenderersAreListedWithSpeakerPairsAndDuplicateNames) {
    sim->addAudioRenderer("USB Card", 6);
    sim->addAudioRenderer("USB Card", 2);
    std::vector<platform::CatalogueEntryPtr> entries;
    auto listed = [&] {
        std::vector<std::string> listed;
        for (auto& e : entries) listed.push_back(e->name());
        return listed;
    };
    ASSERT_TRUE(sim->catalogue().enumerate(category::AudioRenderers, entries));
    EXPECT_EQ(listed(), (std::vector<std::string>{names::DefaultDevice, names::DummyDevice,
                                                 names::SurroundDevice, "USB Card", "USB Card"}));
    EXPECT_EQ(entries[2]->numSpeakers(), 8);
    ASSERT_TRUE(sim->catalogue().enumerateRenderersWithPairs(entries));
    const std::string s = names::SurroundDevice;
    EXPECT_EQ(listed(), (std::vector<std::string>{
                          names::DefaultDevice, names::DummyDevice, s, s + " [1-2]", s + " [3-4]",
                          s + " [5-6]", s + " [7-8]", "USB Card", "USB Card [1-2]",
                          "USB Card [3-4]", "USB Card [5-6]", "USB Card"}));

    // A pair's renderer stands in the graph under the pair's name and feeds its device.
    FilterPtr pairRenderer;
    ASSERT_TRUE(entries[4]->createIn(*graph, pairRenderer));
    EXPECT_EQ(pairRenderer->name(), s + " [3-4]");
    ASSERT_TRUE(join({source("Native FLAC Decoder", "/m/tune.flac"), add("Sondrel 3-4"), pairRenderer}));
    ASSERT_TRUE(graph->run());
    sim->advanceMs(200);
    ASSERT_EQ(sim->heard(s).spans.size(), 1u);
    EXPECT_EQ(sim->heard(s).spans[0].speakerPair, "3-4");
    EXPECT_EQ(sim->heard("USB Card", 1).playedMs(), 0);
}

// Helpers -----------------------------------------------------------------------------------------

using HelperEvents = graphops::HelperRecorder;

TEST_F(SimPlatformTest, AHelperCanBeRefusedByKindAndRecordsTheSearchesItWasAskedFor) {
    sim->failOnce(FaultPoint::CreateHelper, "CueHelper", Status::failure(hr::Fail, "x"));
    platform::GraphHelperPtr h, cue;
    EXPECT_FALSE(sim->createGraphHelper(GraphHelperKind::CueHelper, h));
    EXPECT_TRUE(sim->createGraphHelper(GraphHelperKind::Helper, h));
    ASSERT_TRUE(sim->createGraphHelper(GraphHelperKind::CueHelper, cue));
    auto simCue = sim->lastHelper(GraphHelperKind::CueHelper);
    ASSERT_EQ(simCue, cue);
    ASSERT_TRUE(cue->startCueSearch("/m/song.mp3", {"a"}, true, 500));
    ASSERT_TRUE(cue->startSegueSearchOwnSource("/m/song.mp3", {}, 400));
    ASSERT_EQ(simCue->searches().size(), 2u);
    EXPECT_EQ(simCue->searches()[0].threshold, 500);
    EXPECT_TRUE(simCue->searches()[0].useAsfReader);
    EXPECT_EQ(simCue->lastSearch()->kind, HelperSearch::Kind::SegueOwnSource);
}

TEST_F(SimPlatformTest, AnAutomaticHelperTicksWithTheItemsLevelsAndReportsItsEnd) {
    sim->addFile("/m/quiet-end.mp3",
                 {"stream/mpeg-audio", 1.0, {{0, 20000, 10000}, {0.5, 0, 0}}, {}, true});
    buildMp3Chain("/m/quiet-end.mp3");
    sim->helperAutomation() = {true, true, 50};
    platform::GraphHelperPtr helper;
    ASSERT_TRUE(sim->createGraphHelper(GraphHelperKind::Helper, helper));
    HelperEvents events;
    helper->setEvents(&events);
    helper->setCurrentGraph(graph);
    ASSERT_TRUE(helper->run());
    ASSERT_TRUE(graph->run());
    sim->runFor(2000, 100);
    ASSERT_GE(events.ticks.size(), 20u);
    EXPECT_EQ(events.ticks.front(), std::make_pair(20000, 10000));
    EXPECT_EQ(events.ticks[12], std::make_pair(0, 0));
    EXPECT_EQ(events.ends, 1);
    ASSERT_TRUE(helper->stop());
    const auto n = events.ticks.size();
    sim->runFor(500, 100);
    EXPECT_EQ(events.ticks.size(), n);
}

TEST_F(SimPlatformTest, AnAutomaticCueHelperAnswersFromTheLevelProfile) {
    sim->addFile("/m/shaped.mp3", {"stream/mpeg-audio", 30.0,
                                   {{0, 0, 0}, {0.8, 300, 900}, {1.5, 20000, 18000},
                                    {27.0, 400, 200}, {28.5, 0, 0}}});
    sim->helperAutomation().searches = true;
    platform::GraphHelperPtr cue;
    ASSERT_TRUE(sim->createGraphHelper(GraphHelperKind::CueHelper, cue));
    HelperEvents events;
    cue->setEvents(&events);
    ASSERT_TRUE(cue->startCueSearch("/m/shaped.mp3", {}, false, 500));
    ASSERT_TRUE(cue->startCueSearch("/m/shaped.mp3", {}, false, 30000));
    ASSERT_TRUE(cue->startSegueSearch("/m/shaped.mp3", {}, false, 500));
    ASSERT_TRUE(cue->startSegueSearchOwnSource("/m/song.mp3", {}, 500));
    ASSERT_TRUE(cue->startCueSearch("/m/none.mp3", {}, false, 500));
    sim->advanceMs(199);
    sim->pump();
    EXPECT_TRUE(events.cueIns.empty());
    sim->runFor(1);
    EXPECT_EQ(events.cueIns, (std::vector<int32_t>{800, -1}));
    EXPECT_EQ(events.segues, (std::vector<int32_t>{27000, 10000}));
    EXPECT_EQ(events.ends, 1);
}

} // namespace
} // namespace corvid::sim
