// The platform's contract, one suite run against the simulation and the native runtime: which
// pins join, when pins appear and go, how intelligent connect and render build a chain, how
// filters leave and return, that a chain plays to one end; and the services every player leans
// on (the event loop, tags). What the simulation proves about the player holds on the real
// runtime only as far as these agree.

#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "tests/contract/GraphOps.h"
#ifdef CORVID_CONTRACT_NATIVE
#include "../native/NativeTestSupport.h"
#include "../native/StreamServer.h"
#endif

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <thread>
#include <memory>

namespace corvid::contract {
namespace {

using graphops::in;
using graphops::out;
using platform::FilterPtr;
using platform::GraphEvent;
using platform::GraphPtr;
namespace hr = platform::hr;
namespace category = platform::category;

constexpr const char* kDefaultDevice = "Default DirectSound Device";
constexpr const char* kDummyDevice = "DirectSound: Brindle Dummy Output Device";
constexpr double kSeconds = 2.0; // every file's length

// One platform under test, with files of each kind and a way to let its time pass.
class Machine {
public:
    virtual ~Machine() = default;
    virtual platform::Platform& platform() = 0;
    // A file of a kind: "mp3", "wav", "wide.wav" (samples no renderer takes), "wma", "flac",
    // "ogg", "m4a"; or a name that does not exist.
    virtual std::string file(const std::string& kind) = 0;
    // An address whose stream opens a moment after it is asked for.
    virtual std::string stream() = 0;
    // Lets the machine run until `done` holds, for at most `ms` of its time.
    virtual bool runUntil(const std::function<bool()>& done, int ms) = 0;
};

class SimMachine final : public Machine {
public:
    SimMachine() : sim_(sim::SimPlatform::standardMachine()) {
        const std::pair<const char*, const char*> kinds[] = {
            {"mp3", "stream/mpeg-audio"}, {"wav", "stream/wave;pcm16"},
            {"wide.wav", "stream/wave;float32"}, {"wma", "stream/asf;wma"},
            {"flac", "stream/flac"}, {"ogg", "stream/ogg;vorbis"}, {"m4a", "stream/mp4;aac"}};
        const std::map<std::string, std::string> tags = {
            {"Artist", "Test Artist"}, {"Title", "Test Title"}, {"WM/Year", "2001"}, {"WM/Genre", "Jazz"}};
        for (const auto& [kind, type] : kinds) sim_->addFile(file(kind), sim::SimFile{type, kSeconds, {}, tags});
        sim_->addStream(stream(), {.afterMs = 300, .levels = {}});
    }
    platform::Platform& platform() override { return *sim_; }
    std::string file(const std::string& kind) override { return "/m/tone." + kind; }
    std::string stream() override { return "icystream://127.0.0.1:8000/live"; }
    bool runUntil(const std::function<bool()>& done, int ms) override {
        for (int waited = 0; !done(); waited += 10) {
            if (waited >= ms) return false;
            sim_->runFor(10);
        }
        return true;
    }

private:
    std::unique_ptr<sim::SimPlatform> sim_;
};

#ifdef CORVID_CONTRACT_NATIVE
// The native runtime on its silent device: real parsers and decoders, no sound server.
class NativeMachine final : public Machine {
public:
    NativeMachine() : platform_(std::make_unique<native::NativePlatform>(native::test::testOptions(true))) {}
    platform::Platform& platform() override { return *platform_; }
    std::string file(const std::string& kind) override {
        if (kind == "wide.wav") return native::test::mediaPath("tone24.wav");
        if (kind == "none") return native::test::workDir() + "/media/none.mp3";
        return native::test::mediaPath("tone." + kind);
    }
    std::string stream() override {
        if (!server_)
            server_ = std::make_unique<native::test::StreamServer>(native::test::StreamServer::Mode::File,
                                                                   native::test::mediaPath("tone.mp3"));
        return server_->address();
    }
    bool runUntil(const std::function<bool()>& done, int ms) override {
        return platform_->loop().runUntil(done, ms);
    }

private:
    std::unique_ptr<native::test::StreamServer> server_; // outlives the platform's connections
    std::unique_ptr<native::NativePlatform> platform_;
};
#endif

struct MachineKind {
    const char* name;
    std::unique_ptr<Machine> (*make)();
};

void PrintTo(const MachineKind& kind, std::ostream* os) { *os << kind.name; }

const MachineKind kMachines[] = {
    {"sim", [] { return std::unique_ptr<Machine>(new SimMachine); }},
#ifdef CORVID_CONTRACT_NATIVE
    {"native", [] { return std::unique_ptr<Machine>(new NativeMachine); }},
#endif
};

class GraphContract : public ::testing::TestWithParam<MachineKind> {
protected:
    void SetUp() override {
        machine = GetParam().make();
        graph = newGraph();
    }

    GraphPtr newGraph() {
        GraphPtr g;
        EXPECT_TRUE(machine->platform().createGraph(g));
        if (g) g->setEventHandler([this](GraphEvent e) { ends += e == GraphEvent::EndOfStream; });
        return g;
    }

    FilterPtr add(const std::string& name, const GraphPtr& g = nullptr) {
        auto f = graphops::make(machine->platform(), g ? *g : *graph, name);
        EXPECT_TRUE(f) << "not made: " << name;
        return f;
    }
    FilterPtr source(const std::string& name, const std::string& kind, const GraphPtr& g = nullptr) {
        auto f = add(name, g);
        const auto s = f ? f->setFileName(machine->file(kind)) : platform::Status{};
        EXPECT_TRUE(f && s) << name << " " << kind << ": " << s.description;
        return f;
    }

    // The name of the filter feeding `f`'s input, or empty.
    static std::string feeding(const FilterPtr& f) {
        auto peer = in(f) ? in(f)->connectedTo() : nullptr;
        auto up = peer ? peer->filter() : nullptr;
        return up ? up->name() : std::string();
    }
    double position() {
        double pos = -1;
        EXPECT_TRUE(graph->currentPosition(pos));
        return pos;
    }
    int countNamed(const std::string& name, const GraphPtr& g = nullptr) {
        int n = 0;
        for (auto& f : (g ? g : graph)->filters()) n += f->name() == name;
        return n;
    }

    // Plays the graph from shortly before its end: it must end exactly once.
    void playsToOneEnd(const GraphPtr& g) {
        ends = 0;
        ASSERT_TRUE(g->setCurrentPosition(kSeconds - 0.3));
        ASSERT_TRUE(g->run());
        EXPECT_TRUE(machine->runUntil([&] { return ends > 0; }, 5000)) << "no end of stream";
        machine->runUntil([] { return false; }, 200);
        EXPECT_EQ(ends, 1);
        EXPECT_TRUE(g->stop());
    }

    std::unique_ptr<Machine> machine;
    GraphPtr graph;
    int ends = 0;
};

TEST_P(GraphContract, SourcesLoadTheirOwnKindAndConnectDirectJoinsOnlyAgreeingFreePinsOfOneGraph) {
    auto src = source("File Source (Async.)", "mp3");
    EXPECT_TRUE(src->isFileSource());
    EXPECT_EQ(src->fileName(), machine->file("mp3"));
    EXPECT_EQ(src->pins().size(), 1u);
    EXPECT_EQ(add("File Source (Async.)")->setFileName(machine->file("none")).number, hr::FileNotFound);
    auto flac = add("Native FLAC Decoder");
    EXPECT_FALSE(flac->setFileName(machine->file("mp3")));
    EXPECT_TRUE(flac->pins().empty());
    EXPECT_FALSE(add("Wave Parser")->setFileName(machine->file("wav"))) << "a parser is no source";
    EXPECT_EQ(add("WM ASF READER")->name(), "WM ASF Reader") << "the reader reports its own name";

    // Connect-direct joins only agreeing free pins of one graph.
    EXPECT_FALSE(out(src)->connectDirect(in(add("Wave Parser")))) << "the parser reads the header";
    EXPECT_FALSE(out(src)->isConnected());

    auto split = add("MPEG-I Stream Splitter");
    ASSERT_TRUE(in(split)->connectDirect(out(src))) << "either end may ask";
    EXPECT_EQ(out(src)->connectedTo(), in(split));
    EXPECT_EQ(in(split)->connectedTo()->filter(), src);
    auto split2 = add("MPEG-I Stream Splitter");
    EXPECT_EQ(out(src)->connectDirect(in(split2)).number, hr::AlreadyConnected);
    EXPECT_FALSE(in(split)->connectDirect(in(split2))) << "two inputs";

    GraphPtr other = newGraph();
    auto foreign = add("MPEG-I Stream Splitter", other);
    EXPECT_EQ(out(source("File Source (Async.)", "mp3"))->connectDirect(in(foreign)).number,
              hr::NotInGraph);

    // An output with nothing arriving has no type yet; a renderer refuses what it cannot play.
    auto grab = add("Halden Sample Grabber");
    auto card = add(kDefaultDevice);
    EXPECT_FALSE(out(grab)->connectDirect(in(card)));
    EXPECT_EQ(out(grab)->connect(in(card)).number, hr::CannotConnect);
    auto parser = add("Wave Parser");
    ASSERT_TRUE(out(source("File Source (Async.)", "wide.wav"))->connectDirect(in(parser)));
    EXPECT_FALSE(out(parser)->connectDirect(in(card)));
}

TEST_P(GraphContract, AParserOutputExistsOnlyWhileItsInputIsConnected) {
    auto src = source("File Source (Async.)", "wide.wav");
    auto parser = add("Wave Parser");
    EXPECT_EQ(parser->pins().size(), 1u);
    ASSERT_TRUE(out(src)->connectDirect(in(parser)));
    auto parsed = out(parser);
    ASSERT_TRUE(parsed && parsed->name() == "output");
    auto conv = add("Brindle Format Converter");
    ASSERT_TRUE(parsed->connectDirect(in(conv)));

    // Breaking the parser's input takes its output away, connection and all.
    ASSERT_TRUE(in(parser)->disconnect());
    EXPECT_FALSE(out(src)->isConnected());
    EXPECT_FALSE(out(parser));
    EXPECT_FALSE(in(conv)->isConnected());
    // The old pin object stays dead; the player must look the pins up again.
    ASSERT_TRUE(out(src)->connectDirect(in(parser)));
    EXPECT_FALSE(parsed->connectDirect(in(conv)));
    EXPECT_TRUE(out(parser)->connectDirect(in(conv)));
    EXPECT_TRUE(in(parser)->disconnect());
    EXPECT_TRUE(in(parser)->disconnect()) << "twice is harmless";
}

// Every chain the player builds, pin by pin: each joins directly and plays to one end.
TEST_P(GraphContract, EveryNormalChainConnectsDirectlyAndPlaysToOneEnd) {
    for (const auto& [kind, filters] : graphops::kChains) {
        SCOPED_TRACE(std::string(kind) + " through " + filters.back());
        GraphPtr g = newGraph();
        std::vector<FilterPtr> row = {source(filters.front(), kind, g)};
        for (std::size_t i = 1; i < filters.size(); ++i) row.push_back(add(filters[i], g));
        row.insert(row.end(), {add("Halden Sample Grabber", g), add(kDefaultDevice, g)});
        const auto s = graphops::join(row);
        ASSERT_TRUE(s) << s.description;
        double duration = 0;
        ASSERT_TRUE(g->duration(duration));
        EXPECT_NEAR(duration, kSeconds, 0.15);
        ASSERT_NO_FATAL_FAILURE(playsToOneEnd(g));
    }
}

TEST_P(GraphContract, IntelligentConnectPlacesWhatIsMissingAndTakesOutWhatDidNotFit) {
    ASSERT_TRUE(out(source("File Source (Async.)", "mp3"))->connect(in(add(kDefaultDevice))));
    EXPECT_EQ(countNamed("MPEG-I Stream Splitter"), 1);
    EXPECT_EQ(countNamed("MPEG Layer-3 Decoder"), 1);
    EXPECT_EQ(graph->filters().size(), 4u) << "candidates that did not fit are gone again";
    ASSERT_NO_FATAL_FAILURE(playsToOneEnd(graph));

    // Directly when it can.
    auto grab = add("Halden Sample Grabber"), flac = source("Native FLAC Decoder", "flac");
    ASSERT_TRUE(out(flac)->connect(in(grab)));
    EXPECT_EQ(in(grab)->connectedTo(), out(flac));

    // No route: the graph is left as it was.
    GraphPtr other = newGraph();
    auto wma = source("File Source (Async.)", "wma", other);
    EXPECT_EQ(out(wma)->connect(in(add(kDefaultDevice, other))).number, hr::CannotConnect);
    EXPECT_EQ(other->filters().size(), 2u);
    EXPECT_FALSE(out(wma)->isConnected());
}

TEST_P(GraphContract, IntelligentConnectTriesFreeFiltersInTheGraphFirstAndGoesFourDeep) {
    auto parser = add("Wave Parser");
    auto card = add(kDefaultDevice);
    auto conv = add("Brindle Format Converter");
    ASSERT_TRUE(out(source("File Source (Async.)", "wide.wav"))->connectDirect(in(parser)));
    ASSERT_TRUE(out(parser)->connect(in(card)));
    EXPECT_EQ(in(conv)->connectedTo(), out(parser)) << "the converter standing free was used";
    EXPECT_EQ(countNamed("Brindle Format Converter"), 1);

    // Depth first: free filters standing in the graph are taken in their order, however long
    // that makes the route, and no deeper than four filters.
    GraphPtr g = newGraph();
    auto wide = source("File Source (Async.)", "wide.wav", g);
    for (int i = 0; i < 3; ++i) add("Halden Sample Grabber", g);
    add("Brindle Format Converter", g);
    auto gCard = add(kDefaultDevice, g);
    ASSERT_TRUE(out(wide)->connect(in(gCard)));
    std::vector<std::string> route;
    for (auto f = gCard; in(f) && in(f)->isConnected(); f = in(f)->connectedTo()->filter())
        route.insert(route.begin(), feeding(f));
    ASSERT_EQ(route.size(), 5u);
    EXPECT_EQ(route[1], "Wave Parser");
    EXPECT_EQ(route[2].rfind("Halden Sample Grabber", 0), 0u);
    EXPECT_EQ(route[3].rfind("Halden Sample Grabber", 0), 0u);
    EXPECT_EQ(route[4], "Brindle Format Converter") << "a third grabber would make five";
}

TEST_P(GraphContract, RenderBuildsAChainToAFreeRendererOrTheDefaultDevice) {
    for (const char* kind : {"wav", "mp3", "ogg", "m4a"}) {
        SCOPED_TRACE(kind);
        GraphPtr g = newGraph();
        FilterPtr src;
        ASSERT_TRUE(g->addSourceFilter(machine->file(kind), src));
        EXPECT_EQ(src->name(), machine->file(kind)) << "the system source is named after the item";
        const auto s = out(src)->render();
        ASSERT_TRUE(s) << s.description;
        EXPECT_EQ(countNamed(kDefaultDevice, g), 1);
        ASSERT_NO_FATAL_FAILURE(playsToOneEnd(g));
    }
    FilterPtr none;
    EXPECT_EQ(graph->addSourceFilter(machine->file("none"), none).number, hr::FileNotFound);
    EXPECT_TRUE(graph->filters().empty());

    auto dummy = add(kDummyDevice);
    auto flac = source("Native FLAC Decoder", "flac");
    ASSERT_TRUE(out(flac)->render());
    EXPECT_EQ(in(dummy)->connectedTo(), out(flac)) << "a free renderer in the graph first";
    EXPECT_EQ(graph->filters().size(), 2u);
    EXPECT_EQ(out(source("File Source (Async.)", "wma"))->render().number, hr::CannotRender);
}

TEST_P(GraphContract, FiltersLeaveAndReturnAndAGraphDroppedWhilePlayingSaysNothing) {
    auto src = source("File Source (Async.)", "wav");
    auto card = add(kDefaultDevice);
    ASSERT_TRUE(out(src)->connect(in(card)));
    const auto all = graph->filters();
    auto it = std::find_if(all.begin(), all.end(), [](auto& f) { return f->name() == "Wave Parser"; });
    ASSERT_NE(it, all.end());
    FilterPtr parser = *it;
    ASSERT_TRUE(graph->removeFilter(parser));
    EXPECT_FALSE(out(src)->isConnected());
    EXPECT_FALSE(in(card)->isConnected());
    EXPECT_EQ(graph->removeFilter(parser).number, hr::NotInGraph);
    ASSERT_TRUE(graph->addFilter(parser, "Wave Parser"));
    EXPECT_EQ(countNamed("Wave Parser"), 1);
    EXPECT_FALSE(graph->addFilter(parser, "again")) << "a filter stands in one graph at a time";
    EXPECT_FALSE(newGraph()->addFilter(parser, "x"));

    ASSERT_TRUE(out(src)->connectDirect(in(parser)));
    ASSERT_TRUE(out(parser)->connectDirect(in(card)));
    ASSERT_TRUE(graph->run());
    machine->runUntil([] { return false; }, 150);
    graph.reset();
    machine->runUntil([] { return false; }, 2500);
    EXPECT_EQ(ends, 0) << "a graph that is gone reports nothing";
}

TEST_P(GraphContract, TheEndWaitsOutAPauseComesOnceAndAgainAfterASeekBackAndVolumeAndRateKeepTheirRange) {
    ASSERT_TRUE(out(source("File Source (Async.)", "wav"))->connect(in(add(kDefaultDevice))));
    ASSERT_TRUE(graph->setVolume(-600));
    int32_t volume = 0;
    graph->volume(volume);
    EXPECT_EQ(volume, -600);
    EXPECT_FALSE(graph->setVolume(1) || graph->setVolume(-10001) || graph->setRate(0));
    EXPECT_EQ(position(), 0.0) << "nothing moves before the run";
    ASSERT_TRUE(graph->setCurrentPosition(kSeconds - 0.3));
    ASSERT_TRUE(graph->run());
    machine->runUntil([] { return false; }, 100);
    ASSERT_TRUE(graph->pause()); // with the last samples queued: the end waits for the resume
    EXPECT_FALSE(machine->runUntil([&] { return ends > 0; }, 500));
    ASSERT_TRUE(graph->run());
    ASSERT_TRUE(machine->runUntil([&] { return ends > 0; }, 5000));
    ASSERT_TRUE(graph->pause());
    ASSERT_TRUE(graph->setCurrentPosition(1.8));
    machine->runUntil([] { return false; }, 200);
    ASSERT_TRUE(graph->run());
    EXPECT_NEAR(position(), 1.8, 0.05) << "a seek while paused holds until the resume";
    EXPECT_TRUE(machine->runUntil([&] { return ends > 1; }, 5000)) << "the rest plays and ends again";
    ASSERT_TRUE(graph->stop());
    EXPECT_NEAR(position(), kSeconds, 0.2) << "a stop keeps the position";
    ASSERT_TRUE(graph->setCurrentPosition(0));
    EXPECT_EQ(position(), 0.0);
}

TEST_P(GraphContract, TheEventLoopRunsTasksInOrderTheCatalogueListsEveryFilterAndTagsComeFromTheItem) {
    auto& loop = machine->platform().eventLoop();
    std::vector<int> order;
    loop.post([&] {
        order.push_back(1);
        loop.post([&] { order.push_back(3); }); // waits for the next pass
    });
    loop.post([&] { order.push_back(2); });
    EXPECT_EQ(loop.processPending(), 2);
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    EXPECT_EQ(loop.processPending(), 1);

    std::atomic<int> ran{0};
    std::thread worker([&] {
        for (int i = 0; i < 100; ++i) loop.post([&] { ++ran; });
        loop.post([&] { loop.quit(); });
    });
    loop.run();
    worker.join();
    EXPECT_EQ(ran.load(), 100);

    // The catalogue lists every filter the player asks for.
    std::vector<platform::CatalogueEntryPtr> entries;
    ASSERT_TRUE(machine->platform().catalogue().enumerate(category::LegacyFilters, entries));
    std::vector<std::string> listed;
    for (auto& e : entries) listed.push_back(e->name());
    for (const char* name :
         {"File Source (Async.)", "MPEG-I Stream Splitter", "Wave Parser", "dsf Ogg Demuxer2+",
          "GDCL Mpeg-4 Demultiplexor2", "MPEG Layer-3 Decoder", "WMAudio Decoder DMO",
          "Xiph.Org Vorbis Decoder PLUS", "Microsoft DTV-DVD Audio Decoder", "Native FLAC Decoder",
          "Halden WM ASF Reader", "WM ASF READER", "OggDSFMux2", "ACM Wrapper", "_DShowShoutCast",
          "Brindle Format Converter", "Halden Sample Grabber", "Brindle Pitch Shifter", "Pipe Sender",
          "Sondrel 1-2", "Sondrel 3-4", "Sondrel 5-6", "Sondrel 7-8"})
        EXPECT_NE(std::find(listed.begin(), listed.end(), name), listed.end()) << name;
    ASSERT_TRUE(machine->platform().catalogue().enumerate(category::AudioRenderers, entries));
    ASSERT_GE(entries.size(), 2u);
    EXPECT_EQ(entries[0]->name(), kDefaultDevice);
    EXPECT_EQ(entries[1]->name(), kDummyDevice);
    EXPECT_EQ(entries[1]->numSpeakers(), 2);

    // Tags come from the item.
    auto tags = machine->platform().createTagReader();
    std::string v = "x";
    EXPECT_FALSE(tags->artist(v)) << "nothing open";
    for (const char* kind : {"mp3", "flac", "ogg", "m4a", "wma"}) {
        SCOPED_TRACE(kind);
        ASSERT_TRUE(tags->open(machine->file(kind)));
        const std::pair<const char*, const char*> expected[] = {
            {"WM/Year", "2001"}, {"wm/genre", "Jazz"}, {"WM/OriginalReleaseYear", ""}};
        EXPECT_TRUE(tags->artist(v) && v == "Test Artist") << v;
        EXPECT_TRUE(tags->title(v) && v == "Test Title") << v;
        for (const auto& [name, value] : expected) EXPECT_TRUE(tags->attribute(name, v) && v == value) << name;
    }
    tags->close();
    EXPECT_FALSE(tags->artist(v));
    EXPECT_EQ(v, "") << "a closed reader empties what it is asked for";
    EXPECT_FALSE(tags->open(machine->file("none")));
}

// A stream source can be cancelled only while it opens; its wait ends when the open moves on.
TEST_P(GraphContract, AStreamSourceWaitsForItsOpenAndCancelsOnlyWhileItOpens) {
    using OpenState = platform::StreamSourceControl::OpenState;
    auto* opened = add("_DShowShoutCast")->streamSource();
    auto* cancelled = add("_DShowShoutCast")->streamSource();
    ASSERT_TRUE(opened && cancelled);
    EXPECT_FALSE(opened->canCancel()) << "nothing to cancel yet";
    ASSERT_TRUE(opened->open(machine->stream()));
    EXPECT_TRUE(opened->canCancel());
    for (int pass = 0; pass < 100 && opened->openState() == OpenState::Opening; ++pass) {
        opened->waitForChange(100);
        machine->platform().eventLoop().processPending();
    }
    ASSERT_EQ(opened->openState(), OpenState::Open) << opened->openFailure().description;
    EXPECT_FALSE(opened->canCancel() || opened->cancel()) << "an open stream stops with its graph";

    ASSERT_TRUE(cancelled->open(machine->stream()));
    ASSERT_TRUE(cancelled->cancel());
    EXPECT_EQ(cancelled->openFailure().number, hr::Abort);
    EXPECT_FALSE(cancelled->canCancel());
}

INSTANTIATE_TEST_SUITE_P(Platforms, GraphContract, ::testing::ValuesIn(kMachines),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
} // namespace corvid::contract
