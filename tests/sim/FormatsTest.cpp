// The format chains on the simulated standard machine, one chain at a time: each test loads a
// source into a stocked graph as the dispatcher would, runs one chain and looks at what stands
// from source to renderer, at LastError, at the log and at the pending error.

#include "platform/sim/SimPlatform.h"
#include <corvid/AutomationError.h>
#include "support/TimerClass1.h"
#include "tests/sim/PlayerInternals.h"
#include "tests/sim/RecordingEvents.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace corvid {
namespace {

using platform::FilterPtr;
using platform::PinPtr;
using platform::Status;
using sim::FaultPoint;
using sim::SimFile;
using sim::SimPlatform;

constexpr int32_t kNoTypes = platform::hr::NoAcceptableTypes;

SimFile media(const char* type, double seconds) {
    SimFile file;
    file.mediaType = type;
    file.durationSeconds = seconds;
    return file;
}

class FormatsTest : public ::testing::Test {
protected:
    void SetUp() override {
        sim = SimPlatform::standardMachine();
        sim->addFile("/m/a.mp3", media("stream/mpeg-audio", 180));
        sim->addFile("/m/B.FLAC", media("stream/flac", 120));
        sim->addFile("/m/c.wav", media("stream/wave;pcm16", 60));
        sim->addFile("/m/f.wav", media("stream/wave;float32", 60));
        sim->addFile("/m/d.wma", media("stream/asf;wma", 200));
        sim->addFile("/m/e.ogg", media("stream/ogg;vorbis", 90));
        sim->addFile("/m/g.m4a", media("stream/mp4;aac", 240));
        sim->addFile("/m/notwave.wav", media("stream/mpeg-audio", 30));
        sim->addFile("/m/notmpeg.mp3", media("stream/wave;pcm16", 30));
    }

    // A player with its graph stocked and the default device in it, as before every load.
    void makePlayer() {
        player = std::make_unique<Player>(*sim);
        in = std::make_unique<PlayerInternals>(*player);
        player->setEvents(&events);
        bool on = true;
        player->put_LoggingEnabled(on);
        bool prefer = false; // plain file sources unless a test asks for a reader
        player->put_HaldenSourcePrefer(prefer);
        player->Init();
        player->CreateNewGraph(false);
        ASSERT_TRUE(in->addSoundCard(""));
        events.clear();
    }
    PinPtr load(const std::string& file, bool mustUseAsfReader = false) {
        EXPECT_TRUE(in->addSourceFilter(file, mustUseAsfReader)) << file; // may set the flag
        in->clearErr();
        events.clear();
        return in->mainSourcePin();
    }

    // The dispatcher's view of the standing filters.
    struct Args {
        PinPtr source, splitterIn, decoderIn, decoderOut, sgIn, sgOut, renderIn;
        FilterPtr splitter, grabber;
    };
    Args args() {
        Args a;
        PinPtr unused;
        a.source = in->mainSourcePin();
        a.splitter = in->mpegSplitter();
        PlayerInternals::getPins(a.splitterIn, unused, a.splitter);
        PlayerInternals::getPins(a.decoderIn, a.decoderOut, in->mpegDecoder());
        a.grabber = in->sampleGrabber();
        PlayerInternals::getPins(a.sgIn, a.sgOut, a.grabber);
        a.renderIn = in->soundCardInPin();
        return a;
    }
    bool mp3(Args& a, const std::string& file, bool usingWM = false) {
        return in->connectMp3Filters(a.source, a.splitterIn, a.splitter, a.decoderIn, a.decoderOut,
                                     a.sgIn, a.sgOut, a.renderIn, a.grabber, usingWM, file);
    }
    bool wave(Args& a, const std::string& file) {
        PinPtr parserIn, unused;
        FilterPtr parser = in->waveParser();
        PlayerInternals::getPins(parserIn, unused, parser);
        return in->connectWaveFilters(a.source, parserIn, parser, a.sgIn, a.sgOut, a.renderIn,
                                      a.grabber, file);
    }

    std::shared_ptr<sim::SimGraph> graph() {
        return std::dynamic_pointer_cast<sim::SimGraph>(player->mainGraph());
    }
    std::string renderer() { return in->soundCardInPin()->filter()->name(); }
    int count(const std::string& name) {
        auto filters = player->mainGraph()->filters();
        return static_cast<int>(std::count_if(filters.begin(), filters.end(),
                                              [&](const FilterPtr& f) { return f->name() == name; }));
    }
    // Whether an output of a filter named `up` feeds an input of a filter named `down`.
    bool feeds(const std::string& up, const std::string& down) {
        for (const auto& f : player->mainGraph()->filters()) {
            if (f->name() != up) continue;
            for (const auto& pin : f->pins())
                if (pin->direction() == platform::PinDirection::Output)
                    if (auto peer = pin->connectedTo(); peer && peer->filter()->name() == down)
                        return true;
        }
        return false;
    }
    // The chain that stands upstream of the renderer, as "A > B > renderer".
    std::string chainToRenderer() {
        std::string chain;
        PinPtr pin = in->soundCardInPin();
        for (int step = 0; step < 16 && pin && pin->connectedTo(); ++step) {
            auto up = pin->connectedTo()->filter();
            chain = up->name() + " > " + chain;
            PinPtr upIn, upOut;
            PlayerInternals::getPins(upIn, upOut, up);
            pin = upIn;
        }
        return chain + renderer();
    }
    std::string lastError() { return player->get_LastError(); }

    std::unique_ptr<SimPlatform> sim;
    testing::RecordingEvents events;
    std::unique_ptr<Player> player;
    std::unique_ptr<PlayerInternals> in;
};

// ---- GetPins ---------------------------------------------------------------------------------

TEST_F(FormatsTest, GetPinsKeepsTheLastPinOfEachDirection) {
    sim::FilterSpec twoWay;
    twoWay.displayName = "Two Way";
    twoWay.pins = {sim::PinSpec::input("In1", {"*"}), sim::PinSpec::output("Out1", {{"*", "*"}}),
                   sim::PinSpec::input("In2", {"*"}), sim::PinSpec::output("Out2", {{"*", "*"}})};
    sim->registerFilter(twoWay);
    makePlayer();
    PinPtr pinIn, pinOut;
    PlayerInternals::getPins(pinIn, pinOut, in->addFilterByName("Two Way"));
    ASSERT_TRUE(pinIn && pinOut);
    EXPECT_EQ(pinIn->name(), "In2");
    EXPECT_EQ(pinOut->name(), "Out2");
    PlayerInternals::getPins(pinIn, pinOut, nullptr);
    EXPECT_FALSE(pinIn || pinOut);
}

// ---- MP3 -------------------------------------------------------------------------------------

TEST_F(FormatsTest, Mp3SourcesThatDecodeFeedTheGrabberDirectly) {
    makePlayer();
    bool prefer = true;
    player->put_HaldenSourcePrefer(prefer);
    load("/m/a.mp3"); // our own reader decodes to PCM
    ASSERT_TRUE(in->usingHaldenSource());
    Args a = args();
    ASSERT_TRUE(mp3(a, "/m/a.mp3"));
    EXPECT_EQ(chainToRenderer(), "Halden WM ASF Reader > Halden Sample Grabber > " + renderer());
    EXPECT_TRUE(events.logged("ConnectMp3Filters: Source Pin Connected OK to the SGInPin"));

    // A name ending in FLAC, in capitals, takes the same route from the FLAC source.
    makePlayer();
    load("/m/B.FLAC");
    a = args();
    ASSERT_TRUE(mp3(a, "/m/B.FLAC"));
    EXPECT_EQ(chainToRenderer(), "Native FLAC Decoder > Halden Sample Grabber > " + renderer());
    EXPECT_FALSE(in->mpegSplitter()->pins().front()->isConnected());
}

TEST_F(FormatsTest, Mp3WithoutSourceStopsBeforeTouchingTheGraph) {
    makePlayer();
    Args a = args();
    const auto grabber = in->sampleGrabber();
    EXPECT_FALSE(mp3(a, "/m/missing.mp3"));
    EXPECT_TRUE(events.logged("Connectmp3Filters: cannot add source filter"));
    EXPECT_TRUE(events.logged("Connectmp3Filters: no source pin, cannot continue"));
    EXPECT_EQ(lastError(), "Connectmp3Filters: no source pin, cannot continue");
    EXPECT_EQ(in->sampleGrabber(), grabber);
    EXPECT_EQ(count("Halden Sample Grabber"), 1);
}

TEST_F(FormatsTest, Mp3SplitterWithoutOutputCleansUpAndKeepsTheReason) {
    makePlayer();
    load("/m/notmpeg.mp3"); // a WAVE file under an MPEG name: the splitter shows no output
    Args a = args();
    EXPECT_FALSE(mp3(a, "/m/notmpeg.mp3"));
    EXPECT_TRUE(events.logged("Connectmp3Filters, for: /m/notmpeg.mp3 Source is: File Source (Async.)"));
    EXPECT_EQ(in->errNumber(), 319558);
    EXPECT_EQ(in->errDescription(), "No Mpeg SplitterOutPIn");
    EXPECT_EQ(in->sourceFilter(), nullptr);
    EXPECT_EQ(count("File Source (Async.)"), 0);
    EXPECT_EQ(a.source, nullptr);
    ASSERT_TRUE(a.sgIn && a.sgOut);
    EXPECT_EQ(a.sgIn->filter(), in->sampleGrabber());
}

TEST_F(FormatsTest, Mp3FallsBackToItsOwnAcmWrapperAndReusesIt) {
    makePlayer();
    load("/m/a.mp3");
    sim::Fault fault; // the splitter will not feed the decoder, whatever else it feeds
    fault.point = FaultPoint::ConnectDirect;
    fault.subject = "MPEG-I Stream Splitter";
    fault.object = "MPEG Layer-3 Decoder";
    sim->inject(fault);

    Args a = args();
    ASSERT_TRUE(mp3(a, "/m/a.mp3")) << lastError();
    EXPECT_TRUE(events.logged("Connectmp3Filters: could not connect splitter out pin directly, trying all "
                              "sorts of things to make it sensibly connect..."));
    ASSERT_TRUE(in->chainAcmWrapper());
    EXPECT_TRUE(feeds("ACM Wrapper", "Halden Sample Grabber"));
    EXPECT_TRUE(feeds("Halden Sample Grabber", renderer()));
    EXPECT_EQ(count("ACM Wrapper"), 2); // the graph's own and the chain's
    EXPECT_EQ(a.decoderOut->filter(), in->chainAcmWrapper());
    EXPECT_EQ(in->sampleGrabber(), a.grabber);

    const auto chainAcm = in->chainAcmWrapper();
    Args again = args();
    again.source = a.source;
    ASSERT_TRUE(mp3(again, "/m/a.mp3")) << lastError();
    EXPECT_EQ(in->chainAcmWrapper(), chainAcm);
    EXPECT_EQ(count("ACM Wrapper"), 2);
}

TEST_F(FormatsTest, Mp3WindowsMediaSourceIsRebuiltThroughTheAcmWrapper) {
    makePlayer();
    bool banned = false;
    player->put_ASFReaderBanned(banned);
    load("/m/a.mp3", true); // the reader hands out MPEG audio, which the card does not take
    Args a = args();
    ASSERT_TRUE(mp3(a, "/m/a.mp3", true)) << lastError();
    EXPECT_TRUE(events.logged("For /m/a.mp3:UsingWM or UsingHalden. Test connecting source pin (possibly "
                              "via ACM) to render"));
    EXPECT_TRUE(events.logged("For /m/a.mp3:UsingWM or UsingHalden. OK, connected source pin (possibly "
                              "via acm) to render"));
    EXPECT_TRUE(feeds("WM ASF Reader", "ACM Wrapper"));
    EXPECT_TRUE(feeds("ACM Wrapper", "Halden Sample Grabber"));
    EXPECT_TRUE(feeds("Halden Sample Grabber", renderer()));
}

TEST_F(FormatsTest, Mp3WindowsMediaSourceWithNoRouteCleansUp) {
    makePlayer();
    bool banned = false;
    player->put_ASFReaderBanned(banned);
    load("/m/a.mp3", true);
    sim->failAlways(FaultPoint::Connect, "WM ASF Reader", Status::failure(platform::hr::CannotConnect, "no"));
    Args a = args();
    EXPECT_FALSE(mp3(a, "/m/a.mp3", true));
    EXPECT_TRUE(events.logged("ConnectMp3Filters: For /m/a.mp3:UsingWM or UsingHalden. Failed to connect "
                              "source pin (possibly via acm) to render"));
    EXPECT_EQ(count("WM ASF Reader"), 0);
    EXPECT_EQ(count("Halden Sample Grabber"), 1); // re-created by the clean-up
    ASSERT_TRUE(a.sgIn);
    EXPECT_EQ(a.sgIn->filter(), in->sampleGrabber());

    // The same, when the grabber cannot be made again.
    makePlayer();
    load("/m/a.mp3", true);
    sim->failAlways(FaultPoint::CreateFilter, "Halden Sample Grabber", Status::failure(platform::hr::Fail, "x"));
    a = args();
    EXPECT_FALSE(mp3(a, "/m/a.mp3", true));
    EXPECT_TRUE(events.logged("CRITICAL: ConnectMp-3Filters cannot re-create Sample Grabber!"));
    EXPECT_EQ(count("Halden Sample Grabber"), 0);
}

TEST_F(FormatsTest, Mp3GrabberThatCannotReachTheRendererLeavesTheGraph) {
    makePlayer();
    load("/m/a.mp3");
    sim->failAlways(FaultPoint::ConnectDirect, "Halden Sample Grabber", Status::failure(kNoTypes, "direct"));
    sim->failAlways(FaultPoint::Connect, "Halden Sample Grabber", Status::failure(kNoTypes, "smart"));
    Args a = args();
    EXPECT_FALSE(mp3(a, "/m/a.mp3"));
    const std::string reason = std::to_string(kNoTypes) + " smart";
    EXPECT_EQ(lastError(), "Connectmp3Filters: cannot connect sgoutpin to renderinpin " + reason);
    EXPECT_EQ(in->errNumber(), 319558);
    EXPECT_EQ(in->errDescription(), "ConnectMp3Filters: cannot connect sgoutpin to renderinpin " + reason);
    EXPECT_EQ(count("File Source (Async.)"), 1);
    EXPECT_TRUE(feeds("MPEG Layer-3 Decoder", "Halden Sample Grabber"));
}

// ---- WAVE ------------------------------------------------------------------------------------

TEST_F(FormatsTest, WaveInAnotherFormatGoesThroughTheConverter) {
    makePlayer();
    load("/m/f.wav");
    Args a = args();
    const auto oldGrabber = a.grabber;
    ASSERT_TRUE(wave(a, "/m/f.wav"));
    EXPECT_EQ(chainToRenderer(), "File Source (Async.) > Wave Parser > Brindle Format Converter > "
                                 "Halden Sample Grabber > " + renderer());
    EXPECT_TRUE(events.logged("ConnectWaveFilters:  Could not connect direct to pRenderPin: " + renderer()));
    EXPECT_TRUE(events.logged("ConnectWaveFilters:  Removing SG"));
    EXPECT_NE(in->sampleGrabber(), oldGrabber);
    EXPECT_EQ(in->sampleGrabber(), a.grabber);
    EXPECT_EQ(count("Halden Sample Grabber"), 1);

    // A converter already in the graph is used, not doubled.
    makePlayer();
    in->addFilterByName("Brindle Format Converter");
    load("/m/f.wav");
    a = args();
    ASSERT_TRUE(wave(a, "/m/f.wav"));
    EXPECT_EQ(count("Brindle Format Converter"), 1);
}

TEST_F(FormatsTest, WaveParserRejectingTheFileFailsWithTheConnectionError) {
    makePlayer();
    load("/m/notwave.wav");
    Args a = args();
    EXPECT_FALSE(wave(a, "/m/notwave.wav"));
    const auto& log = events.log;
    auto at = std::find(log.begin(), log.end(),
                        "ConnectWaveFilters:  Could not connect SourcePin  to WaveSplitterPin. Not a "
                        "recognised wav file.");
    ASSERT_NE(at, log.end());
    ASSERT_GE(log.end() - at, 3);
    EXPECT_EQ(at[1], "ConnectWaveFilters Failed, with " + std::to_string(kNoTypes) +
                         " There is no common media type between these pins.");
    EXPECT_NE(at[2].find("FILTER NAME: Wave Parser"), std::string::npos); // the graph listing
    EXPECT_EQ(count("File Source (Async.)"), 0);
    EXPECT_EQ(a.source, nullptr);
    EXPECT_EQ(lastError(), "");
}

TEST_F(FormatsTest, WaveParserWithoutOutputFailsWithNoOperationError) {
    makePlayer();
    load("/m/c.wav");
    sim::Fault noOutput;
    noOutput.point = FaultPoint::PinAppears;
    noOutput.subject = "Wave Parser";
    sim->inject(noOutput);
    Args a = args();
    EXPECT_FALSE(wave(a, "/m/c.wav"));
    EXPECT_TRUE(events.logged("ConnectWaveFilters:  No Wave Splitter Out Pin"));
    EXPECT_TRUE(events.logged("ConnectWaveFilters Failed, with 0 "));
    EXPECT_EQ(count("File Source (Async.)"), 0);
}

TEST_F(FormatsTest, WaveFailingAfterRemovingTheGrabberLeavesNone) {
    makePlayer();
    load("/m/f.wav");
    sim->failAlways(FaultPoint::Connect, "Wave Parser", Status::failure(platform::hr::CannotConnect, "no"));
    Args a = args();
    EXPECT_FALSE(wave(a, "/m/f.wav"));
    EXPECT_TRUE(events.logged("ConnectWaveFilters:  Could not Connect WaveSplitter Out Pin, even indirectly, "
                              "to pRenderInPin " + renderer() + std::to_string(platform::hr::CannotConnect) +
                              " no"));
    EXPECT_EQ(count("Halden Sample Grabber"), 0);
    EXPECT_EQ(in->sampleGrabber(), nullptr);
    EXPECT_EQ(count("File Source (Async.)"), 0);
}

// ---- WMA -------------------------------------------------------------------------------------

class WmaTest : public FormatsTest {
protected:
    void SetUp() override {
        FormatsTest::SetUp();
        makePlayer();
        bool banned = false;
        player->put_ASFReaderBanned(banned);
    }
    bool wma(Args& a, const std::string& file) {
        return in->connectWMAFilters(a.source, a.sgIn, a.sgOut, a.renderIn, file);
    }
};

TEST_F(WmaTest, SourceTheDecoderRefusesIsRemoved) {
    load("/m/a.mp3", true); // MPEG audio out of the reader
    Args a = args();
    EXPECT_FALSE(wma(a, "/m/a.mp3"));
    const std::string tail = "\r\nConnectWMAFilters: Cannot connect Source Pin directly to DMOInPin";
    ASSERT_GE(lastError().size(), tail.size());
    EXPECT_EQ(lastError().substr(lastError().size() - tail.size()), tail);
    EXPECT_TRUE(events.logged(lastError())); // the whole of LastError
    EXPECT_EQ(count("WM ASF Reader"), 0);
    EXPECT_EQ(count("Halden Sample Grabber"), 1);
}

TEST_F(WmaTest, CardRefusingTheDecoderDirectlyIsReachedThroughAConverter) {
    sim->filterSpec("WMAudio Decoder DMO")->pins[1].produces = {{"*", "audio/pcm-float"}};
    makePlayer();
    bool banned = false;
    player->put_ASFReaderBanned(banned);
    load("/m/d.wma");
    Args a = args();
    ASSERT_TRUE(wma(a, "/m/d.wma"));
    EXPECT_NE(lastError().find("ConnectWMAFilters: Cannot connect Grabber out Pin directly to RenderInPin: "),
              std::string::npos);
    EXPECT_TRUE(feeds("Halden Sample Grabber", "Brindle Format Converter"));
    EXPECT_TRUE(feeds("Brindle Format Converter", renderer()));
}

TEST_F(WmaTest, WithoutTheDecoderTheSourceStays) {
    load("/m/d.wma");
    in->wmaDecoder().reset();
    Args a = args();
    EXPECT_FALSE(wma(a, "/m/d.wma"));
    EXPECT_TRUE(events.logged("Failed to get DMO Pins"));
    EXPECT_EQ(count("WM ASF Reader"), 1);
    EXPECT_TRUE(a.source);
}

// ---- Ogg -------------------------------------------------------------------------------------

class OggTest : public FormatsTest {
protected:
    bool ogg(Args& a, const std::string& file) {
        return in->connectOggFilters(a.source, a.sgIn, a.sgOut, a.renderIn, file);
    }
};

TEST_F(OggTest, OnlyNamesEndingInOggOrLacPass) {
    makePlayer();
    load("/m/e.ogg");
    for (const char* name : {"/m/E.OGG", "/m/x.flac", "/m/x.zlac"}) {
        in->addSourceFilter("/m/e.ogg"); // takes the last item's source out first
        Args a = args();
        EXPECT_TRUE(ogg(a, name)) << name;
    }
    Args a = args();
    events.clear();
    EXPECT_FALSE(ogg(a, "/m/x.oga"));
    EXPECT_TRUE(events.logged("ConnectOggFilters: Path does not end in .ogg, returning false"));
    bool off = false;
    player->put_LoggingEnabled(off);
    events.clear();
    EXPECT_FALSE(ogg(a, "/m/x.oga"));
    EXPECT_TRUE(events.log.empty());
}

TEST_F(OggTest, FiltersStandUntilForcedAnew) {
    makePlayer();
    ASSERT_TRUE(in->addVorbisFilters(true));
    const FilterPtr decoder = in->vorbisDecoder();
    EXPECT_TRUE(in->addVorbisFilters(false));
    EXPECT_EQ(in->vorbisDecoder(), decoder);
    EXPECT_TRUE(in->addVorbisFilters(true));
    EXPECT_NE(in->vorbisDecoder(), decoder);
    EXPECT_EQ(count("Xiph.Org Vorbis Decoder PLUS"), 1);
    EXPECT_EQ(count("dsf Ogg Demuxer2+"), 1);
}

TEST_F(OggTest, MissingDemuxerTakesTheDecoderOutAgain) {
    sim->unregisterFilter("dsf Ogg Demuxer2+");
    makePlayer();
    EXPECT_FALSE(in->addVorbisFilters(true));
    EXPECT_TRUE(events.logged("WARNING: Vorbis Demuxer is not found"));
    EXPECT_EQ(count("Xiph.Org Vorbis Decoder PLUS"), 0);

    load("/m/a.mp3"); // without the demuxer no Ogg source loads either
    Args a = args();
    EXPECT_FALSE(ogg(a, "/m/e.ogg"));
    EXPECT_EQ(count("Xiph.Org Vorbis Decoder PLUS"), 0);
    EXPECT_EQ(count("File Source (Async.)"), 1);
}

TEST_F(OggTest, CapabilityAsksTheCatalogueAndTriesTheFiltersOnlyWhenRefreshed) {
    makePlayer();
    const int graphs = sim->graphsCreated();
    EXPECT_TRUE(player->IsOggCapable());
    EXPECT_EQ(sim->graphsCreated(), graphs);
    sim->failAlways(FaultPoint::CreateFilter, "dsf Ogg Demuxer2+", Status::failure(platform::hr::Fail, "x"));
    EXPECT_TRUE(player->IsOggCapable());
    EXPECT_FALSE(player->IsOggCapable(true));
}

// ---- MP4 -------------------------------------------------------------------------------------

class Mp4Test : public FormatsTest {
protected:
    bool mp4(Args& a, const std::string& file) {
        return in->connectMp4Filters(a.source, a.sgIn, a.sgOut, a.renderIn, a.grabber, file);
    }
};

TEST_F(Mp4Test, ConnectsAndReportsEachStep) {
    makePlayer();
    load("/m/g.m4a");
    Args a = args();
    ASSERT_TRUE(mp4(a, "/m/G.M4A"));
    EXPECT_EQ(chainToRenderer(), "File Source (Async.) > GDCL Mpeg-4 Demultiplexor2 > Microsoft DTV-DVD "
                                 "Audio Decoder > Halden Sample Grabber > " + renderer());
    const std::vector<std::string> steps = {
        "ConnectMp4Filters: Started. Adding new mp4 filters...",
        "Connectmp4Filters: connecting source to parser...",
        "Connectmp4Filters: connecting decoder input...",
        "Connectmp4Filters: connecting decoder output...",
        "Connectmp4Filters: connecting Sample Grabber out pin to Render in pin...",
        "Connectmp4filters: Success!"};
    std::vector<std::string> seen;
    for (const auto& l : events.log)
        if (std::find(steps.begin(), steps.end(), l) != steps.end()) seen.push_back(l);
    EXPECT_EQ(seen, steps);
}

TEST_F(Mp4Test, OtherEndingsAreLeftSilently) {
    makePlayer();
    load("/m/g.m4a");
    Args a = args();
    EXPECT_FALSE(mp4(a, "/m/g.mp4"));
    EXPECT_TRUE(events.log.empty());
    EXPECT_EQ(lastError(), "");
    EXPECT_EQ(count("GDCL Mpeg-4 Demultiplexor2"), 0);
}

TEST_F(Mp4Test, MissingDemultiplexerIsTheWholeLastError) {
    sim->unregisterFilter("GDCL Mpeg-4 Demultiplexor2");
    makePlayer();
    load("/m/a.mp3");
    in->lastError() = "what an earlier chain wrote";
    Args a = args();
    EXPECT_FALSE(mp4(a, "/m/g.m4a"));
    EXPECT_EQ(lastError(), "Unable to add mp4 filters.");
    EXPECT_TRUE(events.logged("Unable to add mp4 filters."));
}

TEST_F(Mp4Test, CapabilityReadsTheCatalogueWhichARefreshRenews) {
    const sim::FilterSpec demultiplexer = *sim->filterSpec("GDCL Mpeg-4 Demultiplexor2");
    sim->unregisterFilter("GDCL Mpeg-4 Demultiplexor2");
    makePlayer();
    EXPECT_FALSE(player->IsMp4Capable());
    sim->registerFilter(demultiplexer);
    EXPECT_FALSE(player->IsMp4Capable());
    const int graphs = sim->graphsCreated();
    EXPECT_TRUE(player->IsMp4Capable(true));
    EXPECT_EQ(sim->graphsCreated(), graphs); // nothing is made to find out
}

TEST_F(Mp4Test, DecoderInputRetriedIntelligentlyAndSecondRunReplacesTheFilters) {
    makePlayer();
    load("/m/g.m4a");
    sim::Fault fault;
    fault.point = FaultPoint::ConnectDirect;
    fault.subject = "GDCL Mpeg-4 Demultiplexor2";
    fault.object = "Microsoft DTV-DVD Audio Decoder";
    fault.times = 1;
    sim->inject(fault);
    Args a = args();
    ASSERT_TRUE(mp4(a, "/m/g.m4a"));
    EXPECT_TRUE(events.logged("Connectmp4Filters: parser out pin would not connect directly to decoder, "
                              "trying intelligent connect..."));
    const auto firstParser = in->mp4Parser();

    // A second run takes the filters out and makes them anew.
    ASSERT_TRUE(a.sgOut->disconnect().ok());
    ASSERT_TRUE(mp4(a, "/m/g.m4a"));
    EXPECT_NE(in->mp4Parser(), firstParser);
    EXPECT_EQ(count("GDCL Mpeg-4 Demultiplexor2"), 1);
    EXPECT_EQ(count("Microsoft DTV-DVD Audio Decoder"), 1);
}

// ---- Streams ---------------------------------------------------------------------------------

class StreamTest : public FormatsTest {
protected:
    bool stream(Args& a, const std::string& file) {
        return in->connectStreamFilters(a.source, a.decoderIn, a.decoderOut, a.sgIn, a.sgOut, a.renderIn,
                                        a.grabber, file);
    }
    void addStream(const std::string& address, double duration = sim::SimStream::LiveDuration) {
        sim::SimStream s;
        s.durationSeconds = duration;
        sim->addStream(address, s);
    }
};

TEST_F(StreamTest, IcyStreamFeedsTheCardItselfAndLeavesTheGrabberAside) {
    addStream("ICYSTREAM://radio/live");
    makePlayer();
    load("ICYSTREAM://radio/live");
    Args a = args();
    const auto oldGrabber = a.grabber;
    ASSERT_TRUE(stream(a, "ICYSTREAM://radio/live"));
    EXPECT_EQ(chainToRenderer(), "_DShowShoutCast > " + renderer());
    EXPECT_EQ(a.decoderOut, a.source);
    EXPECT_EQ(count("Halden Sample Grabber"), 1);
    EXPECT_NE(in->sampleGrabber(), oldGrabber);
    EXPECT_FALSE(a.sgIn->isConnected() || a.sgOut->isConnected());
}

TEST_F(StreamTest, SourceTheDecoderRefusesGetsANewWmaDecoder) {
    makePlayer();
    bool banned = false;
    player->put_ASFReaderBanned(banned);
    load("/m/d.wma"); // Windows Media audio, offered to the MP3 decoder's input
    Args a = args();
    ASSERT_TRUE(stream(a, "http://radio/d.wma"));
    EXPECT_EQ(count("WMAudio Decoder DMO"), 2);
    EXPECT_EQ(chainToRenderer(), "WM ASF Reader > WMAudio Decoder DMO > " + renderer());
}

TEST_F(StreamTest, FailureKeepsAGrabberInTheGraph) {
    addStream("icystream://radio/live");
    makePlayer();
    load("icystream://radio/live");
    sim->failAlways(FaultPoint::RemoveFilter, "Halden Sample Grabber", Status::failure(platform::hr::Fail, "x"));
    Args a = args();
    EXPECT_FALSE(stream(a, "icystream://radio/live"));
    EXPECT_EQ(count("Halden Sample Grabber"), 2); // the one that would not go, and a new one
    EXPECT_EQ(a.sgIn->filter(), in->sampleGrabber());

    sim->failAlways(FaultPoint::CreateFilter, "Halden Sample Grabber", Status::failure(platform::hr::Fail, "x"));
    EXPECT_FALSE(stream(a, "icystream://radio/live"));
    EXPECT_TRUE(events.logged("CRITICAL: ConnectStreamFilters: cannot create Sample Grabber"));
}

TEST_F(StreamTest, BufferingPhasesRaiseEventsAndDriveTheStopwatch) {
    makePlayer();
    for (int p : {50, 80, 100}) player->IShoutcastCallback_StreamBuffering(p);
    EXPECT_EQ(events.count("StreamBufferingStarted"), 1);
    EXPECT_EQ(events.count("StreamBuffering: "), 3);
    EXPECT_EQ(events.all.back(), "StreamBuffering: 100");
    EXPECT_EQ(player->get_StreamBufferingPercent(), -1);
    EXPECT_EQ(in->bufferingRestarts(), 0);

    events.clear();
    player->IShoutcastCallback_StreamBuffering(50);
    player->IShoutcastCallback_StreamBuffering(-1);
    EXPECT_EQ(events.all, (std::vector<std::string>{"StreamBufferingStarted", "StreamBuffering: 50",
                                                    "StreamBuffering: -1"}));
    ASSERT_TRUE(in->playTimeStopwatch());
    EXPECT_TRUE(in->playTimeStopwatch()->running());
    EXPECT_EQ(in->bufferingRestarts(), 1);

    // A report of 0 while idle starts a phase's clock without announcing it.
    events.clear();
    sim->setSecondsSinceMidnight(3600.5);
    player->IShoutcastCallback_StreamBuffering(0);
    EXPECT_EQ(events.count("StreamBufferingStarted"), 0);
    EXPECT_DOUBLE_EQ(in->bufferingStart(), 3600.5);
    EXPECT_EQ(player->get_StreamBufferingPercent(), 0);
}

TEST_F(StreamTest, BufferingOverflowsReachACallingHostButNotTheStreamClient) {
    makePlayer();
    EXPECT_THROW(player->IShoutcastCallback_StreamBuffering(40000), AutomationError);
    in->bufferingPercent() = 50;
    in->bufferingRestarts() = 32767;
    try {
        player->IShoutcastCallback_StreamBuffering(-1);
        FAIL() << "no overflow";
    } catch (const AutomationError& e) {
        EXPECT_EQ(e.number(), 6);
    }
}

TEST_F(StreamTest, CallbacksFromTheStreamSourceBecomeEvents) {
    addStream("icystream://radio/live");
    makePlayer();
    load("icystream://radio/live");
    auto source = sim->lastStreamSource();
    ASSERT_TRUE(source);
    EXPECT_TRUE(source->fireMetaChange("Artist - Title", "http://radio", "StreamTitle='x';"));
    EXPECT_TRUE(source->fireOdStreamSeg(12.5));
    EXPECT_TRUE(source->fireStreamBuffering(70000)); // its overflow is not the client's business
    EXPECT_EQ(events.all, (std::vector<std::string>{"ShoutCastMeta: Artist - Title|http://radio|StreamTitle='x';",
                                                    "StreamOnDemandSegFound: 12.500000",
                                                    "StreamBufferingStarted"}));
}

TEST_F(StreamTest, StreamPropertiesReadTheSourceAndTheGraph) {
    addStream("icystream://radio/live");
    addStream("icystream://radio/show", 1800.0);
    makePlayer();
    load("icystream://radio/live");
    in->currentItem() = "icystream://radio/live";
    Args live = args();
    ASSERT_TRUE(stream(live, "icystream://radio/live"));
    EXPECT_TRUE(player->get_isStreaming());
    EXPECT_FALSE(player->get_StreamingIsOnDemandFile()); // live: 525600 seconds
    EXPECT_TRUE(player->get_StreamingCanCancelPlay());
    player->StreamingCancelPlay();
    EXPECT_EQ(sim->lastStreamSource()->cancelCount(), 1);

    makePlayer();
    load("icystream://radio/show");
    in->currentItem() = "icystream://radio/show";
    Args a = args();
    ASSERT_TRUE(stream(a, "icystream://radio/show"));
    EXPECT_TRUE(player->get_StreamingIsOnDemandFile());

    makePlayer();
    load("/m/c.wav");
    in->currentItem() = "/m/c.wav";
    EXPECT_FALSE(player->get_isStreaming());
    EXPECT_FALSE(player->get_StreamingIsOnDemandFile());
    EXPECT_FALSE(player->get_StreamingCanCancelPlay());
}

// ---- Surround insert -------------------------------------------------------------------------

class SurroundTest : public FormatsTest {
protected:
    // A WAVE chain standing, and the routing filter for speakers 3-4 in the graph.
    void standWithRouter() {
        makePlayer();
        load("/m/c.wav");
        Args a = args();
        ASSERT_TRUE(wave(a, "/m/c.wav"));
        in->surround() = in->addFilterByName("Sondrel 3-4");
        PlayerInternals::getPins(in->surroundInPin(), in->surroundOutPin(), in->surround());
        in->surroundRenderName() = std::string(sim::names::SurroundDevice) + " [3-4]";
    }
    int32_t insertError(PinPtr renderIn) {
        try {
            in->insertSurroundFilter(renderIn);
        } catch (const AutomationError& e) {
            return e.number();
        }
        return 0;
    }
};

TEST_F(SurroundTest, SplicesTheRouterBeforeTheRendererOnce) {
    standWithRouter();
    PinPtr renderIn = in->soundCardInPin();
    in->insertSurroundFilter(renderIn);
    EXPECT_EQ(chainToRenderer(), "File Source (Async.) > Wave Parser > Halden Sample Grabber > Sondrel 3-4 > " +
                                     renderer());
    const std::string before = graph()->describe();
    in->insertSurroundFilter(renderIn);
    EXPECT_EQ(graph()->describe(), before);
}

TEST_F(SurroundTest, WithoutSurroundDeviceNothingIsTouched) {
    makePlayer();
    EXPECT_EQ(insertError(nullptr), 0);
}

TEST_F(SurroundTest, PreconditionsRaiseTheirNumbersInTheirOrder) {
    standWithRouter();
    EXPECT_EQ(insertError(nullptr), 7777);

    // An unconnected renderer input is reported only once the router's pins are known.
    PinPtr renderIn = in->soundCardInPin();
    in->sampleGrabber()->pins().back()->disconnect();
    const PinPtr routerIn = in->surroundInPin();
    in->surroundInPin().reset();
    EXPECT_EQ(insertError(renderIn), 7779);
    in->surroundInPin() = routerIn;
    const PinPtr routerOut = in->surroundOutPin();
    in->surroundOutPin().reset();
    EXPECT_EQ(insertError(renderIn), 7780);
    in->surroundOutPin() = routerOut;
    EXPECT_EQ(insertError(renderIn), 7778);

    // Router pins joined elsewhere already.
    ASSERT_TRUE(in->sampleGrabber()->pins().back()->connectDirect(renderIn).ok());
    auto pcmSource = in->addFilterByName("Native FLAC Decoder");
    ASSERT_TRUE(pcmSource->setFileName("/m/B.FLAC").ok());
    ASSERT_TRUE(pcmSource->pins().back()->connectDirect(routerIn).ok());
    EXPECT_EQ(insertError(renderIn), 7781);
    auto extra = in->addFilterByName("Sondrel 1-2");
    ASSERT_TRUE(routerOut->connectDirect(extra->pins().front()).ok());
    ASSERT_TRUE(routerIn->disconnect().ok());
    EXPECT_EQ(insertError(renderIn), 7782);
}

TEST_F(SurroundTest, FailedSpliceRaisesTheConnectErrorAndLeavesTheRendererFree) {
    standWithRouter();
    sim->failAlways(FaultPoint::Connect, "Halden Sample Grabber",
                    Status::failure(platform::hr::CannotConnect, "no splice"));
    sim->failAlways(FaultPoint::ConnectDirect, "Halden Sample Grabber",
                    Status::failure(platform::hr::CannotConnect, "no"));
    PinPtr renderIn = in->soundCardInPin();
    EXPECT_EQ(insertError(renderIn), platform::hr::CannotConnect);
    EXPECT_FALSE(renderIn->isConnected());
}

} // namespace
} // namespace corvid
