// The standard machine: one descriptor per filter the player uses, as a playout PC with every
// codec installed would have them registered. The media types are chosen so that the normal
// chains connect and the wrong ones fail where the real filters fail: a parser rejects a file
// of another kind when its input is connected, and every renderer takes 16-bit PCM only.
//
// File types:    stream/mpeg-audio, stream/wave;pcm16, stream/wave;float32, stream/asf;wma,
//                stream/asf;mp3, stream/ogg;vorbis, stream/flac, stream/mp4;aac
// Between pins:  audio/mpeg-layer3, audio/wma, audio/vorbis, audio/aac, audio/pcm16,
//                audio/pcm-float

#include "platform/sim/SimPlatform.h"

namespace corvid::sim {

namespace {

FilterSpec transform(std::string name, uint32_t meritValue, std::string inPin,
                     std::vector<std::string> accepts, std::string outPin,
                     std::vector<TypeRule> produces, bool appears = false) {
    FilterSpec f;
    f.displayName = std::move(name);
    f.kind = FilterKind::Transform;
    f.merit = meritValue;
    f.pins = {PinSpec::input(std::move(inPin), std::move(accepts)),
              PinSpec::output(std::move(outPin), std::move(produces), appears)};
    return f;
}

FilterSpec passThrough(std::string name, std::vector<std::string> accepts) {
    // Never chosen by intelligent connect: these are placed by the player itself.
    return transform(std::move(name), merit::DoNotUse, "Input", std::move(accepts), "Output",
                     {{"*", SameAsInput}});
}

// A source's output pins appear once its file is loaded.
FilterSpec source(std::string name, std::vector<std::string> fileTypes, std::string outPin,
                  std::vector<TypeRule> produces) {
    FilterSpec f;
    f.displayName = std::move(name);
    f.kind = FilterKind::Source;
    f.merit = merit::Normal;
    f.fileTypes = std::move(fileTypes);
    f.pins = {PinSpec::output(std::move(outPin), std::move(produces), true)};
    return f;
}

} // namespace

void addStandardFilters(SimPlatform& sim) {
    // Sources.
    sim.registerFilter(source("File Source (Async.)", {"*"}, "Output", {{"*", SameAsInput}}));
    sim.registerFilter(source("Native FLAC Decoder", {"stream/flac"}, "PCM Out",
                              {{"stream/flac", "audio/pcm16"}}));
    sim.registerFilter(source("Halden WM ASF Reader", {"stream/mpeg-audio", "stream/asf;*"},
                              "Audio", {{"*", "audio/pcm16"}}));
    {
        auto wm = source("WM ASF READER", {"stream/asf;*", "stream/mpeg-audio"}, "Raw Audio 0",
                         {{"stream/asf;wma", "audio/wma"},
                          {"stream/asf;mp3", "audio/mpeg-layer3"},
                          {"stream/mpeg-audio", "audio/mpeg-layer3"}});
        wm.instanceName = "WM ASF Reader";
        wm.opensAddresses = true;
        sim.registerFilter(std::move(wm));
    }
    sim.registerFilter(source("OggDSFMux2", {"stream/ogg;*"}, "Ogg Stream", {{"*", SameAsInput}}));
    {
        FilterSpec shout;
        shout.displayName = "_DShowShoutCast";
        shout.kind = FilterKind::StreamSource;
        shout.merit = merit::DoNotUse;
        shout.fileTypes = {"stream/*", "audio/*"};
        // Decodes what it receives; a stream registered with an "audio/..." type passes as is.
        shout.pins = {PinSpec::output("Audio", {{"stream/*", "audio/pcm16"}, {"audio/*", SameAsInput}},
                                      true)};
        shout.propertyPage = true;
        sim.registerFilter(std::move(shout));
    }

    // Parsers and demultiplexers: their output appears once their input is connected.
    sim.registerFilter(transform("MPEG-I Stream Splitter", merit::Normal, "Input",
                                 {"stream/mpeg-audio"}, "Audio",
                                 {{"stream/mpeg-audio", "audio/mpeg-layer3"}}, true));
    sim.registerFilter(transform("Wave Parser", merit::Normal, "input pin", {"stream/wave;*"},
                                 "output",
                                 {{"stream/wave;pcm16", "audio/pcm16"},
                                  {"stream/wave;float32", "audio/pcm-float"}},
                                 true));
    sim.registerFilter(transform("dsf Ogg Demuxer2+", merit::Normal, "Ogg Packet In",
                                 {"stream/ogg;*"}, "Vorbis Out",
                                 {{"stream/ogg;vorbis", "audio/vorbis"}}, true));
    sim.registerFilter(transform("GDCL Mpeg-4 Demultiplexor2", merit::Normal, "Input",
                                 {"stream/mp4;*"}, "Audio", {{"stream/mp4;aac", "audio/aac"}},
                                 true));

    // Decoders and converters.
    sim.registerFilter(transform("MPEG Layer-3 Decoder", merit::Normal, "XForm In",
                                 {"audio/mpeg-layer3"}, "XForm Out", {{"*", "audio/pcm16"}}));
    sim.registerFilter(transform("ACM Wrapper", merit::Unlikely + 1, "Input",
                                 {"audio/mpeg-layer3", "audio/pcm16"}, "Output",
                                 {{"*", "audio/pcm16"}}));
    sim.registerFilter(transform("WMAudio Decoder DMO", merit::Normal, "in0", {"audio/wma"},
                                 "out0", {{"*", "audio/pcm16"}}));
    sim.registerFilter(transform("Xiph.Org Vorbis Decoder PLUS", merit::Normal, "Vorbis In",
                                 {"audio/vorbis"}, "PCM Out", {{"*", "audio/pcm16"}}));
    sim.registerFilter(transform("Microsoft DTV-DVD Audio Decoder", merit::Normal, "XForm In",
                                 {"audio/aac"}, "XForm Out", {{"*", "audio/pcm16"}}));
    sim.registerFilter(transform("Brindle Format Converter", merit::Normal, "Input",
                                 {"audio/pcm*"}, "Output", {{"*", "audio/pcm16"}}));

    // The player's own pass-through filters.
    sim.registerFilter(passThrough("Halden Sample Grabber", {"audio/*"}));
    {
        auto pitch = passThrough("Brindle Pitch Shifter", {"audio/pcm16"});
        pitch.pitchShifter = true;
        pitch.propertyPage = true;
        sim.registerFilter(std::move(pitch));
    }
    {
        auto pipe = passThrough("Pipe Sender", {"audio/pcm16"});
        pipe.pipeSender = true;
        sim.registerFilter(std::move(pipe));
    }
    for (const char* pair : {"1-2", "3-4", "5-6", "7-8"}) {
        auto router = passThrough(std::string("Sondrel ") + pair, {"audio/pcm16"});
        router.speakerPair = pair;
        sim.registerFilter(std::move(router));
    }

    // Output devices.
    sim.addAudioRenderer(names::DefaultDevice, 2);
    sim.addAudioRenderer(names::DummyDevice, 2);
    sim.addAudioRenderer(names::SurroundDevice, 8);
}

} // namespace corvid::sim
