// Cue-in and segue points on made files in every format, against the points the signals were
// designed with and against one pass of the sound rule over the whole file as the ffmpeg
// command decodes it; the playback position after seeks; corvid-analyse over a folder.

#include "NativeTestSupport.h"

#include "platform/native/analysis/Analyser.h"
#include "platform/native/filters/FFmpeg.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace corvid::native::test {
namespace {

constexpr int kRate = 44100;
constexpr int32_t kThreshold = 500;
const std::atomic<bool> kGoOn{false};

double tone(double t) { return std::sin(2 * M_PI * 1000 * t); }
bool within(double t, double from, double to) { return t >= from && t < to; }

struct Signal {
    const char* name;
    double seconds;
    double (*sample)(double t);
    int32_t cueMs, segueMs; // as designed; -1: no sound
    // On a slow decay a lossy codec's small level error moves the crossing by tens of ms: there
    // only the whole-file pass says where the decoded audio ends.
    bool slowEnd = false;
};

const Signal kSignals[] = {
    {"gaps", 9, [](double t) { return within(t, 1.5, 7.5) ? 0.5 * tone(t) : 0; }, 1500, 7500},
    {"clicks", 9, [](double t) {
         const bool click = within(t, 0.5, 0.5005) || within(t, 8.2, 8.2005);
         return click ? 0.9 : within(t, 1.5, 7.5) ? 0.5 * tone(t) : 0; }, 1500, 7500},
    {"offset", 9, [](double t) { return 0.1 + (within(t, 1.5, 7.5) ? 0.4 * tone(t) : 0); }, 1500, 7500},
    {"fadein", 9, [](double t) { return within(t, 1, 7.5) ? std::min(1.0, (t - 1) / 3) * 0.5 * tone(t) : 0; },
     1092, 7500},
    {"cold", 8, [](double t) { return 0.5 * tone(t); }, 0, 8000},
    {"sustained", 30, [](double t) { return t < 1.5 ? 0 : 0.5 * tone(t) * (t < 4 ? 1 : std::exp(-(t - 4) / 5)); },
     1500, 21451, true},
    {"silent", 3, [](double) { return 0.0; }, -1, -1},
};

struct Format {
    const char* ext;
    const char* codec;
    // Lossless: the design to the millisecond; lossy: the whole-file pass to the millisecond and
    // the design within 10 ms; WMA: the whole-file pass to the millisecond, the design within
    // one of its 2048-sample frames (its first frame out is the encoder's second) and no clicks
    // or offsets (it spreads them over a frame).
    enum { Lossless, Lossy, Frames } kind;
};
const Format kFormats[] = {{"wav", "pcm_s16le", Format::Lossless}, {"flac", "flac", Format::Lossless},
                           {"mp3", "libmp3lame -b:a 192k", Format::Lossy}, {"ogg", "libvorbis -q:a 6", Format::Lossy},
                           {"m4a", "aac -b:a 192k", Format::Lossy}, {"wma", "wmav2 -b:a 192k", Format::Frames}};
void PrintTo(const Format& f, std::ostream* os) { *os << f.ext; }

std::string made(const Signal& s, const Format& f) {
    const std::string dir = workDir() + "/analysis/", wav = dir + s.name + ".wav";
    const std::string out = dir + s.name + "." + f.ext;
    if (std::filesystem::exists(out)) return out;
    std::filesystem::create_directories(dir);
    if (!std::filesystem::exists(wav)) {
        const int frames = int(s.seconds * kRate);
        std::vector<int16_t> pcm(size_t(frames) * 2);
        for (int i = 0; i < frames; ++i)
            pcm[2 * size_t(i)] = pcm[2 * size_t(i) + 1] = int16_t(std::lround(32767 * s.sample(double(i) / kRate)));
        std::ofstream(dir + "pcm.raw", std::ios::binary)
            .write(reinterpret_cast<const char*>(pcm.data()), std::streamsize(pcm.size() * 2));
        EXPECT_EQ(runCommand("ffmpeg -nostdin -v error -y -f s16le -ar 44100 -ac 2 -i " + dir + "pcm.raw " + wav), 0);
    }
    if (out != wav) {
        EXPECT_EQ(runCommand("ffmpeg -nostdin -v error -y -i " + wav + " -c:a " + f.codec + " " + out), 0);
    }
    return out;
}

// The sound rule over all of the file as the ffmpeg command decodes it, in one pass.
std::pair<int32_t, int32_t> wholeFilePoints(const std::string& file) {
    const std::string raw = file + ".f32";
    EXPECT_EQ(runCommand("ffmpeg -nostdin -v error -y -i " + file + " -f f32le -ac 2 -ar 44100 " + raw), 0);
    std::stringstream bytes;
    bytes << std::ifstream(raw, std::ios::binary).rdbuf();
    const std::string data = bytes.str();
    std::vector<float> pcm(data.size() / 4);
    std::memcpy(pcm.data(), data.data(), pcm.size() * 4);
    SoundDetector d(kRate, 2, kThreshold);
    d.feed(0, pcm.data(), pcm.size() / 2);
    d.finish();
    auto ms = [](int64_t s) { return s < 0 ? -1 : int32_t(std::lround(s * 1000.0 / kRate)); };
    return {ms(d.firstSound()), ms(d.soundEnd())};
}

class AnalysisAccuracy : public ::testing::TestWithParam<Format> {};

TEST_P(AnalysisAccuracy, PointsMatchTheWholeFileAndTheDesign) {
    const Format f = GetParam();
    const double frames = 2048.0 * 1000 / kRate + 1;
    ItemScanner scanner;
    for (const Signal& s : kSignals) {
        SCOPED_TRACE(s.name);
        if (f.kind == Format::Frames && (s.name == std::string("clicks") || s.name == std::string("offset"))) continue;
        const std::string file = made(s, f);
        const int32_t cue = scanCueIn(file, kThreshold, kGoOn), segue = scanSegue(file, kThreshold, kGoOn);
        // Kept open from the cue-in scan, the item gives the same segue.
        EXPECT_EQ(scanner.cueIn(file, kThreshold, kGoOn), cue);
        EXPECT_EQ(scanner.segue(file, kThreshold, kGoOn), segue);
        if (f.kind != Format::Lossless) {
            const auto [refCue, refSegue] = wholeFilePoints(file);
            EXPECT_NEAR(cue, refCue, 1);
            EXPECT_NEAR(segue, refSegue, 1);
        }
        const double design = f.kind == Format::Lossless ? 1 : f.kind == Format::Lossy ? 10 : frames;
        EXPECT_NEAR(cue, s.cueMs, design);
        if (!s.slowEnd || f.kind == Format::Lossless) {
            EXPECT_NEAR(segue, s.segueMs, design);
        }
        std::unique_ptr<DecodedAudio> audio;
        ASSERT_TRUE(DecodedAudio::openFile(file, scannableFormats(), audio));
        EXPECT_NEAR(audio->durationSeconds(), s.seconds, f.kind == Format::Frames ? frames / 1000 : 0.001);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, AnalysisAccuracy, ::testing::ValuesIn(kFormats),
                         [](const auto& info) { return std::string(info.param.ext); });

// The position playback reports is where it was sought to plus the samples played since; the
// sound must end at the same position in the MP3 and the M4A (with their encoder delay and
// padding) as in their master, and a seek to the start must give the samples of a fresh open.
TEST(AnalysisTimeline, AfterASeekTheEncodedItemSoundsWhereItsMasterDoes) {
    for (const Format& f : {kFormats[0], kFormats[2], kFormats[4]}) {
        const std::string file = made(kSignals[0], f);
        double freshSum = 0;
        for (double from : {-1.0, 0.0, 1.0, 4.321, 7.2}) { // -1: no seek
            SCOPED_TRACE(file + " from " + std::to_string(from));
            std::unique_ptr<DecodedAudio> audio;
            ASSERT_TRUE(DecodedAudio::openFile(file, scannableFormats(), audio));
            if (from >= 0) {
                ASSERT_TRUE(audio->seek(from));
            }
            SoundDetector d(kRate, 2, kThreshold);
            int64_t played = std::llround(std::max(from, 0.0) * kRate);
            double sum = 0;
            while (audio->next([&](std::vector<uint8_t>&& bytes, double) {
                const auto* pcm = reinterpret_cast<const float*>(bytes.data());
                d.feed(played, pcm, bytes.size() / 8);
                for (size_t i = 0; i < bytes.size() / 4; ++i) sum += std::fabs(pcm[i]) * double(i + 1);
                played += int64_t(bytes.size() / 8);
            })) {}
            d.finish();
            EXPECT_NEAR(d.soundEnd() * 1000.0 / kRate, 7500, 1);
            EXPECT_NEAR(played * 1000.0 / kRate, 9000, 1);
            if (from < 0) freshSum = sum;
            if (from == 0) {
                EXPECT_EQ(sum, freshSum);
            }
        }
    }
}

std::string run(const std::string& command, int& status) {
    const std::string out = workDir() + "/analysis/out.txt";
    status = runCommand(command + " > " + out + " 2> " + out + ".err");
    std::stringstream text;
    text << std::ifstream(out).rdbuf() << std::ifstream(out + ".err").rdbuf();
    return text.str();
}

TEST(AnalysisTool, AFolderGivesTheCueHelpersPointsAndNamesWhatItCannotRead) {
    const std::string dir = workDir() + "/analysis/library";
    std::filesystem::create_directories(dir);
    // In the order the tool lists a folder: by name.
    const std::string files[] = {made(kSignals[1], kFormats[1]), made(kSignals[3], kFormats[3]),
                                 made(kSignals[0], kFormats[2])};
    std::string expected;
    for (const auto& file : files) {
        const std::string copy = dir + "/" + std::filesystem::path(file).filename().string();
        std::filesystem::copy_file(file, copy, std::filesystem::copy_options::overwrite_existing);
        char line[160];
        std::snprintf(line, sizeof line, "\"cue_in\":%.3f,\"segue\":%.3f",
                      scanCueIn(file, kThreshold, kGoOn) / 1000.0, scanSegue(file, kThreshold, kGoOn) / 1000.0);
        expected += line;
    }
    ASSERT_EQ(runCommand("head -c 3000 /dev/urandom > " + dir + "/broken.wav"), 0);
    int status = 0;
    std::string out = run(std::string(CORVID_ANALYSE_TOOL) + " --jobs 2 " + dir, status);
    EXPECT_EQ(status, 1) << out;
    EXPECT_NE(out.find("cannot read " + dir + "/broken.wav"), std::string::npos) << out;
    std::string points;
    for (size_t at = 0; (at = out.find("\"cue_in\"", at)) != std::string::npos; at += 8)
        points += out.substr(at, out.find(",\"duration\"", at) - at);
    EXPECT_EQ(points, expected) << out;

    out = run(std::string(CORVID_ANALYSE_TOOL) + " --csv " + files[2], status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(out.substr(0, out.find('\n')), "file,cue_in,segue,duration,artist,title,year,genre");
    EXPECT_NE(out.find(files[2] + ",1.500,7.500,9.000,"), std::string::npos) << out;
}

} // namespace
} // namespace corvid::native::test
