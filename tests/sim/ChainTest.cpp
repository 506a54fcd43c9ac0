// The graph a load builds on the simulated standard machine, through FileName as a host loads:
// which source takes the item, which chain joins it to the device, which fallback stands when
// a step fails, and what the operator reads on the way (the log, LastError, message boxes and
// repair commands). One table over item and fault; the graph session's own cases follow it.

#include "tests/sim/GraphFixture.h"

#include <functional>
#include <utility>

namespace corvid::testing {
namespace {

using platform::Status;
using sim::FaultPoint;

const Status kRefused = Status::failure(platform::hr::CannotConnect, "no");
const Status kInjected = Status::failure(platform::hr::Fail, "Injected failure.");
constexpr int32_t kNoTypes = platform::hr::NoAcceptableTypes;
const std::string kTail = " > Brindle Pitch Shifter > Halden Sample Grabber";
const std::string kMp3Route = "File Source (Async.) > MPEG-I Stream Splitter > MPEG Layer-3 Decoder" + kTail;

struct ChainCase {
    std::string test;
    std::string item;
    std::string mediaType; // added as a file of this type; "stream:" + type adds a stream
    std::function<void(GraphFixture&)> arrange;
    std::string chain; // upstream of the default device afterwards; empty: the load fails
    std::vector<std::string> logged; // in this order, log and WriteLog; "~x": a line containing x
    std::vector<std::string> absent; // no line starts with these
    std::string lastError;          // contained in LastError afterwards; "=x": LastError is x
    std::vector<std::pair<std::string, int>> counts = {}; // filters standing afterwards
};

void PrintTo(const ChainCase& c, std::ostream* os) { *os << c.test; }

void fault(GraphFixture& f, FaultPoint point, std::string subject, std::string object = {},
           Status status = kRefused, int times = -1) {
    f.sim->inject({.point = point, .subject = std::move(subject), .object = std::move(object), .status = status,
                   .times = times});
}
void unbanReader(GraphFixture& f) { f.set(&Player::put_ASFReaderBanned, false); }
// The file source refuses every connection: only the second build, through the reader, plays.
void onlyTheReader(GraphFixture& f) {
    unbanReader(f);
    fault(f, FaultPoint::ConnectDirect, "File Source (Async.)");
    fault(f, FaultPoint::Connect, "File Source (Async.)");
}
// Acts once, when the log first shows `line`.
void whenLogged(GraphFixture& f, std::string line, std::function<void()> act) {
    f.host.onLog = [line = std::move(line), act = std::move(act), done = false](const std::string& l) mutable {
        if (!done && l == line) done = true, act();
    };
}

const ChainCase kCases[] = {
    // ---- MP3, FLAC and the MP3 chain's fallbacks ----
    {"mp3_via_file_source", "/music/one.mp3", "", nullptr, kMp3Route,
     {"Attempting Create New Graph", "Created New Graph. Err = 0", "Setted /music/one.mp3 to async source filter",
      "BuildGraph (3) took: 0 ms.", "trying ConnectMp3Filters...", "BuildGraph: ConnectGraphFilters Successful."},
     {"BuildGraph (4)", "trying ConnectMp3Filters (after fail)"}, "="},
    {"mp3_via_own_reader", "/music/one.mp3", "", [](GraphFixture& f) { f.set(&Player::put_HaldenSourcePrefer, true); },
     "Halden WM ASF Reader" + kTail, {"ConnectMp3Filters: Source Pin Connected OK to the SGInPin"}, {}, ""},
    {"flac_in_capitals_via_decoding_source", "/m/B.FLAC", "stream/flac", nullptr, "Native FLAC Decoder" + kTail,
     {"flac file loading into madflac ...", "trying ConnectMp3Filters...",
      "ConnectMp3Filters: Source Pin Connected OK to the SGInPin"},
     {"trying ConnectMp3Filters (after fail)"}, ""},
    // The Wave fallback asks the reader for an MP3 name; banned, it gets none.
    {"wave_under_mp3_name_finds_no_source", "/m/notmpeg.mp3", "stream/wave;pcm16", nullptr, "",
     {"Connectmp3Filters, for: /m/notmpeg.mp3 Source is: File Source (Async.)", "trying ConnectMp3Filters (after fail)...",
      "trying ConnectWaveFilters (after fail)...", "ConnectWavFilters: cannot add source filter"},
     {}, ""},
    {"mp3_via_own_acm_wrapper", "/music/one.mp3", "",
     [](GraphFixture& f) { fault(f, FaultPoint::ConnectDirect, "MPEG-I Stream Splitter", "MPEG Layer-3 Decoder"); },
     "File Source (Async.) > MPEG-I Stream Splitter > ACM Wrapper" + kTail,
     {"Connectmp3Filters: could not connect splitter out pin directly, trying all sorts of things to make it "
      "sensibly connect..."},
     {}, "", {{"ACM Wrapper", 2}}},
    {"mp3_acm_wrapper_kept_for_the_second_attempt", "/music/one.mp3", "",
     [](GraphFixture& f) {
         fault(f, FaultPoint::ConnectDirect, "MPEG-I Stream Splitter", "MPEG Layer-3 Decoder");
         fault(f, FaultPoint::ConnectDirect, "Halden Sample Grabber", "Default DirectSound Device", kRefused, 1);
         fault(f, FaultPoint::Connect, "Halden Sample Grabber", "Default DirectSound Device", kRefused, 1);
     },
     "File Source (Async.) > MPEG-I Stream Splitter > ACM Wrapper" + kTail,
     {"trying ConnectMp3Filters...", "trying ConnectMp3Filters (after fail)..."}, {}, "", {{"ACM Wrapper", 2}}},
    {"mp3_via_reader_and_acm_wrapper", "/music/one.mp3", "", onlyTheReader, "WM ASF Reader > ACM Wrapper" + kTail,
     {"For /music/one.mp3:UsingWM or UsingHalden. Test connecting source pin (possibly via ACM) to render",
      "For /music/one.mp3:UsingWM or UsingHalden. OK, connected source pin (possibly via acm) to render"},
     {}, ""},
    {"mp3_via_reader_without_route", "/music/one.mp3", "",
     [](GraphFixture& f) {
         onlyTheReader(f);
         fault(f, FaultPoint::Connect, "WM ASF Reader");
     },
     "",
     {"ConnectMp3Filters: For /music/one.mp3:UsingWM or UsingHalden. Failed to connect source pin (possibly via "
      "acm) to render"},
     {"CRITICAL: ConnectMp-3Filters"}, ""},
    {"mp3_via_reader_grabber_not_made_again", "/music/one.mp3", "",
     [](GraphFixture& f) {
         onlyTheReader(f);
         fault(f, FaultPoint::Connect, "WM ASF Reader");
         whenLogged(f, "For /music/one.mp3:UsingWM or UsingHalden. Test connecting source pin (possibly via ACM) to render",
                    [&f] { fault(f, FaultPoint::CreateFilter, "Halden Sample Grabber", {}, kInjected); });
     },
     "", {"CRITICAL: ConnectMp-3Filters cannot re-create Sample Grabber!"}, {}, ""},
    {"mp3_grabber_cannot_reach_device", "/music/one.mp3", "",
     [](GraphFixture& f) {
         fault(f, FaultPoint::ConnectDirect, "Halden Sample Grabber", {}, Status::failure(kNoTypes, "direct"));
         fault(f, FaultPoint::Connect, "Halden Sample Grabber", {}, Status::failure(kNoTypes, "smart"));
     },
     "", {}, {}, "Connectmp3Filters: cannot connect sgoutpin to renderinpin " + std::to_string(kNoTypes) + " smart"},

    // ---- WAVE ----
    {"float_wav_via_converter", "/m/f.wav", "stream/wave;float32", nullptr,
     "File Source (Async.) > Wave Parser > Brindle Format Converter" + kTail,
     {"trying ConnectWavFilters...", "ConnectWaveFilters:  Could not connect direct to pRenderPin: Default DirectSound Device",
      "ConnectWaveFilters:  Removing SG"},
     {}, "", {{"Halden Sample Grabber", 1}, {"Brindle Format Converter", 1}}},
    {"mpeg_under_wav_name_via_mp3_fallback", "/m/notwave.wav", "stream/mpeg-audio", nullptr, kMp3Route,
     {"ConnectWaveFilters:  Could not connect SourcePin  to WaveSplitterPin. Not a recognised wav file.",
      "ConnectWaveFilters Failed, with " + std::to_string(kNoTypes) + " There is no common media type between these pins.",
      "~FILTER NAME: Wave Parser", "trying ConnectMp3Filters (after fail)..."},
     {}, ""},
    {"mpeg_under_wav_name_mp3_fallback_without_source", "/m/notwave.wav", "stream/mpeg-audio",
     [](GraphFixture& f) {
         whenLogged(f, "trying ConnectMp3Filters (after fail)...",
                    [&f] { fault(f, FaultPoint::CreateFilter, "File Source (Async.)", {}, kInjected); });
     },
     "", {"Connectmp3Filters: cannot add source filter", "Connectmp3Filters: no source pin, cannot continue"}, {}, ""},
    {"wav_parser_without_output", "/music/two.wav", "",
     [](GraphFixture& f) { fault(f, FaultPoint::PinAppears, "Wave Parser", "output", Status{}); }, "",
     {"ConnectWaveFilters:  No Wave Splitter Out Pin", "ConnectWaveFilters Failed, with 0 "}, {}, ""},
    {"float_wav_without_any_route", "/m/f.wav", "stream/wave;float32",
     [](GraphFixture& f) { fault(f, FaultPoint::Connect, "Wave Parser"); }, "",
     {"ConnectWaveFilters:  Could not Connect WaveSplitter Out Pin, even indirectly, to pRenderInPin Default "
      "DirectSound Device" + std::to_string(platform::hr::CannotConnect) + " no"},
     {}, ""},

    // ---- Windows Media ----
    {"wma_banned_reader", "/music/three.WMA", "", nullptr, "",
     {"WARNING: WM ASF READER is too old for me to try to use it. Update Windows Media Player to 11 or more!"}, {}, "needs the Windows Media reader, which is banned"},
    {"wma_in_capitals_via_reader", "/music/three.WMA", "", unbanReader, "WM ASF Reader > WMAudio Decoder DMO" + kTail,
     {"Being careful to check extension before loading into WM ASF Reader (Should be WM Reader) because of hangs...",
      "~AddSourceFilter: Success. Source name: WM ASF Reader", "trying ConnectWMAFilters..."},
     {"trying ConnectMp3Filters (after fail)"}, ""},
    {"asf_via_reader", "/m/x.asf", "stream/asf;wma", unbanReader, "WM ASF Reader > WMAudio Decoder DMO" + kTail, {}, {}, ""},
    {"mpeg_in_asf_via_mp3_fallback", "/m/mp3.wma", "stream/asf;mp3", unbanReader, "WM ASF Reader > ACM Wrapper" + kTail,
     {"trying ConnectWMAFilters...", "~\r\nConnectWMAFilters: Cannot connect Source Pin directly to DMOInPin",
      "trying ConnectMp3Filters (after fail)..."},
     {}, "\r\nConnectWMAFilters: Cannot connect Source Pin directly to DMOInPin"},
    {"float_wma_via_converter", "/music/three.WMA", "",
     [](GraphFixture& f) {
         unbanReader(f);
         f.sim->filterSpec("WMAudio Decoder DMO")->pins[1].produces = {{"*", "audio/pcm-float"}};
     },
     // The pitch shifter takes 16 bits only; the converter standing free goes in once more.
     "WM ASF Reader > WMAudio Decoder DMO > Brindle Format Converter > Brindle Pitch Shifter > Brindle Format "
     "Converter > Halden Sample Grabber",
     {}, {},
     "ConnectWMAFilters: Cannot connect Grabber out Pin directly to RenderInPin: "},

    // ---- Ogg ----
    {"ogg_in_capitals_via_ogg_source", "/m/E.OGG", "stream/ogg;vorbis", nullptr,
     "OggDSFMux2 > dsf Ogg Demuxer2+ > Xiph.Org Vorbis Decoder PLUS" + kTail, {"trying ConnectOggFilters..."}, {}, "",
     {{"Xiph.Org Vorbis Decoder PLUS", 1}, {"dsf Ogg Demuxer2+", 1}}},
    {"lac_via_ogg_fallback", "/m/x.zlac", "stream/ogg;vorbis", nullptr,
     "OggDSFMux2 > dsf Ogg Demuxer2+ > Xiph.Org Vorbis Decoder PLUS" + kTail,
     {"trying ConnectOggFilters (after fail)..."}, {"ConnectOggFilters: Path does not end"}, ""},
    {"oga_is_no_ogg_name", "/m/x.oga", "stream/ogg;vorbis", nullptr, "",
     {"trying ConnectOggFilters (after fail)...", "ConnectOggFilters: Path does not end in .ogg, returning false"}, {}, ""},
    {"ogg_opus_not_built_again", "/m/bad.ogg", "stream/ogg;opus", nullptr, "",
     {"BuildGraph: was NOT able to build ogg graph"}, {}, ""},
    {"unknown_under_mp3_name_not_built_again", "/m/bad.mp3", "stream/unknown", nullptr, "",
     {"BuildGraph: Failed: ConnectGraphFilters *NOT* Successful."}, {"BuildGraph: was"}, ""},
    {"ogg_demuxer_not_made", "/music/four.ogg", "",
     [](GraphFixture& f) {
         whenLogged(f, "trying ConnectOggFilters...",
                    [&f] { fault(f, FaultPoint::CreateFilter, "dsf Ogg Demuxer2+", {}, kInjected); });
     },
     "",
     {"trying ConnectOggFilters...", "Failed to add  Vorbis Splitter to graph"}, {}, ""},
    {"ogg_built_on_the_second_try", "/music/four.ogg", "",
     [](GraphFixture& f) { fault(f, FaultPoint::ConnectDirect, "OggDSFMux2", {}, kInjected, 1); },
     "OggDSFMux2 > dsf Ogg Demuxer2+ > Xiph.Org Vorbis Decoder PLUS" + kTail, {}, {}, ""},
    {"ogg_without_demuxer", "/music/four.ogg", "",
     [](GraphFixture& f) { f.sim->unregisterFilter("dsf Ogg Demuxer2+"); }, "",
     {"Ogg decoder chain not installed. Please contact support if you need this."},
     {}, "\r\nOgg decoder chain not installed. Please contact support if you need this.",
     {{"Xiph.Org Vorbis Decoder PLUS", 0}}},

    // ---- MPEG-4 ----
    {"m4a_in_capitals_step_by_step", "/m/G.M4A", "stream/mp4;aac", nullptr,
     "File Source (Async.) > GDCL Mpeg-4 Demultiplexor2 > Microsoft DTV-DVD Audio Decoder" + kTail,
     {"ConnectMp4Filters: Started. Adding new mp4 filters...", "Connectmp4Filters: connecting source to parser...",
      "Connectmp4Filters: connecting decoder input...", "Connectmp4Filters: connecting decoder output...",
      "Connectmp4Filters: connecting Sample Grabber out pin to Render in pin...", "Connectmp4filters: Success!"},
     {}, ""},
    {"mp4_name_left_to_the_fallbacks", "/m/g.mp4", "stream/mp4;aac", nullptr, "", {}, {"ConnectMp4Filters: Started"}, ""},
    {"m4a_demultiplexer_not_made", "/music/six.m4a", "",
     [](GraphFixture& f) { fault(f, FaultPoint::CreateFilter, "GDCL Mpeg-4 Demultiplexor2", {}, kInjected); }, "",
     {"Unable to add mp4 filters."}, {}, "Unable to add mp4 filters."},
    {"m4a_decoder_input_through_intelligent_connect", "/music/six.m4a", "",
     [](GraphFixture& f) {
         fault(f, FaultPoint::ConnectDirect, "GDCL Mpeg-4 Demultiplexor2", "Microsoft DTV-DVD Audio Decoder", kRefused, 1);
     },
     "File Source (Async.) > GDCL Mpeg-4 Demultiplexor2 > Microsoft DTV-DVD Audio Decoder" + kTail,
     {"Connectmp4Filters: parser out pin would not connect directly to decoder, trying intelligent connect..."}, {},
     "", {{"GDCL Mpeg-4 Demultiplexor2", 1}, {"Microsoft DTV-DVD Audio Decoder", 1}}},
    {"m4a_without_demultiplexer", "/music/six.m4a", "",
     [](GraphFixture& f) { f.sim->unregisterFilter("GDCL Mpeg-4 Demultiplexor2"); }, "", {}, {}, "Not mp4 capable"},

    // ---- Streams ----
    {"icystream_in_capitals_bypasses_grabber", "ICYSTREAM://radio/live", "stream:", nullptr,
     "_DShowShoutCast > Brindle Pitch Shifter", {}, {"trying Connect"}, "", {{"Halden Sample Grabber", 1}}},
    {"wma_stream_via_reader_gets_own_decoder", "http://radio/d.wma", "stream:stream/asf;wma", unbanReader,
     "WM ASF Reader > WMAudio Decoder DMO > Brindle Pitch Shifter", {}, {}, "", {{"WMAudio Decoder DMO", 2}}},
    {"stream_that_does_not_connect_is_no_file", "icystream://radio/odd", "stream:audio/unknown", nullptr, "",
     {"ConnectGraphFilters: ConnectStreamFilters Failed!"}, {"trying Connect"}, ""},

    // ---- Fallbacks and automatic rendering ----
    {"mp2_via_mp3_fallback", "/m/x.mp2", "stream/mpeg-audio", nullptr, kMp3Route, {}, {}, ""},
    {"foreign_name_via_mp3_fallback", "/music/eight.aiff", "stream/mpeg-audio", nullptr, kMp3Route,
     {"trying ConnectMp3Filters (after fail)..."},
     {"trying ConnectWaveFilters (after fail)", "trying ConnectMp3Filters...", "trying ConnectWavFilters"}, ""},
    {"unplayable_not_rendered_automatically", "/music/nine.xyz", "stream/unknown", nullptr, "",
     {"trying ConnectMp3Filters (after fail)...", "trying ConnectWaveFilters (after fail)...",
      "trying ConnectWMAFilters (after fail)...", "trying ConnectOggFilters (after fail)...",
      "~ConnectGraphFilters failed, with error ",
      "Getting desperate to render this file, doing automatically..."},
     {}, "/music/nine.xyz would need to be automatically rendered, but the setting is disabled."},
    {"aac_under_foreign_name_rendered_automatically", "/music/ten.xyz", "stream/mp4;aac",
     [](GraphFixture& f) { f.set(&Player::put_AutoRenderAllowed, true); },
     "File Source (Async.) > GDCL Mpeg-4 Demultiplexor2 > Microsoft DTV-DVD Audio Decoder" + kTail,
     {"****RENDER AUTOMATICALLY: SUCCESSFUL - BUT TRY TO AVOID******"}, {}, "", {{"Halden Sample Grabber", 1}}},
    {"mp3_without_acm_wrapper", "/music/one.mp3", "", [](GraphFixture& f) { f.sim->unregisterFilter("ACM Wrapper"); },
     kMp3Route, {"ConnectGraphFilters: Error: No ACM Wrapper filter, bailing..."}, {}, ""},
    {"mp3_through_pipe_sender", "/music/one.mp3", "", [](GraphFixture& f) { f.set(&Player::put_Pipe2020, true); },
     "File Source (Async.) > MPEG-I Stream Splitter > MPEG Layer-3 Decoder > Brindle Pitch Shifter > Pipe Sender > "
     "Halden Sample Grabber",
     {}, {}, ""},

    {"speaker_pair_splice_refused", "/music/one.mp3", "",
     [](GraphFixture& f) {
         std::string pair = std::string(sim::names::SurroundDevice) + " [3-4]";
         EXPECT_TRUE(f.player->SetSoundcard(pair));
         fault(f, FaultPoint::Connect, "Halden Sample Grabber", "Sondrel 3-4", Status::failure(platform::hr::CannotConnect, "no splice"));
         fault(f, FaultPoint::ConnectDirect, "Halden Sample Grabber", "Sondrel 3-4");
     },
     "", {}, {}, "ConnectGraphFilters Failed: " + std::to_string(platform::hr::CannotConnect) + " no splice"},

    // ---- Sources ----
    {"wav_beside_preferred_own_reader", "/music/two.wav", "",
     [](GraphFixture& f) { f.set(&Player::put_HaldenSourcePrefer, true); }, "File Source (Async.) > Wave Parser" + kTail,
     {"Setted /music/two.wav to async source filter"}, {}, "", {{"Halden WM ASF Reader", 0}}},
    {"own_reader_not_registered", "/music/one.mp3", "",
     [](GraphFixture& f) {
         f.set(&Player::put_HaldenSourcePrefer, true);
         f.sim->unregisterFilter("Halden WM ASF Reader");
     },
     kMp3Route, {"POTENTIAL TROUBLE: Halden's Source doesnt seem to be regged on this system!"}, {}, ""},
    {"flac_without_its_source", "/music/five.flac", "",
     [](GraphFixture& f) { f.sim->unregisterFilter("Native FLAC Decoder"); }, "",
     {"Flac source not installed, please install Native Flac Decoder (the Halden de-bugged version ..."},
     {"Setting AddingSourceFilter to TRUE in AddSourceFilter"}, ""},
    {"without_file_source_system_source_disabled", "/music/two.wav", "",
     [](GraphFixture& f) { f.sim->unregisterFilter("File Source (Async.)"); }, "", {}, {},
     "To improve the stability of the program, using system source is disabled"},
    {"missing_item_through_reader", "/music/missing.wma", "", unbanReader, "", {"Removing Source Filter..."}, {},
     "Filename: /music/missing.wma"},
    {"missing_item", "/music/missing.mp3", "", nullptr, "",
     {"BuildGraph: Failed to add Source Filter, where bMustUseASFReader = False", "BuildGraph (2) took: 0 ms.",
      "CanUseAutoRender: true: for /music/missing.mp3"},
     {}, "=The system cannot find the file specified."},
    {"unknown_device_stops_before_the_source", "/music/one.mp3", "",
     [](GraphFixture& f) {
         std::string device = "No Such Card";
         EXPECT_FALSE(f.player->SetSoundcard(device));
     },
     "", {"WARNING: PLAYER CANNOT ADD SOUND CARD: No Such Card", "BuildGraph: Failed to AddSoundCard"}, {"Setted "},
     "BuildGraph: Failed to AddSoundCard"},
};

class ChainTest : public GraphFixture, public ::testing::WithParamInterface<ChainCase> {};

TEST_P(ChainTest, BuildsItsChainOrFailsAsTheOperatorReads) {
    const ChainCase& c = GetParam();
    if (c.mediaType.rfind("stream:", 0) == 0)
        sim->addStream(c.item, c.mediaType.size() > 7 ? sim::SimStream{.mediaType = c.mediaType.substr(7), .levels = {}} : sim::SimStream{});
    else if (!c.mediaType.empty())
        sim->addFile(c.item, simFile(c.mediaType));
    if (c.arrange) c.arrange(*this);

    EXPECT_EQ(load(c.item), !c.chain.empty()) << player->get_LastError();
    if (!c.chain.empty()) EXPECT_EQ(chain(), c.chain);
    else EXPECT_EQ(player->get_FileName(), "");

    std::vector<std::string> lines; // the log and WriteLog, in the order raised
    for (const auto& e : host.all)
        for (const char* channel : {"PlayerLogInfo: ", "WriteLog: "})
            if (e.rfind(channel, 0) == 0) lines.push_back(e.substr(std::string(channel).size()));
    EXPECT_TRUE(inOrder(lines, c.logged));
    for (const auto& prefix : c.absent)
        for (const auto& l : lines) EXPECT_NE(l.rfind(prefix, 0), 0u) << l;
    if (c.lastError.rfind('=', 0) == 0) EXPECT_EQ(player->get_LastError(), c.lastError.substr(1));
    else EXPECT_NE(player->get_LastError().find(c.lastError), std::string::npos) << player->get_LastError();
    for (const auto& [name, n] : c.counts) EXPECT_EQ(countFilters(name), n) << name;
}

INSTANTIATE_TEST_SUITE_P(Items, ChainTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return info.param.test; });

// ---- The graph session: a new graph, its standard filters, a second item, a stream wait ----

class GraphSessionTest : public GraphFixture {};

TEST_F(GraphSessionTest, ANewGraphIsStockedWithTheStandardFiltersAndBadNamesFailCleanly) {
    player->CreateNewGraph(false);
    ASSERT_TRUE(player->mainGraph());
    for (const char* name : {"WMAudio Decoder DMO", "ACM Wrapper", "MPEG Layer-3 Decoder", "MPEG-I Stream Splitter",
                             "Wave Parser", "Halden Sample Grabber"})
        EXPECT_EQ(countFilters(name), 1) << name;
    EXPECT_TRUE(sim->lastHelper(platform::GraphHelperKind::Helper));
    EXPECT_TRUE(sim->lastHelper(platform::GraphHelperKind::CueHelper));
    EXPECT_TRUE(ops().messageBoxes().empty());
    EXPECT_TRUE(ops().processes().empty());

    // Bad names fail cleanly without throwing.
    sim->addFile("/music/noext", simFile("stream/unknown"));
    for (const std::string name : {"", "/music/noext", "icystream://", "http://", "/music/missing.wav"}) {
        SCOPED_TRACE(name);
        EXPECT_NO_THROW(EXPECT_FALSE(load(name)));
        EXPECT_TRUE(links().empty());
    }
}

TEST_F(GraphSessionTest, WithoutTheMp3DecoderASecondAcmWrapperDecodesAndUseAcmIsSet) {
    sim->unregisterFilter("MPEG Layer-3 Decoder");
    player->CreateNewGraph(false);
    EXPECT_TRUE(player->get_UseACM());
    EXPECT_EQ(countFilters("ACM Wrapper"), 2);
    EXPECT_TRUE(load(Mp3)) << player->get_LastError();
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

TEST_F(GraphSessionTest, ASecondItemReplacesOnlyTheSourceAndReusesWhatStands) {
    sim->addFile("/m/f.wav", simFile("stream/wave;float32"));
    ASSERT_TRUE(load(Mp3));
    const auto graph = player->mainGraph();
    ASSERT_TRUE(load(Wav)) << player->get_LastError();
    EXPECT_EQ(player->mainGraph(), graph);
    EXPECT_EQ(countFilters("File Source (Async.)"), 1);
    EXPECT_FALSE(links().count("MPEG-I Stream Splitter -> MPEG Layer-3 Decoder"));
    // Filters a chain put in stand for the next item of their kind, not doubled.
    for (const char* item : {"/m/f.wav", "/m/f.wav", Ogg, Ogg, M4a, M4a}) ASSERT_TRUE(load(item)) << item;
    for (const char* name : {"Brindle Format Converter", "Xiph.Org Vorbis Decoder PLUS", "dsf Ogg Demuxer2+",
                             "GDCL Mpeg-4 Demultiplexor2", "Microsoft DTV-DVD Audio Decoder"})
        EXPECT_LE(countFilters(name), 1) << name;
}

TEST_F(GraphSessionTest, CapabilitiesReadTheCatalogueWhichOnlyARefreshRenews) {
    const sim::FilterSpec demultiplexer = *sim->filterSpec("GDCL Mpeg-4 Demultiplexor2");
    sim->unregisterFilter("GDCL Mpeg-4 Demultiplexor2");
    player->Init();
    const int graphs = sim->graphsCreated();
    EXPECT_FALSE(player->IsMp4Capable());
    sim->registerFilter(demultiplexer);
    EXPECT_FALSE(player->IsMp4Capable());
    EXPECT_TRUE(player->IsMp4Capable(true));
    EXPECT_TRUE(player->IsOggCapable());
    EXPECT_EQ(sim->graphsCreated(), graphs); // nothing is made to find out
    // Ogg is tried on a refresh: a demuxer that cannot be made is no Ogg.
    sim->failAlways(FaultPoint::CreateFilter, "dsf Ogg Demuxer2+", kInjected);
    EXPECT_TRUE(player->IsOggCapable());
    EXPECT_FALSE(player->IsOggCapable(true));
}

TEST_F(GraphSessionTest, ReplacingAStandingGraphEndsItsItemAndTearsItDownInOrder) {
    ASSERT_TRUE(load(Mp3));
    const auto old = player->mainGraph();
    host.clear();
    player->CreateNewGraph(false);
    EXPECT_NE(player->mainGraph(), old);
    EXPECT_EQ(host.endOfStreams, (std::vector<int32_t>{0}));
    EXPECT_TRUE(inOrder(host.log, {"DestroyGraph: stopping the graph", "DestroyGraph: removin the source filter",
                                   "DestroyGraph: removin all filters", "removin all filters done", "cuehelper...",
                                   "helper...", "stopping helper graph...", "setting helper graph to nada...",
                                   "destroygraphcomplete"}));
    EXPECT_EQ(host.count("IsPFLButtonRequired: false"), 1);
    EXPECT_TRUE(links().empty());
    EXPECT_TRUE(load(Mp3)) << player->get_LastError();
    EXPECT_EQ(chain(), kMp3Route);
}

TEST_F(GraphSessionTest, WhileAStreamOpensTheGraphIsNeitherDestroyedNorReplaced) {
    sim->addStream(Stream, {.afterMs = 500, .levels = {}});
    player->CreateNewGraph(false);
    const auto graph = player->mainGraph();
    sim->eventLoop().post([&] { EXPECT_NO_THROW(player->CreateNewGraph(false)); }); // a host during the wait
    ASSERT_TRUE(load(Stream)) << player->get_LastError();
    EXPECT_EQ(player->mainGraph(), graph);
    EXPECT_TRUE(links().count("_DShowShoutCast -> Brindle Pitch Shifter"));
}

} // namespace
} // namespace corvid::testing
