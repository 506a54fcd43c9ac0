// The one list of named native filters. Display names are the ones the player asks for by
// name; merit orders intelligent connect; the factory makes an instance.

#include "platform/native/Registry.h"

#include "platform/Catalogue.h"
#include "platform/native/filters/FFmpeg.h"
#include "platform/native/filters/Filters.h"
#include "platform/native/stream/StreamSource.h"

namespace corvid::native {

namespace {

using Input = FilterDescriptor::Input;
constexpr const char* kLegacy = platform::category::LegacyFilters;

// The demuxer names FFmpeg gives the containers each parser reads.
const std::vector<std::string> kMpegAudio = {"mp3", "mpeg"}; // MPEG audio, and MPEG-1 system streams
const std::vector<std::string> kWave = {"wav"};
const std::vector<std::string> kOgg = {"ogg"};
const std::vector<std::string> kMp4 = {"mov,mp4,m4a,3gp,3g2,mj2"};
const std::vector<std::string> kFlac = {"flac"};
// What the Windows Media readers open: ASF, and MPEG audio and WAVE as the platform's did.
const std::vector<std::string> kAsfReader = {"asf", "mp3", "wav"};

std::vector<FilterDescriptor> buildList() {
    std::vector<FilterDescriptor> list = {
        {"File Source (Async.)", kLegacy, merit::DoNotUse, Input::None,
         [] { return makeFileSource("File Source (Async.)", false); }},
        {"OggDSFMux2", kLegacy, merit::DoNotUse, Input::None,
         [] { return makeFileSource("OggDSFMux2", true); }},
        {"MPEG-I Stream Splitter", kLegacy, merit::Normal, Input::ByteStream,
         [] { return makeParser("MPEG-I Stream Splitter", kMpegAudio, "Audio"); }},
        {"Wave Parser", kLegacy, merit::Normal, Input::ByteStream,
         [] { return makeParser("Wave Parser", kWave, "output"); }},
        {"dsf Ogg Demuxer2+", kLegacy, merit::Normal, Input::ByteStream,
         [] { return makeParser("dsf Ogg Demuxer2+", kOgg, "Vorbis Out"); }},
        {"GDCL Mpeg-4 Demultiplexor2", kLegacy, merit::Normal, Input::ByteStream,
         [] { return makeParser("GDCL Mpeg-4 Demultiplexor2", kMp4, "Audio"); }},
        {"MPEG Layer-3 Decoder", kLegacy, merit::Preferred, Input::Compressed,
         [] {
             return makeDecoder("MPEG Layer-3 Decoder",
                                {AV_CODEC_ID_MP3, AV_CODEC_ID_MP2, AV_CODEC_ID_MP1});
         }},
        {"WMAudio Decoder DMO", kLegacy, merit::Normal, Input::Compressed,
         [] {
             return makeDecoder("WMAudio Decoder DMO",
                                {AV_CODEC_ID_WMAV1, AV_CODEC_ID_WMAV2, AV_CODEC_ID_WMAPRO,
                                 AV_CODEC_ID_WMALOSSLESS, AV_CODEC_ID_WMAVOICE});
         }},
        {"Xiph.Org Vorbis Decoder PLUS", kLegacy, merit::Normal, Input::Compressed,
         [] { return makeDecoder("Xiph.Org Vorbis Decoder PLUS", {AV_CODEC_ID_VORBIS}); }},
        {"Microsoft DTV-DVD Audio Decoder", kLegacy, merit::Normal, Input::Compressed,
         [] {
             return makeDecoder("Microsoft DTV-DVD Audio Decoder",
                                {AV_CODEC_ID_AAC, AV_CODEC_ID_AC3, AV_CODEC_ID_EAC3});
         }},
        {"Native FLAC Decoder", kLegacy, merit::DoNotUse, Input::None,
         [] { return makeDecodingSource("Native FLAC Decoder", kFlac); }},
        {"Halden WM ASF Reader", kLegacy, merit::DoNotUse, Input::None,
         [] { return makeDecodingSource("Halden WM ASF Reader", kAsfReader); }},
        {"WM ASF READER", kLegacy, merit::DoNotUse, Input::None,
         [] { return makeDecodingSource("WM ASF Reader", kAsfReader); }},
        {"_DShowShoutCast", kLegacy, merit::DoNotUse, Input::None,
         [] { return makeNetworkStreamSource("_DShowShoutCast"); }},
        {"ACM Wrapper", kLegacy, merit::Normal, Input::Pcm,
         [] { return makeConverter("ACM Wrapper", true); }},
        {"Brindle Format Converter", kLegacy, merit::Unlikely, Input::Pcm,
         [] { return makeConverter("Brindle Format Converter", false); }},
        {"Halden Sample Grabber", kLegacy, merit::DoNotUse, Input::Pcm,
         [] { return std::make_shared<SampleGrabberFilter>("Halden Sample Grabber"); }},
        {"Brindle Pitch Shifter", kLegacy, merit::DoNotUse, Input::Pcm,
         [] { return makePitchShifter("Brindle Pitch Shifter"); }},
        {"Pipe Sender", kLegacy, merit::DoNotUse, Input::Pcm,
         [] { return makePipeSender("Pipe Sender"); }},
    };
    const char* pairs[] = {"Sondrel 1-2", "Sondrel 3-4", "Sondrel 5-6", "Sondrel 7-8"};
    for (int pair = 0; pair < 4; ++pair) {
        const char* name = pairs[pair];
        list.push_back({name, kLegacy, merit::DoNotUse, Input::Pcm,
                        [name, pair] { return makeChannelRouter(name, pair); }});
    }
    return list;
}

} // namespace

const std::vector<FilterDescriptor>& registeredFilters() {
    static const std::vector<FilterDescriptor> list = buildList();
    return list;
}

NativeFilterPtr makeRegisteredFilter(const std::string& displayName) {
    for (auto& d : registeredFilters())
        if (displayName == d.displayName) return d.factory();
    return nullptr;
}

std::string instanceName(const FilterDescriptor& descriptor) {
    if (std::string(descriptor.displayName) == "WM ASF READER") return "WM ASF Reader";
    return descriptor.displayName;
}

} // namespace corvid::native
