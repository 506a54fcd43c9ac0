// The analysis benchmark: Corvid's cue-in and segue scans and its load, side by side in one run
// with libavformat/libavcodec used directly in this process and with the ffmpeg command as a
// host would run it, printed as ratios. The files come from bench/analysis.sh:
//   corvid_bench_analysis MEDIA_FOLDER   (4min.EXT, 60min.EXT for every format, library/)
//  - cue plus segue (the cue helper's two scans, sharing one open) against decoding the whole file
//    with libavcodec, and against `ffmpeg -af silencedetect`;
//  - the same scans on the 60-minute file against the 4-minute one;
//  - the load (open, and the first decoded block) against libavformat's open and stream
//    analysis plus the first decoded frame; a fresh Player's load against a reused one's;
//  - corvid-analyse over the library folder against silencedetect run once per file.

#include "SideBySide.h"
#include <corvid/Player.h>
#include "platform/native/NativePlatform.h"
#include "platform/native/analysis/Analyser.h"
#include "platform/native/filters/FFmpeg.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using corvid::bench::sideBySide;

const char* const kFormats[] = {"wav", "flac", "mp3", "ogg", "m4a", "wma"};
constexpr int32_t kThreshold = 500;
// -36 dBFS: the level 500 on the 16-bit scale, as silencedetect takes it.
constexpr const char* kSilenceDetect = "silencedetect=noise=-36dB:duration=0.02";
const std::atomic<bool> kGoOn{false};

// libavformat and libavcodec as their own examples use them: open, analyse the streams, open
// the decoder, decode. Stops after the first frame when `firstOnly`.
int64_t libavDecode(const std::string& file, bool firstOnly) {
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, file.c_str(), nullptr, nullptr) < 0) return -1;
    int64_t samples = -1;
    AVCodecContext* codec = nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    const int stream = avformat_find_stream_info(format, nullptr) < 0
                           ? -1
                           : av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    const AVCodec* decoder =
        stream < 0 ? nullptr : avcodec_find_decoder(format->streams[stream]->codecpar->codec_id);
    if (decoder && (codec = avcodec_alloc_context3(decoder)) &&
        avcodec_parameters_to_context(codec, format->streams[stream]->codecpar) >= 0 &&
        avcodec_open2(codec, decoder, nullptr) >= 0) {
        samples = 0;
        bool done = false;
        while (!done && av_read_frame(format, packet) >= 0) {
            if (packet->stream_index == stream && avcodec_send_packet(codec, packet) >= 0)
                while (avcodec_receive_frame(codec, frame) >= 0) {
                    samples += frame->nb_samples;
                    done = firstOnly;
                }
            av_packet_unref(packet);
        }
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&codec);
    avformat_close_input(&format);
    return samples;
}

void cueAndSegue(const std::string& file) {
    corvid::native::ItemScanner scanner;
    scanner.cueIn(file, kThreshold, kGoOn);
    scanner.segue(file, kThreshold, kGoOn);
}

void corvidLoad(const std::string& file) {
    std::unique_ptr<corvid::native::DecodedAudio> audio;
    if (corvid::native::DecodedAudio::openFile(file, corvid::native::scannableFormats(), audio))
        audio->next([](std::vector<uint8_t>&&, double) {});
}

void run(const std::string& command) {
    if (std::system(command.c_str()) != 0) std::fprintf(stderr, "failed: %s\n", command.c_str());
}

std::string silenceDetect(const std::string& file) {
    return "ffmpeg -nostdin -hide_banner -loglevel error -i '" + file + "' -af " + kSilenceDetect +
           " -f null - 2>/dev/null";
}

// The load alone: the fresh players are made and initialised before the clock runs.
void playerLoads(const std::string& media) {
    corvid::native::NativeOptions options;
    options.output = corvid::native::OutputBackend::Silent;
    corvid::native::NativePlatform platform(options);
    constexpr int kRounds = 15;
    std::vector<std::unique_ptr<corvid::Player>> fresh;
    for (int i = 0; i <= kRounds; ++i) {
        fresh.push_back(std::make_unique<corvid::Player>(platform));
        fresh.back()->Init();
    }
    corvid::Player& reused = *fresh.back();
    const std::string items[] = {media + "/4min.mp3", media + "/4min.wav"};
    int which = 0, next = 0;
    auto load = [&](corvid::Player& player) {
        std::string item = items[which++ % 2];
        player.put_FileName(item);
    };
    const auto ms = sideBySide(kRounds, {[&] { load(reused); }, [&] { load(*fresh[size_t(next++)]); }});
    std::printf("\nPlayer load (MP3 and WAV in turn, silent device): reused %.2f ms, fresh %.2f ms "
                "(fresh/reused %.2f)\n",
                ms[0], ms[1], ms[1] / ms[0]);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: corvid_bench_analysis MEDIA_FOLDER (made by bench/analysis.sh)\n");
        return 2;
    }
    const std::string media = argv[1];
    auto file = [&](int minutes, const char* ext) {
        return media + "/" + std::to_string(minutes) + "min." + ext;
    };
    corvid::native::initFFmpeg();
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // each line as it is measured, also into a file

    std::printf("Cue plus segue on 4-minute files, against the whole file decoded (median ms)\n");
    std::printf("%-5s %9s %11s %7s %14s %7s\n", "", "corvid", "libav-whole", "ratio", "silencedetect",
                "ratio");
    for (const char* ext : kFormats) {
        const std::string f = file(4, ext);
        const auto ms = sideBySide(5, {[&] { cueAndSegue(f); }, [&] { libavDecode(f, false); },
                                       [&] { run(silenceDetect(f)); }});
        std::printf("%-5s %9.2f %11.1f %6.0fx %14.1f %6.0fx\n", ext, ms[0], ms[1], ms[1] / ms[0], ms[2],
                    ms[2] / ms[0]);
    }

    std::printf("\nCue plus segue, 60 minutes against 4 minutes (median ms)\n");
    std::printf("%-5s %9s %9s %7s\n", "", "4 min", "60 min", "ratio");
    for (const char* ext : kFormats) {
        const std::string four = file(4, ext), sixty = file(60, ext);
        const auto ms = sideBySide(9, {[&] { cueAndSegue(four); }, [&] { cueAndSegue(sixty); }});
        std::printf("%-5s %9.2f %9.2f %6.2fx\n", ext, ms[0], ms[1], ms[1] / ms[0]);
    }

    std::printf("\nLoad: open and first decoded block, against libavformat's open, stream analysis and "
                "first frame (median ms)\n");
    std::printf("%-5s %9s %9s %7s\n", "", "corvid", "libav", "ratio");
    for (const char* ext : kFormats) {
        const std::string f = file(4, ext);
        const auto ms = sideBySide(21, {[&] { corvidLoad(f); }, [&] { libavDecode(f, true); }});
        std::printf("%-5s %9.2f %9.2f %6.2fx\n", ext, ms[0], ms[1], ms[0] / ms[1]);
    }

    playerLoads(media);

    const std::string library = media + "/library";
    const std::string tool = (std::filesystem::path(argv[0]).parent_path() / "corvid-analyse").string();
    size_t count = 0;
    for (auto& entry : std::filesystem::directory_iterator(library)) count += entry.is_regular_file();
    const auto whole = sideBySide(1, {[&] { run(tool + " '" + library + "' > /dev/null 2>&1"); },
                                      [&] {
                                          run(tool + " --jobs 1 '" + library +
                                              "' > /dev/null 2>&1");
                                      },
                                      [&] {
                                          for (auto& entry : std::filesystem::directory_iterator(library))
                                              run(silenceDetect(entry.path().string()));
                                      }});
    std::printf("\ncorvid-analyse over %zu files: all cores %.0f ms, one thread %.0f ms; silencedetect "
                "file by file %.0f ms (%.0fx, %.0fx)\n",
                count, whole[0], whole[1], whole[2], whole[2] / whole[0], whole[2] / whole[1]);
    return 0;
}
