// The media graph's own rules, on the silent device: pins that appear with a connection,
// intelligent connect and render, naming, removal at any time, and the catalogue.

#include "NativeTestSupport.h"

#include "platform/native/NativeCatalogue.h"

#include <algorithm>
#include <filesystem>

namespace corvid::native::test {
namespace {

using platform::FilterPtr;
using platform::GraphEvent;
using platform::PinDirection;
using platform::PinPtr;
namespace hr = platform::hr;

class NativeGraphTest : public ::testing::Test {
protected:
    void SetUp() override {
        NativeOptions o = testOptions();
        o.output = OutputBackend::Silent;
        platform_ = std::make_unique<NativePlatform>(o);
        ASSERT_TRUE(platform_->createGraph(graph_));
        graph_->setEventHandler([this](GraphEvent e) {
            if (e == GraphEvent::EndOfStream) ++ends_;
        });
    }

    FilterPtr create(const std::string& name, const std::string& category = platform::category::LegacyFilters) {
        FilterPtr f = createFilter(*platform_, *graph_, name, category);
        if (!f) ADD_FAILURE() << "not made: " << name;
        return f;
    }
    FilterPtr device() { return create(kDefaultDeviceName, platform::category::AudioRenderers); }
    static PinPtr pin(const FilterPtr& f, PinDirection d) {
        PinPtr found;
        for (auto& p : f->pins())
            if (p->direction() == d) found = p;
        return found;
    }
    std::vector<std::string> names() {
        std::vector<std::string> n;
        for (auto& f : graph_->filters()) n.push_back(f->name());
        return n;
    }
    bool has(const std::string& name) {
        auto n = names();
        return std::find(n.begin(), n.end(), name) != n.end();
    }
    FilterPtr loaded(const std::string& source, const std::string& file) {
        auto f = create(source);
        const auto s = f->setFileName(file);
        EXPECT_TRUE(s) << s.description;
        return f;
    }

    std::unique_ptr<NativePlatform> platform_;
    platform::GraphPtr graph_;
    int ends_ = 0;
};

TEST_F(NativeGraphTest, ParserOutputPinExistsOnlyWhileItsInputIsConnected) {
    auto source = loaded("File Source (Async.)", mediaPath("tone.wav"));
    auto parser = create("Wave Parser");
    EXPECT_EQ(parser->pins().size(), 1u);
    ASSERT_TRUE(pin(source, PinDirection::Output)->connectDirect(pin(parser, PinDirection::Input)));
    ASSERT_EQ(parser->pins().size(), 2u);
    auto out = pin(parser, PinDirection::Output);
    auto grabber = create("Halden Sample Grabber");
    ASSERT_TRUE(out->connectDirect(pin(grabber, PinDirection::Input)));

    // Connected pins refuse a second connection; a pin cannot join one of its own direction.
    EXPECT_EQ(out->connectDirect(pin(create("Halden Sample Grabber"), PinDirection::Input)).number,
              hr::AlreadyConnected);
    EXPECT_FALSE(pin(source, PinDirection::Output)->connectDirect(pin(grabber, PinDirection::Output)));

    ASSERT_TRUE(pin(parser, PinDirection::Input)->disconnect());
    EXPECT_EQ(parser->pins().size(), 1u);
    EXPECT_FALSE(pin(grabber, PinDirection::Input)->isConnected()) << "the downstream side is freed";
    EXPECT_EQ(out->filter(), nullptr) << "a pin that went with its connection has no filter";
    EXPECT_TRUE(pin(parser, PinDirection::Input)->disconnect()) << "disconnecting twice is harmless";
}

TEST_F(NativeGraphTest, ConnectFindsParserAndDecoderAndThePlayEndsOnce) {
    auto source = loaded("File Source (Async.)", mediaPath("tone.mp3"));
    auto renderer = device();
    EXPECT_FALSE(pin(source, PinDirection::Output)->connectDirect(pin(renderer, PinDirection::Input)));
    const auto s = pin(source, PinDirection::Output)->connect(pin(renderer, PinDirection::Input));
    ASSERT_TRUE(s) << s.description;
    EXPECT_TRUE(has("MPEG-I Stream Splitter"));
    EXPECT_TRUE(has("MPEG Layer-3 Decoder"));
    EXPECT_FALSE(has("Wave Parser")) << "candidates that did not fit are taken out again";
    ASSERT_TRUE(graph_->run());
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return ends_ > 0; }, 10000));
    pumpUntil(*platform_, [] { return false; }, 200);
    EXPECT_EQ(ends_, 1);
}

TEST_F(NativeGraphTest, ConnectUsesTheConverterAlreadyInTheGraphForA24BitWave) {
    auto source = loaded("File Source (Async.)", mediaPath("tone24.wav"));
    auto parser = create("Wave Parser");
    ASSERT_TRUE(pin(source, PinDirection::Output)->connectDirect(pin(parser, PinDirection::Input)));
    auto renderer = device();
    auto out = pin(parser, PinDirection::Output);
    EXPECT_EQ(out->connectDirect(pin(renderer, PinDirection::Input)).number, hr::TypeNotAccepted);
    auto converter = create("Brindle Format Converter");
    ASSERT_TRUE(out->connect(pin(renderer, PinDirection::Input)));
    EXPECT_TRUE(pin(converter, PinDirection::Input)->isConnected());
    EXPECT_FALSE(has("ACM Wrapper"));
    ASSERT_TRUE(graph_->run());
    EXPECT_TRUE(pumpUntil(*platform_, [&] { return ends_ > 0; }, 10000));
}

TEST_F(NativeGraphTest, SystemSourceAndRenderBuildAPlayableChain) {
    for (const char* file : {"tone.wav", "tone.flac", "tone.ogg", "tone.m4a"}) {
        SCOPED_TRACE(file);
        platform::GraphPtr graph;
        platform_->createGraph(graph);
        int ends = 0;
        graph->setEventHandler([&](GraphEvent e) { ends += e == GraphEvent::EndOfStream; });
        FilterPtr source;
        ASSERT_TRUE(graph->addSourceFilter(mediaPath(file), source));
        EXPECT_EQ(source->name(), mediaPath(file));
        const auto s = pin(source, PinDirection::Output)->render();
        ASSERT_TRUE(s) << s.description;
        ASSERT_TRUE(graph->setCurrentPosition(kToneSeconds - 0.3));
        ASSERT_TRUE(graph->run());
        EXPECT_TRUE(pumpUntil(*platform_, [&] { return ends > 0; }, 10000));
    }
}

TEST_F(NativeGraphTest, FiltersMayGoAtAnyTimeAndTheGraphStopsCleanly) {
    auto source = loaded("File Source (Async.)", mediaPath("tone.wav"));
    auto renderer = device();
    ASSERT_TRUE(pin(source, PinDirection::Output)->connect(pin(renderer, PinDirection::Input)));
    ASSERT_TRUE(graph_->run());
    pumpUntil(*platform_, [] { return false; }, 150);
    FilterPtr parser;
    for (auto& f : graph_->filters())
        if (f->name() == "Wave Parser") parser = f;
    ASSERT_TRUE(parser);
    ASSERT_TRUE(graph_->removeFilter(parser));
    EXPECT_EQ(graph_->state(), platform::GraphState::Stopped);
    EXPECT_FALSE(pin(source, PinDirection::Output)->isConnected());
    EXPECT_FALSE(pin(renderer, PinDirection::Input)->isConnected());
    EXPECT_EQ(graph_->removeFilter(parser).number, hr::NotInGraph);
    // Back in, connected again, and the graph dropped while it plays.
    ASSERT_TRUE(graph_->addFilter(parser, "Wave Parser"));
    ASSERT_TRUE(pin(source, PinDirection::Output)->connectDirect(pin(parser, PinDirection::Input)));
    ASSERT_TRUE(pin(parser, PinDirection::Output)->connectDirect(pin(renderer, PinDirection::Input)));
    ASSERT_TRUE(graph_->run());
    pumpUntil(*platform_, [] { return false; }, 150);
    graph_.reset();
    pumpUntil(*platform_, [] { return false; }, 100);
    EXPECT_EQ(ends_, 0) << "a graph that is gone reports nothing";
}

TEST_F(NativeGraphTest, NamesInTheGraphStayUniqueAndReadersReportTheirOwnName) {
    create("Halden Sample Grabber");
    create("Halden Sample Grabber");
    EXPECT_TRUE(has("Halden Sample Grabber"));
    EXPECT_TRUE(has("Halden Sample Grabber 0001"));
    EXPECT_EQ(create("WM ASF READER")->name(), "WM ASF Reader");
    platform::GraphPtr other;
    platform_->createGraph(other);
    auto grabber = graph_->filters().front();
    EXPECT_FALSE(other->addFilter(grabber, "x")) << "a filter stands in one graph at a time";
}

TEST_F(NativeGraphTest, CatalogueListsEveryFilterAndTheSilentDevices) {
    std::vector<platform::CatalogueEntryPtr> entries;
    ASSERT_TRUE(platform_->catalogue().enumerate(platform::category::LegacyFilters, entries));
    std::vector<std::string> listed;
    for (auto& e : entries) listed.push_back(e->name());
    for (const char* name :
         {"File Source (Async.)", "MPEG-I Stream Splitter", "Wave Parser", "dsf Ogg Demuxer2+",
          "GDCL Mpeg-4 Demultiplexor2", "MPEG Layer-3 Decoder", "WMAudio Decoder DMO",
          "Xiph.Org Vorbis Decoder PLUS", "Microsoft DTV-DVD Audio Decoder", "Native FLAC Decoder",
          "Halden WM ASF Reader", "WM ASF READER", "OggDSFMux2", "ACM Wrapper",
          "Brindle Format Converter", "Halden Sample Grabber", "Brindle Pitch Shifter", "Pipe Sender",
          "Sondrel 1-2", "Sondrel 3-4", "Sondrel 5-6", "Sondrel 7-8"})
        EXPECT_NE(std::find(listed.begin(), listed.end(), name), listed.end()) << name;

    ASSERT_TRUE(platform_->catalogue().enumerate(platform::category::AudioRenderers, entries));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0]->name(), kDefaultDeviceName);
    EXPECT_EQ(entries[1]->name(), kDummyDeviceName);
    EXPECT_EQ(entries[1]->numSpeakers(), 2);
    ASSERT_TRUE(platform_->catalogue().enumerate(platform::category::VideoInputDevices, entries));
    EXPECT_TRUE(entries.empty());
}

TEST_F(NativeGraphTest, PipeSenderWritesThePcmToItsPipeAndCanMuteDownstream) {
    auto source = loaded("File Source (Async.)", mediaPath("tone.wav"));
    auto parser = create("Wave Parser");
    auto sender = create("Pipe Sender");
    auto grabber = create("Halden Sample Grabber");
    auto renderer = device();
    ASSERT_TRUE(pin(source, PinDirection::Output)->connectDirect(pin(parser, PinDirection::Input)));
    ASSERT_TRUE(pin(parser, PinDirection::Output)->connectDirect(pin(sender, PinDirection::Input)));
    ASSERT_TRUE(pin(sender, PinDirection::Output)->connectDirect(pin(grabber, PinDirection::Input)));
    ASSERT_TRUE(pin(grabber, PinDirection::Output)->connectDirect(pin(renderer, PinDirection::Input)));
    ASSERT_TRUE(sender->pipeSender());
    const std::string pipe = sender->pipeSender()->pipePath();
    ASSERT_TRUE(std::filesystem::is_fifo(pipe));
    ASSERT_TRUE(sender->pipeSender()->setDownstreamMute(true));

    const std::string captured = workDir() + "/pipe-capture.raw";
    std::filesystem::remove(captured);
    pid_t reader = ::fork();
    if (reader == 0) {
        ::execlp("timeout", "timeout", "10", "sh", "-c", ("cat " + pipe + " > " + captured).c_str(), (char*)nullptr);
        ::_exit(127);
    }
    pumpUntil(*platform_, [] { return false; }, 300); // the reader opens the pipe
    platform::GraphHelperPtr helper;
    ASSERT_TRUE(platform_->createGraphHelper(platform::GraphHelperKind::Helper, helper));
    HelperRecorder events;
    helper->setEvents(&events);
    helper->setCurrentGraph(graph_);
    ASSERT_TRUE(helper->run());
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return ends_ > 0; }, 10000));
    EXPECT_GT(events.ticks, 0);
    EXPECT_EQ(events.loudest, 0) << "a muted pipe sender sends silence downstream";
    ::kill(reader, SIGTERM);
    ::waitpid(reader, nullptr, 0);
    const auto bytes = std::filesystem::file_size(captured);
    EXPECT_GT(bytes, 44100u * 4u) << "more than a second of 16-bit stereo reached the pipe";
}

} // namespace
} // namespace corvid::native::test
