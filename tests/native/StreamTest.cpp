// The network stream source against a small ICY server on 127.0.0.1 run by the test: open,
// buffering reports, metadata, playback to the end, and the failures (refused, not found,
// cancelled while the server says nothing).

#include "NativeTestSupport.h"

#include "platform/native/Catalogue.h"


namespace corvid::native::test {
namespace {

using platform::FilterPtr;
using platform::PinDirection;
using OpenState = platform::StreamSourceControl::OpenState;
namespace hr = platform::hr;

struct StreamEvents : platform::ShoutcastCallback {
    std::vector<int32_t> buffering;
    std::vector<std::string> titles, urls, metas;
    void StreamBuffering(int32_t percent) override { buffering.push_back(percent); }
    void MetaChangeCallback(const std::string& artistTitle, const std::string& url,
                            const std::string& fullMeta) override {
        titles.push_back(artistTitle);
        urls.push_back(url);
        metas.push_back(fullMeta);
    }
    void OdStreamSeg(double) override {}
};

class NativeStreamTest : public ::testing::Test {
protected:
    void SetUp() override { makePlatform(OutputBackend::Silent); }
    void makePlatform(OutputBackend output) {
        graph_.reset();
        NativeOptions o = testOptions();
        o.output = output;
        platform_ = std::make_unique<NativePlatform>(o);
        ASSERT_TRUE(platform_->createGraph(graph_));
    }
    FilterPtr create(const std::string& name, const std::string& category = platform::category::LegacyFilters) {
        std::vector<platform::CatalogueEntryPtr> entries;
        platform_->catalogue().enumerate(category, entries);
        for (auto& e : entries)
            if (e->name() == name) {
                FilterPtr f;
                EXPECT_TRUE(e->createIn(*graph_, f));
                return f;
            }
        return nullptr;
    }
    // Opens `address` and pumps until the open has an outcome (as the player's wait does).
    OpenState openAndWait(const FilterPtr& source, const std::string& address) {
        auto* control = source->streamSource();
        control->registerCallback(&events_);
        EXPECT_TRUE(control->open(address));
        pumpUntil(*platform_, [&] { return control->openState() != OpenState::Opening; }, 10000);
        return control->openState();
    }

    std::unique_ptr<NativePlatform> platform_;
    platform::GraphPtr graph_;
    StreamEvents events_;
};

TEST_F(NativeStreamTest, AStreamOpensReportsItsBufferingAndTitleAndPlaysToTheSink) {
    if (!soundServerUp()) GTEST_SKIP() << "no private sound server";
    makePlatform(OutputBackend::Auto);
    IcyServer server(IcyServer::Mode::Stream, mediaPath("tone.mp3"));
    auto source = create("_DShowShoutCast");
    ASSERT_TRUE(source && source->streamSource());
    EXPECT_TRUE(source->pins().empty()) << "no output before the stream is open";
    ASSERT_EQ(openAndWait(source, server.address()), OpenState::Open)
        << source->streamSource()->openFailure().description;
    EXPECT_NE(server.request().find("Icy-MetaData: 1"), std::string::npos);
    EXPECT_FALSE(source->streamSource()->canCancel());
    ASSERT_FALSE(events_.buffering.empty());
    EXPECT_EQ(events_.buffering.front(), 0);
    EXPECT_EQ(events_.buffering.back(), 100);

    auto renderer = create(kSinkADescription, platform::category::AudioRenderers);
    auto out = source->pins().front();
    EXPECT_EQ(out->name(), "Audio");
    ASSERT_TRUE(out->connectDirect(renderer->pins().front()));
    int ends = 0;
    graph_->setEventHandler([&](platform::GraphEvent e) { ends += e == platform::GraphEvent::EndOfStream; });
    MonitorRecorder recorder(kSinkA, 2);
    ASSERT_TRUE(graph_->run());
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return ends > 0; }, 15000));
    const auto m = measureTone(recorder.stop(), 2, 0, MonitorRecorder::kRate);
    EXPECT_NEAR(m.frequency, kToneHz, 10);
    EXPECT_NEAR(m.peak, kToneAmplitude, 0.06);

    ASSERT_EQ(events_.titles.size(), 1u) << "the title once; empty blocks say nothing";
    EXPECT_EQ(events_.titles[0], kStreamTitle);
    EXPECT_EQ(events_.urls[0], "http://127.0.0.1/");
    EXPECT_NE(events_.metas[0].find("StreamTitle='"), std::string::npos);
}

TEST_F(NativeStreamTest, AStreamThatRunsDryWhilePlayingBuffersAgainAndSaysSo) {
    IcyServer server(IcyServer::Mode::Stall, mediaPath("tone.mp3"));
    auto source = create("_DShowShoutCast");
    ASSERT_EQ(openAndWait(source, server.address()), OpenState::Open);
    const size_t opened = events_.buffering.size();
    auto renderer = create(kDefaultDeviceName, platform::category::AudioRenderers);
    ASSERT_TRUE(source->pins().front()->connectDirect(renderer->pins().front()));
    int ends = 0;
    graph_->setEventHandler([&](platform::GraphEvent e) { ends += e == platform::GraphEvent::EndOfStream; });
    ASSERT_TRUE(graph_->run());
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return ends > 0; }, 15000));
    ASSERT_GT(events_.buffering.size(), opened + 1) << "a second buffering phase";
    EXPECT_EQ(events_.buffering[opened], 0);
    EXPECT_EQ(events_.buffering.back(), 100);
}

TEST_F(NativeStreamTest, FailuresComeBackAsTheSourcesOwnStatus) {
    {
        IcyServer server(IcyServer::Mode::NotFound, "");
        auto source = create("_DShowShoutCast");
        ASSERT_EQ(openAndWait(source, server.address()), OpenState::Failed);
        EXPECT_EQ(source->streamSource()->openFailure().number, hr::FileNotFound);
        EXPECT_NE(source->streamSource()->openFailure().description.find("404"), std::string::npos);
    }
    {
        int port = 0;
        { // a port that was free a moment ago: nobody listens there
            IcyServer probe(IcyServer::Mode::NotFound, "");
            port = std::stoi(probe.address().substr(std::string("icystream://127.0.0.1:").size()));
        }
        auto source = create("_DShowShoutCast");
        ASSERT_EQ(openAndWait(source, "icystream://127.0.0.1:" + std::to_string(port) + "/x"), OpenState::Failed);
        EXPECT_EQ(source->streamSource()->openFailure().number, hr::CannotConnect);
    }
    auto source = create("_DShowShoutCast");
    EXPECT_EQ(source->streamSource()->open("not an address").number, hr::InvalidArg);
}

TEST_F(NativeStreamTest, AnOpenThatHangsCanBeCancelled) {
    IcyServer server(IcyServer::Mode::Silent, "");
    auto source = create("_DShowShoutCast");
    auto* control = source->streamSource();
    control->registerCallback(&events_);
    ASSERT_TRUE(control->open(server.address()));
    EXPECT_EQ(control->openState(), OpenState::Opening);
    EXPECT_TRUE(control->canCancel());
    pumpUntil(*platform_, [] { return false; }, 200);
    ASSERT_TRUE(control->cancel());
    EXPECT_EQ(control->openState(), OpenState::Failed);
    EXPECT_EQ(control->openFailure().number, hr::Abort);
    EXPECT_FALSE(control->canCancel());
    pumpUntil(*platform_, [] { return false; }, 100);
    EXPECT_EQ(control->openState(), OpenState::Failed) << "late news of the cancelled open is dropped";
    // Removing a source whose open is under way ends it too.
    IcyServer second(IcyServer::Mode::Silent, "");
    auto another = create("_DShowShoutCast");
    ASSERT_TRUE(another->streamSource()->open(second.address()));
    ASSERT_TRUE(graph_->removeFilter(another));
    another.reset();
}

} // namespace
} // namespace corvid::native::test
