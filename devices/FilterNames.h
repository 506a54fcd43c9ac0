#pragma once
// The display names of the registered filters the player builds its graphs from, each spelled
// once. They are the names the catalogue lists and the operators read in the log; the platforms
// register a filter under each (see docs/native.md for what stands behind them on Linux).

namespace corvid::filters {

// Sources.
inline constexpr const char* kFileSource = "File Source (Async.)";
inline constexpr const char* kStreamSource = "_DShowShoutCast";
inline constexpr const char* kFlacSource = "Native FLAC Decoder";
inline constexpr const char* kOggSource = "OggDSFMux2";
inline constexpr const char* kOwnReader = "Halden WM ASF Reader";
inline constexpr const char* kWmReader = "WM ASF READER";     // how the catalogue lists it
inline constexpr const char* kWmReaderName = "WM ASF Reader"; // how it names itself

// Parsers, decoders and converters of the format chains.
inline constexpr const char* kSplitter = "MPEG-I Stream Splitter";
inline constexpr const char* kMp3Decoder = "MPEG Layer-3 Decoder";
inline constexpr const char* kAcmWrapper = "ACM Wrapper";
inline constexpr const char* kWaveParser = "Wave Parser";
inline constexpr const char* kFormatConverter = "Brindle Format Converter";
inline constexpr const char* kWmaDecoder = "WMAudio Decoder DMO";
inline constexpr const char* kOggDemuxer = "dsf Ogg Demuxer2+";
inline constexpr const char* kVorbisDecoder = "Xiph.Org Vorbis Decoder PLUS";
inline constexpr const char* kMp4Parser = "GDCL Mpeg-4 Demultiplexor2";
inline constexpr const char* kMp4Decoder = "Microsoft DTV-DVD Audio Decoder";

// The player's own inserts.
inline constexpr const char* kSampleGrabber = "Halden Sample Grabber";
inline constexpr const char* kPitchShifter = "Brindle Pitch Shifter";
inline constexpr const char* kPipeSender = "Pipe Sender";

} // namespace corvid::filters
