// The graph session, source selection, chain dispatch and the standard filters and inserts, on
// the simulated machine: what stands in the graph afterwards, what is connected to what, and
// what the operator reads (LastError, log lines, message boxes, repair commands).

#include "tests/sim/GraphFixture.h"

#include <corvid/AutomationError.h>

namespace corvid::testing {

namespace {
using sim::FaultPoint;
using platform::Status;

const Status kInjected = Status::failure(platform::hr::Fail, "Injected failure.");
} // namespace

// ---- A new graph and its standard filters ----

class GraphSessionTest : public GraphFixture {};

TEST_F(GraphSessionTest, ANewGraphIsStockedWithTheStandardFiltersAndHelpers) {
    player->CreateNewGraph(false);
    ASSERT_TRUE(player->mainGraph());
    for (const char* name : {"WMAudio Decoder DMO", "ACM Wrapper", "MPEG Layer-3 Decoder", "MPEG-I Stream Splitter",
                             "Wave Parser", "Halden Sample Grabber"})
        EXPECT_EQ(countFilters(name), 1) << name;
    EXPECT_TRUE(pi().helper());
    EXPECT_TRUE(pi().cueHelper());
    EXPECT_TRUE(ops().messageBoxes().empty());
    EXPECT_TRUE(ops().processes().empty());
}

TEST_F(GraphSessionTest, WithoutTheMp3DecoderASecondAcmWrapperDecodesAndUseAcmIsSet) {
    sim->unregisterFilter("MPEG Layer-3 Decoder");
    player->CreateNewGraph(false);
    EXPECT_TRUE(player->get_UseACM());
    EXPECT_EQ(countFilters("ACM Wrapper"), 2);
    // And an MP3 still plays, through the wrapper.
    EXPECT_TRUE(build(Mp3)) << player->get_LastError();
}

TEST_F(GraphSessionTest, AMissingStandardFilterIsShownToTheOperatorAndRepaired) {
    sim->unregisterFilter("MPEG-I Stream Splitter");
    player->CreateNewGraph(false);
    EXPECT_TRUE(boxShown("Critical Playback Error!", "Mpeg Splitter *should* create - reinstall DirectX?"));
    EXPECT_TRUE(started("regsvr32.exe  quartz.dll /s"));
    EXPECT_FALSE(hasFilter("Wave Parser")); // stocking stops at the first missing one
}

TEST_F(GraphSessionTest, TheOwnFiltersAreReRegisteredOnceBeforeGivingUp) {
    sim->failOnce(FaultPoint::CreateFilter, "Halden Sample Grabber", kInjected);
    sim->unregisterFilter("Brindle Pitch Shifter");
    player->CreateNewGraph(false);
    // The grabber came on its second try, without a word to the operator.
    EXPECT_TRUE(started("regsvr32 Halden_sample_grabber.dll /s"));
    EXPECT_TRUE(hasFilter("Halden Sample Grabber"));
    EXPECT_FALSE(boxShown("Critical Playback Error!", "SampleGrabber *should* create - reinstall app?"));
    // The pitch shifter did not.
    EXPECT_TRUE(started("regsvr32 brindlepitch.dll /s"));
    EXPECT_TRUE(boxShown("Critical Playback Error!", "Pitch shifter MUST exist! - reinstall Orvo"));
    EXPECT_TRUE(started("regsvr32.exe  quartz.dll /s"));
}

// ---- BuildGraph ----

TEST_F(GraphSessionTest, AnMp3BuildsThePlainRouteWithItsTimingLine) {
    ASSERT_TRUE(build(Mp3)) << player->get_LastError();
    EXPECT_EQ(links(), kMp3Route);
    EXPECT_TRUE(pi().graphBuilt());
    EXPECT_TRUE(logged("Attempting Create New Graph"));
    EXPECT_TRUE(logged("Created New Graph. Err = 0"));
    EXPECT_TRUE(logged("BuildGraph (3) took: 0 ms."));
    EXPECT_TRUE(logged("BuildGraph: ConnectGraphFilters Successful."));
    // Timing lines 1, 2, 4 and 5 are only logged by a failure.
    EXPECT_FALSE(loggedStartingWith("BuildGraph (4)"));
    EXPECT_EQ(player->get_LastError(), "");
}

TEST_F(GraphSessionTest, ASecondItemReplacesOnlyTheSource) {
    ASSERT_TRUE(build(Mp3));
    const auto graph = player->mainGraph();
    ASSERT_TRUE(build(Wav)) << player->get_LastError();
    EXPECT_EQ(player->mainGraph(), graph);
    EXPECT_EQ(countFilters("File Source (Async.)"), 1);
    EXPECT_TRUE(links().count("Wave Parser -> Halden Sample Grabber"));
    EXPECT_FALSE(links().count("MPEG-I Stream Splitter -> MPEG Layer-3 Decoder"));
}

TEST_F(GraphSessionTest, AnUnknownDeviceStopsTheBuildBeforeAnySourceIsAdded) {
    std::string device = "No Such Card";
    EXPECT_FALSE(player->SetSoundcard(device));
    EXPECT_FALSE(build(Mp3));
    EXPECT_TRUE(logged("WARNING: PLAYER CANNOT ADD SOUND CARD: No Such Card"));
    EXPECT_TRUE(logged("BuildGraph: Failed to AddSoundCard"));
    EXPECT_EQ(player->get_LastError(), "BuildGraph: Failed to AddSoundCard");
    EXPECT_FALSE(pi().sourceFilter());
    EXPECT_FALSE(hasFilter("File Source (Async.)"));
}

TEST_F(GraphSessionTest, AFailedBuildLogsTheTimingLineOrStepThatWasPending) {
    EXPECT_FALSE(build("/music/missing.mp3", false, false));
    EXPECT_TRUE(logged("BuildGraph: Failed to add Source Filter, where bMustUseASFReader = False"));
    EXPECT_TRUE(logged("BuildGraph (2) took: 0 ms."));
    EXPECT_EQ(player->get_LastError(),
              "BuildGraph: FAIL: In error handler (err = The system cannot find the file specified. -2147024894)");

    EXPECT_FALSE(pi().sourceFilter());
    EXPECT_TRUE(links().empty());

    host.clear();
    EXPECT_FALSE(build("/music/missing.mp3", false, true));
    EXPECT_TRUE(logged("CanUseAutoRender: true: for /music/missing.mp3"));

    // The standard filters stay for the next item.
    EXPECT_TRUE(build(Mp3)) << player->get_LastError();
    EXPECT_EQ(links(), kMp3Route);
}

TEST_F(GraphSessionTest, BadNamesFailCleanlyWithoutThrowing) {
    sim->addFile("/music/noext", simFile("stream/unknown"));
    for (const std::string name : {"", "/music/noext", "icystream://", "http://", "/music/missing.wav"}) {
        SCOPED_TRACE(name);
        EXPECT_NO_THROW(EXPECT_FALSE(build(name)));
        EXPECT_FALSE(pi().addingSourceFilter());
        EXPECT_TRUE(links().empty());
    }
}

TEST_F(GraphSessionTest, OnlyAnOggItemIsRebuiltFromAFreshSourceAfterItsChainFails) {
    sim->addFile("/music/bad.ogg", simFile("stream/ogg;opus")); // an Ogg the decoder cannot take
    sim->addFile("/music/bad.mp3", simFile("stream/unknown"));
    EXPECT_FALSE(build("/music/bad.ogg"));
    EXPECT_TRUE(logged("BuildGraph: was NOT able to build ogg graph"));
    host.clear();
    EXPECT_FALSE(build("/music/bad.mp3"));
    EXPECT_TRUE(logged("BuildGraph: Failed: ConnectGraphFilters *NOT* Successful."));
    EXPECT_FALSE(loggedStartingWith("BuildGraph: was"));
}

TEST_F(GraphSessionTest, AnOggItemWhoseFirstChainFailsIsBuiltOnTheSecondTry) {
    // The demuxer refuses its first connection only.
    sim->failOnce(FaultPoint::ConnectDirect, "OggDSFMux2", kInjected);
    ASSERT_TRUE(build(Ogg)) << player->get_LastError();
    EXPECT_TRUE(logged("BuildGraph: was able to build ogg graph") ||
                logged("BuildGraph: ConnectGraphFilters Successful."));
    EXPECT_TRUE(pi().graphBuilt());
}

// ---- Busy guard and the stream wait ----

class BusyGuardTest : public GraphFixture {};

TEST_F(BusyGuardTest, WhileAStreamLoadsTheGraphCannotBeDestroyedOrReplaced) {
    sim::SimStream stream;
    stream.afterMs = 500;
    sim->addStream(Stream, stream);
    player->CreateNewGraph(false);
    const auto graph = player->mainGraph();

    std::vector<int32_t> refusals;
    std::vector<std::string> texts;
    sim->eventLoop().post([&] {
        // A host re-entering during the wait.
        try {
            pi().destroyGraph();
        } catch (const AutomationError& e) {
            refusals.push_back(e.number());
            texts.push_back(e.description());
        }
        try {
            pi().disconnectAllFilters();
        } catch (const AutomationError& e) {
            refusals.push_back(e.number());
            texts.push_back(e.description());
        }
        pi().removeSourceFilter(); // quietly nothing
        EXPECT_NO_THROW(player->CreateNewGraph(false));
        EXPECT_EQ(pi().errNumber(), 558);
        EXPECT_EQ(pi().errDescription(),
                  "Never never createnewgraph whilst its trying to add - wait for the timeout, or the success");
    });

    ASSERT_TRUE(build(Stream)) << player->get_LastError();
    EXPECT_EQ(refusals, (std::vector<int32_t>{558, 558}));
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0], std::string("Never never destroy graph whilst its trying to add - wait for the timeout, or "
                                    "the success. Currently waiting for: ") + Stream);
    EXPECT_EQ(texts[1], std::string("Never never disconnect whilst its trying to add - wait for the timeout, or the "
                                    "success. Currently waiting for: ") + Stream);
    EXPECT_EQ(player->mainGraph(), graph);
    EXPECT_TRUE(links().count("_DShowShoutCast -> Default DirectSound Device"));
    EXPECT_FALSE(pi().addingSourceFilter());
}

TEST_F(BusyGuardTest, AStreamThatNeverOpensIsGivenUpAfterTenSeconds) {
    sim::SimStream stream;
    stream.outcome = sim::SimStream::Outcome::NeverOpens;
    sim->addStream(Stream, stream);
    EXPECT_FALSE(build(Stream));
    EXPECT_EQ(player->get_LastError(),
              "BuildGraph: FAIL: In error handler (err = Waiting too long for the stream to load 558)");
    EXPECT_EQ(sim->ticks().sleepCount(), 100);
    EXPECT_FALSE(pi().addingSourceFilter());
}

TEST_F(BusyGuardTest, AStreamThatFailsToOpenReportsTheSourcesOwnReason) {
    sim::SimStream stream;
    stream.outcome = sim::SimStream::Outcome::Fails;
    stream.afterMs = 300;
    sim->addStream(Stream, stream);
    EXPECT_FALSE(build(Stream));
    EXPECT_NE(player->get_LastError().find("The stream could not be opened."), std::string::npos)
        << player->get_LastError();
    EXPECT_FALSE(pi().addingSourceFilter());
}

// ---- Disconnect, remove, destroy ----

TEST_F(GraphSessionTest, DisconnectAllFiltersRemovesAHaaliFilterWholeAndLoosensTheRest) {
    sim::FilterSpec haali;
    haali.displayName = "Haali Media Splitter";
    haali.merit = sim::merit::DoNotUse;
    haali.pins = {sim::PinSpec::input("In", {"audio/*"}), sim::PinSpec::output("Out", {{"*", sim::SameAsInput}})};
    sim->registerFilter(haali);
    ASSERT_TRUE(build(Mp3));
    std::string failure;
    const auto haaliFilter = pi().addFilterByName("Haali Media Splitter");
    ASSERT_TRUE(pi().insertFilterAfterFilter(pi().sampleGrabber(), haaliFilter, failure)) << failure;
    const auto before = filters();

    pi().disconnectAllFilters();
    EXPECT_FALSE(hasFilter("Haali Media Splitter"));
    EXPECT_EQ(filters().size(), before.size() - 1);
    EXPECT_TRUE(links().empty());
}

TEST_F(GraphSessionTest, ASourceThatCannotBeRemovedIsKept) {
    ASSERT_TRUE(build(Mp3));
    const auto source = pi().sourceFilter();
    sim->failAlways(FaultPoint::RemoveFilter, "File Source (Async.)", kInjected);
    pi().removeSourceFilter();
    EXPECT_EQ(pi().sourceFilter(), source);
    EXPECT_TRUE(pi().mainSourcePin());
    EXPECT_FALSE(pi().graphBuilt());
    EXPECT_TRUE(links().empty());
}

TEST_F(GraphSessionTest, DestroyGraphTearsEverythingDownInItsOrder) {
    ASSERT_TRUE(build(Mp3));
    host.clear();
    pi().destroyGraph();
    EXPECT_FALSE(player->mainGraph());
    EXPECT_FALSE(pi().soundCard());
    EXPECT_FALSE(pi().cueHelper());
    const std::vector<std::string> expected = {
        "DestroyGraph: stopping the graph", "DestroyGraph: removin the source filter",
        "DestroyGraph: removin all filters", "removin all filters done", "cuehelper...", "helper...",
        "stopping helper graph...", "setting helper graph to nada...", "destroygraphcomplete"};
    std::vector<std::string> seen;
    for (const auto& line : host.log)
        if (std::find(expected.begin(), expected.end(), line) != expected.end()) seen.push_back(line);
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(host.count("IsPFLButtonRequired: false"), 1);
    // And the next build starts from scratch.
    EXPECT_TRUE(build(Mp3)) << player->get_LastError();
    EXPECT_EQ(links(), kMp3Route);
}

TEST_F(GraphSessionTest, ReplacingAStandingGraphEndsItsItem) {
    ASSERT_TRUE(build(Mp3));
    const auto old = player->mainGraph();
    host.clear();
    player->CreateNewGraph(false);
    EXPECT_NE(player->mainGraph(), old);
    EXPECT_EQ(host.endOfStreams, (std::vector<int32_t>{0}));
    EXPECT_FALSE(pi().sourceFilter());
}

// ---- Source selection ----

class SourceSelectionTest : public GraphFixture {
protected:
    // The graph is made at the first add, once the test has set the machine up: the catalogue
    // is read once per process.
    bool add(const std::string& file, bool mustUseAsfReader = false) {
        if (!player->mainGraph()) player->CreateNewGraph(false);
        bool flag = mustUseAsfReader;
        return pi().addSourceFilter(file, flag);
    }
    std::string sourceName() { return pi().sourceFilter() ? pi().sourceFilter()->name() : std::string(); }
};

TEST_F(SourceSelectionTest, WmaInCapitalsDemandsTheReaderWhichIsBannedByDefault) {
    EXPECT_FALSE(add(Wma));
    EXPECT_TRUE(logged("WARNING: WM ASF READER is too old for me to try to use it. Update Windows Media Player to 11 "
                       "or more!"));
    EXPECT_FALSE(pi().sourceFilter());

    bool banned = false;
    player->put_ASFReaderBanned(banned);
    ASSERT_TRUE(add(Wma));
    EXPECT_EQ(sourceName(), "WM ASF Reader");
    EXPECT_TRUE(player->get_UsingASFReader());
    EXPECT_FALSE(player->get_UsingHaldenSource());
    EXPECT_TRUE(logged("Being careful to check extension before loading into WM ASF Reader (Should be WM Reader) "
                       "because of hangs..."));
    EXPECT_TRUE(loggedStartingWith("AddSourceFilter: Success. Source name: WM ASF Reader"));
}

TEST_F(SourceSelectionTest, WithTheOwnReaderPreferredMp3GoesThereAndWaveToTheFileSource) {
    bool prefer = true;
    player->put_HaldenSourcePrefer(prefer);
    ASSERT_TRUE(add(Mp3));
    EXPECT_EQ(sourceName(), "Halden WM ASF Reader");
    EXPECT_TRUE(player->get_UsingHaldenSource());

    ASSERT_TRUE(add(Wav));
    EXPECT_EQ(sourceName(), "File Source (Async.)");
    EXPECT_FALSE(player->get_UsingHaldenSource());
    EXPECT_EQ(countFilters("Halden WM ASF Reader"), 0); // one source at a time
    EXPECT_TRUE(logged(std::string("Setted ") + Wav + " to async source filter"));
}

TEST_F(SourceSelectionTest, AnUnregisteredOwnReaderIsReportedOnTheSecondChannel) {
    bool prefer = true;
    player->put_HaldenSourcePrefer(prefer);
    sim->unregisterFilter("Halden WM ASF Reader");
    EXPECT_TRUE(add(Mp3));
    EXPECT_TRUE(wroteLog("POTENTIAL TROUBLE: Halden's Source doesnt seem to be regged on this system!"));
    EXPECT_EQ(sourceName(), "File Source (Async.)");
}

TEST_F(SourceSelectionTest, OggAndLacGoToTheOggSourceAndFlacToItsOwn) {
    ASSERT_TRUE(add(Ogg));
    EXPECT_EQ(sourceName(), "OggDSFMux2");
    ASSERT_TRUE(add(Flac));
    EXPECT_EQ(sourceName(), "Native FLAC Decoder");
    EXPECT_TRUE(logged("flac file loading into madflac ..."));
    sim->addFile("/music/seven.lac", simFile("stream/ogg;vorbis"));
    ASSERT_TRUE(add("/music/seven.lac"));
    EXPECT_EQ(sourceName(), "OggDSFMux2");
    EXPECT_FALSE(hasFilter("File Source (Async.)"));
}

TEST_F(SourceSelectionTest, WithoutTheOggChainAnOggItemGetsNoSource) {
    sim->unregisterFilter("dsf Ogg Demuxer2+");
    EXPECT_FALSE(add(Ogg));
    EXPECT_EQ(player->get_LastError(), "\r\nOgg decoder chain not installed. Please contact support if you need this.");
    EXPECT_TRUE(logged("Ogg decoder chain not installed. Please contact support if you need this."));
    EXPECT_FALSE(hasFilter("File Source (Async.)"));
}

TEST_F(SourceSelectionTest, WithoutItsSourceAFlacItemFailsWithoutTheBusyFlag) {
    sim->unregisterFilter("Native FLAC Decoder");
    EXPECT_FALSE(add(Flac));
    EXPECT_TRUE(logged("Flac source not installed, please install Native Flac Decoder (the Halden de-bugged version ..."));
    EXPECT_FALSE(logged("Setting AddingSourceFilter to TRUE in AddSourceFilter"));
}

TEST_F(SourceSelectionTest, WithoutTheFileSourceTheSystemSourceNeedsAutoRendering) {
    sim->unregisterFilter("File Source (Async.)");
    EXPECT_FALSE(add(Wav));
    EXPECT_EQ(player->get_LastError(), "To improve the stability of the program, using system source is disabled");

    sim->registerFilter([] {
        sim::FilterSpec f;
        f.displayName = "Sim System Source";
        f.kind = sim::FilterKind::Source;
        f.fileTypes = {"*"};
        f.pins = {sim::PinSpec::output("Output", {{"*", sim::SameAsInput}}, true)};
        return f;
    }());
    sim->setSystemSource("Sim System Source");
    bool allowed = true;
    player->put_AutoRenderAllowed(allowed);
    EXPECT_TRUE(add(Wav)) << player->get_LastError();
    EXPECT_TRUE(logged(std::string("Setted ") + Wav + " to system source filter."));
}

TEST_F(SourceSelectionTest, AnM4aItemNeedsTheMp4Chain) {
    sim->unregisterFilter("GDCL Mpeg-4 Demultiplexor2");
    EXPECT_FALSE(add(M4a));
    EXPECT_EQ(player->get_LastError(), "Not mp4 capable");
}

TEST_F(SourceSelectionTest, AnItemTheReaderCannotLoadIsRaisedWithItsNameAndTheSourceRemoved) {
    bool banned = false;
    player->put_ASFReaderBanned(banned);
    EXPECT_FALSE(add("/music/missing.wma"));
    EXPECT_FALSE(pi().sourceFilter());
    EXPECT_FALSE(hasFilter("WM ASF Reader"));
    EXPECT_NE(pi().errDescription().find("Filename: /music/missing.wma"), std::string::npos) << pi().errDescription();
    EXPECT_TRUE(logged("Removing Source Filter..."));
}

// ---- Chain dispatch ----

class ChainDispatchTest : public GraphFixture {};

TEST_F(ChainDispatchTest, FlacIsTriedFirstThroughTheMp3Chain) {
    ASSERT_TRUE(build(Flac)) << player->get_LastError();
    EXPECT_TRUE(logged("trying ConnectMp3Filters..."));
    EXPECT_FALSE(logged("trying ConnectMp3Filters (after fail)..."));
    EXPECT_TRUE(links().count("Halden Sample Grabber -> Default DirectSound Device"));
}

TEST_F(ChainDispatchTest, AnUnknownExtensionGoesStraightToTheFallbacksMp3First) {
    sim->addFile("/music/eight.aiff", simFile("stream/mpeg-audio")); // MPEG audio under a foreign name
    ASSERT_TRUE(build("/music/eight.aiff")) << player->get_LastError();
    const auto& log = host.log;
    const auto mp3 = std::find(log.begin(), log.end(), "trying ConnectMp3Filters (after fail)...");
    ASSERT_NE(mp3, log.end());
    EXPECT_FALSE(logged("trying ConnectWaveFilters (after fail)..."));
    EXPECT_FALSE(logged("trying ConnectMp3Filters..."));
    EXPECT_FALSE(logged("trying ConnectWavFilters..."));
    EXPECT_EQ(links(), kMp3Route);
}

TEST_F(ChainDispatchTest, AStreamThatDoesNotConnectIsNotTriedAsAFile) {
    sim::SimStream stream;
    stream.mediaType = "audio/unknown";
    sim->addStream(Stream, stream);
    EXPECT_FALSE(build(Stream));
    EXPECT_TRUE(wroteLog("ConnectGraphFilters: ConnectStreamFilters Failed!"));
    EXPECT_FALSE(loggedStartingWith("trying Connect"));
    EXPECT_FALSE(pi().sourceFilter());
}

TEST_F(ChainDispatchTest, WithoutAutomaticRenderingAnUnplayableItemFailsAfterTheOggFallback) {
    sim->addFile("/music/nine.xyz", simFile("stream/unknown"));
    EXPECT_FALSE(build("/music/nine.xyz", false, false));
    EXPECT_TRUE(logged("trying ConnectOggFilters (after fail)..."));
    EXPECT_FALSE(wroteLog("Getting desperate to render this file, doing automatically..."));
    EXPECT_NE(player->get_LastError().find("ConnectGraphFilters Failed: "), std::string::npos);
    EXPECT_TRUE(std::any_of(host.writeLog.begin(), host.writeLog.end(), [](const std::string& l) {
        return l.rfind("ConnectGraphFilters failed, with error ", 0) == 0;
    }));
    EXPECT_FALSE(pi().sourceFilter());
}

TEST_F(ChainDispatchTest, AutomaticRenderingIsRefusedWhileTheSettingIsOff) {
    sim->addFile("/music/nine.xyz", simFile("stream/unknown"));
    EXPECT_FALSE(build("/music/nine.xyz", false, true));
    EXPECT_TRUE(wroteLog("Getting desperate to render this file, doing automatically..."));
    EXPECT_NE(player->get_LastError().find(
                  "/music/nine.xyz would need to be automatically rendered, but the setting is disabled."),
              std::string::npos);
}

TEST_F(ChainDispatchTest, AutomaticRenderingPutsTheGrabberBackInFrontOfTheCard) {
    // An AAC file under a name no chain claims: only the platform's own choice plays it.
    sim->addFile("/music/ten.xyz", simFile("stream/mp4;aac"));
    bool allowed = true;
    player->put_AutoRenderAllowed(allowed);
    ASSERT_TRUE(build("/music/ten.xyz", false, true)) << player->get_LastError();
    EXPECT_EQ(host.count("RenderedAutomatically: /music/ten.xyz"), 1);
    EXPECT_TRUE(logged("****RENDER AUTOMATICALLY: SUCCESSFUL - BUT TRY TO AVOID******"));
    EXPECT_TRUE(links().count("Halden Sample Grabber -> Default DirectSound Device"));
    EXPECT_EQ(countFilters("Halden Sample Grabber"), 1);
}

TEST_F(ChainDispatchTest, AMissingAcmWrapperIsLoggedButDoesNotStopTheDispatch) {
    sim->unregisterFilter("ACM Wrapper");
    ASSERT_TRUE(build(Mp3)) << player->get_LastError();
    EXPECT_TRUE(logged("ConnectGraphFilters: Error: No ACM Wrapper filter, bailing..."));
    EXPECT_EQ(links(), kMp3Route);
}

TEST_F(ChainDispatchTest, WithoutASourceFilterTheDispatchRaises819) {
    player->CreateNewGraph(false);
    EXPECT_FALSE(pi().connectGraphFilters(Mp3, false, false));
    EXPECT_EQ(player->get_LastError(), "\r\nConnectGraphFilters Failed: 819 ConnectGraphFilters: There is no source filter!");
}

// ---- Sample grabber and inserts ----

class InsertsTest : public GraphFixture {};

TEST_F(InsertsTest, AGrabberAlreadyInFrontOfTheCardIsLeftAlone) {
    ASSERT_TRUE(build(Mp3));
    EXPECT_NO_THROW(pi().putSampleGrabberBeforeRender());
    EXPECT_EQ(links(), kMp3Route);
}

TEST_F(InsertsTest, AGrabberElsewhereMovesInFrontOfTheCard) {
    ASSERT_TRUE(build(Mp3));
    // The pitch shifter slipped in between the grabber and the card.
    const auto pitch = pi().addFilterByName("Brindle Pitch Shifter");
    std::string failure;
    ASSERT_TRUE(pi().insertFilterAfterFilter(pi().sampleGrabber(), pitch, failure)) << failure;
    pi().putSampleGrabberBeforeRender();
    EXPECT_TRUE(links().count("MPEG Layer-3 Decoder -> Brindle Pitch Shifter"));
    EXPECT_TRUE(links().count("Brindle Pitch Shifter -> Halden Sample Grabber"));
    EXPECT_TRUE(links().count("Halden Sample Grabber -> Default DirectSound Device"));
}

TEST_F(InsertsTest, PlacingTheGrabberNeedsTheCardAndAConnectedGrabber) {
    player->CreateNewGraph(false);
    try {
        pi().putSampleGrabberBeforeRender();
        FAIL() << "no error raised";
    } catch (const AutomationError& e) {
        EXPECT_EQ(e.number(), 1000);
        EXPECT_EQ(e.description(), "PutSampleGrabber... needs the sound card in pin to work!");
    }
    ASSERT_TRUE(pi().addSoundCard("", false));
    try {
        pi().putSampleGrabberBeforeRender();
        FAIL() << "no error raised";
    } catch (const AutomationError& e) {
        EXPECT_EQ(e.description(), "PutSampleGrabberBeforeRender expects samplegrabber connection");
    }
}

TEST_F(InsertsTest, InsertingAfterAnUnconnectedFilterFailsAndChangesNothing) {
    player->CreateNewGraph(false);
    const auto pitch = pi().addFilterByName("Brindle Pitch Shifter");
    std::string failure;
    EXPECT_FALSE(pi().insertFilterAfterFilter(pi().sampleGrabber(), pitch, failure));
    EXPECT_EQ(failure, " InsertFilterAfterFilter: failed AfterOutPin was not connected: unexpected0 ");
    EXPECT_TRUE(links().empty());
}

TEST_F(InsertsTest, TheGrabberCannotBeMadeWhenItIsNotRegistered) {
    player->CreateNewGraph(false);
    sim->unregisterFilter("Halden Sample Grabber");
    try {
        pi().createSampleGrabber();
        FAIL() << "no error raised";
    } catch (const AutomationError& e) {
        EXPECT_EQ(e.number(), 819);
    }
}

TEST_F(InsertsTest, ThePitchShifterGoesInFrontOfTheGrabberAndThePipeSenderOnlyWithPipe2020) {
    ASSERT_TRUE(build(Mp3));
    pi().setupPitchAndPipeSender();
    EXPECT_FALSE(hasFilter("Pipe Sender"));
    EXPECT_TRUE(links().count("MPEG Layer-3 Decoder -> Brindle Pitch Shifter"));
    EXPECT_TRUE(links().count("Brindle Pitch Shifter -> Halden Sample Grabber"));

    pi().removeSourceFilter();
    player->mainGraph()->removeFilter(pi().pitchShifter());
    pi().pitchShifter().reset();
    pi().pipe2020() = true;
    ASSERT_TRUE(build(Mp3));
    pi().setupPitchAndPipeSender();
    EXPECT_TRUE(links().count("Brindle Pitch Shifter -> Pipe Sender"));
    EXPECT_TRUE(links().count("Pipe Sender -> Halden Sample Grabber"));
    EXPECT_TRUE(links().count("Halden Sample Grabber -> Default DirectSound Device"));
    EXPECT_EQ(player->get_LastError(), "");
}

} // namespace corvid::testing
