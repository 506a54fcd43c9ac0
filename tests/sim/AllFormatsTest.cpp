// Every kind of item the player plays, built one after the other by BuildGraph in one player on
// one standard machine: the chain that stands from the source to the output device, through the
// sample grabber (streams deliberately bypass it).

#include "platform/sim/SimPlatform.h"
#include "tests/sim/PlayerInternals.h"
#include "tests/sim/RecordingEvents.h"

#include <gtest/gtest.h>

namespace corvid {
namespace {

struct Kind {
    const char* item;
    const char* mediaType; // empty: a stream address
    const char* chain;     // source > ... > (the device follows)
};

const Kind kKinds[] = {
    {"/music/a.mp3", "stream/mpeg-audio",
     "File Source (Async.) > MPEG-I Stream Splitter > MPEG Layer-3 Decoder > Halden Sample Grabber"},
    {"/music/b.flac", "stream/flac", "Native FLAC Decoder > Halden Sample Grabber"},
    {"/music/c.wav", "stream/wave;pcm16", "File Source (Async.) > Wave Parser > Halden Sample Grabber"},
    {"/music/d.wma", "stream/asf;wma", "WM ASF Reader > WMAudio Decoder DMO > Halden Sample Grabber"},
    {"/music/e.asf", "stream/asf;wma", "WM ASF Reader > WMAudio Decoder DMO > Halden Sample Grabber"},
    {"/music/f.ogg", "stream/ogg;vorbis",
     "OggDSFMux2 > dsf Ogg Demuxer2+ > Xiph.Org Vorbis Decoder PLUS > Halden Sample Grabber"},
    {"/music/g.m4a", "stream/mp4;aac",
     "File Source (Async.) > GDCL Mpeg-4 Demultiplexor2 > Microsoft DTV-DVD Audio Decoder > "
     "Halden Sample Grabber"},
    {"icystream://127.0.0.1:8000/live", "", "_DShowShoutCast"},
    // No chain of its own: the MP3 chain takes it as the first fallback.
    {"/music/h.mp2", "stream/mpeg-audio",
     "File Source (Async.) > MPEG-I Stream Splitter > MPEG Layer-3 Decoder > Halden Sample Grabber"},
};

// The filters upstream of the device, from the source down.
std::string chainBefore(const platform::PinPtr& renderIn) {
    std::string chain;
    platform::PinPtr pin = renderIn;
    for (int step = 0; step < 16 && pin && pin->connectedTo(); ++step) {
        auto up = pin->connectedTo()->filter();
        chain = chain.empty() ? up->name() : up->name() + " > " + chain;
        platform::PinPtr upIn, upOut;
        PlayerInternals::getPins(upIn, upOut, up);
        pin = upIn;
    }
    return chain;
}

TEST(AllFormatsTest, EveryKindBuildsItsChainOnOneMachine) {
    auto sim = sim::SimPlatform::standardMachine();
    for (const auto& kind : kKinds) {
        if (*kind.mediaType) {
            sim::SimFile file;
            file.mediaType = kind.mediaType;
            file.durationSeconds = 120;
            sim->addFile(kind.item, file);
        } else {
            sim->addStream(kind.item, sim::SimStream{});
        }
    }

    Player player(*sim);
    PlayerInternals in(player);
    testing::RecordingEvents events;
    player.setEvents(&events);
    bool on = true;
    player.put_LoggingEnabled(on);
    bool banned = false;
    player.put_ASFReaderBanned(banned);
    player.Init();

    for (const auto& kind : kKinds) {
        SCOPED_TRACE(kind.item);
        events.clear();
        ASSERT_TRUE(in.buildGraph(kind.item, false, true)) << player.get_LastError();
        const platform::PinPtr renderIn = in.soundCardInPin();
        ASSERT_TRUE(renderIn);
        EXPECT_EQ(chainBefore(renderIn), kind.chain);

        // Exactly one grabber stands in the graph, and it is the player's.
        int grabbers = 0;
        for (const auto& f : player.mainGraph()->filters())
            if (f->name() == "Halden Sample Grabber") ++grabbers;
        EXPECT_EQ(grabbers, 1);
        ASSERT_TRUE(in.sampleGrabber());
        EXPECT_EQ(in.sampleGrabber()->name(), "Halden Sample Grabber");
    }
    EXPECT_TRUE(events.logged("trying ConnectMp3Filters (after fail)...")); // the .mp2 item
}

TEST(AllFormatsTest, SpeakerPairOutputGetsItsRouterBeforeTheDevice) {
    auto sim = sim::SimPlatform::standardMachine();
    sim::SimFile file;
    file.mediaType = "stream/wave;pcm16";
    file.durationSeconds = 60;
    sim->addFile("/music/c.wav", file);
    Player player(*sim);
    PlayerInternals in(player);
    player.Init();
    std::string pair = std::string(sim::names::SurroundDevice) + " [3-4]";
    ASSERT_TRUE(player.SetSoundcard(pair));

    ASSERT_TRUE(in.buildGraph("/music/c.wav", false, true)) << player.get_LastError();
    EXPECT_EQ(chainBefore(in.soundCardInPin()),
              "File Source (Async.) > Wave Parser > Halden Sample Grabber > Sondrel 3-4");
}

} // namespace
} // namespace corvid
