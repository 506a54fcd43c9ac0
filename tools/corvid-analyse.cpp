// corvid-analyse: analyses many files or whole folders as a station imports its library: the
// cue-in and segue points (the same scans the player's cue helper runs), the duration and the
// tags the player reports (artist, title, year, genre), one record per file, as JSON lines or
// CSV, on all cores. A progress bar goes to a terminal; every file that cannot be read gets a
// line of its own on stderr, and the exit status says whether any failed.

#include "platform/Text.h"
#include "platform/native/TagLibReader.h"
#include "platform/native/analysis/Analyser.h"
#include "support/MediaTags.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: corvid-analyse [--csv] [--jobs N] [--cue-threshold N] [--segue-threshold N] PATH...\n"
    "  PATH: audio files, or folders searched for them (mp3 wav ogg flac m4a mp4 wma)\n"
    "  output: one JSON object per line (default) or CSV with a header, on stdout\n"
    "  thresholds: on the 16-bit sample scale, 500 unless given\n"
    "  exit status: 0 every file analysed, 1 some could not be read, 2 nothing to do\n";

constexpr const char* kExtensions[] = {".mp3", ".wav", ".ogg", ".flac", ".m4a", ".mp4", ".wma"};
constexpr int kDefaultThreshold = 500;

struct Options {
    std::vector<std::string> paths;
    bool csv = false;
    unsigned jobs = 0;
    int cueThreshold = kDefaultThreshold;
    int segueThreshold = kDefaultThreshold;
};

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        if (a == "--csv") o.csv = true;
        else if (a == "--json") o.csv = false;
        else if (a == "--jobs" && hasValue) o.jobs = unsigned(std::max(1, std::atoi(argv[++i])));
        else if (a == "--cue-threshold" && hasValue) o.cueThreshold = std::atoi(argv[++i]);
        else if (a == "--segue-threshold" && hasValue) o.segueThreshold = std::atoi(argv[++i]);
        else if (a.rfind("--", 0) == 0) return false;
        else o.paths.push_back(a);
    }
    return !o.paths.empty();
}

bool isAudioName(const fs::path& p) {
    const std::string name = p.filename().string();
    return std::any_of(std::begin(kExtensions), std::end(kExtensions),
                       [&](const char* e) { return corvid::text::endsWithNoCase(name, e); });
}

// Folders are walked in name order, so that two runs over one library list it alike.
std::vector<std::string> collect(const std::vector<std::string>& paths) {
    std::vector<std::string> files;
    for (const auto& path : paths) {
        std::error_code ec;
        if (!fs::is_directory(path, ec)) {
            files.push_back(path); // named on purpose: analysed, or reported, whatever its name
            continue;
        }
        std::vector<std::string> found;
        for (auto it = fs::recursive_directory_iterator(path, fs::directory_options::skip_permission_denied, ec);
             !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
            if (it->is_regular_file(ec) && isAudioName(it->path())) found.push_back(it->path().string());
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

struct Record {
    bool done = false;
    bool ok = false;
    std::string error;
    corvid::native::ItemPoints points;
    std::string artist, title, year, genre;
};

void analyse(const std::string& file, const Options& o, Record& r) {
    static const std::atomic<bool> never{false};
    const corvid::platform::Status s =
        corvid::native::analyseItem(file, o.cueThreshold, o.segueThreshold, r.points, never);
    r.ok = s.ok();
    if (!r.ok) {
        r.error = s.description;
        return;
    }
    corvid::native::TagLibReader reader;
    corvid::MediaTags tags(reader);
    if (tags.Open(file).ok()) {
        r.artist = tags.get_WMAArtist();
        r.title = tags.get_WMATitle();
        r.year = tags.get_WMAYear();
        r.genre = tags.get_WMAGenre();
    }
    tags.Clear();
}

std::string jsonString(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') out += '\\', out += char(c);
        else if (c == '\n') out += "\\n";
        else if (c == '\t') out += "\\t";
        else if (c < 0x20) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", c);
            out += esc;
        } else out += char(c);
    }
    return out + "\"";
}

std::string csvField(const std::string& s) {
    if (s.find_first_of(",\"\n\r") == std::string::npos) return s;
    std::string out = "\"";
    for (char c : s) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
}

// Seconds with the millisecond the events carry; a point not found is empty (null in JSON).
std::string seconds(double value, bool found) {
    if (!found) return {};
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", value);
    return text;
}

std::string format(const std::string& file, const Record& r, bool csv) {
    const auto& p = r.points;
    const std::string cue = seconds(p.cueInMs / 1000.0, p.cueInMs >= 0);
    const std::string segue = seconds(p.segueMs / 1000.0, p.segueMs >= 0);
    const std::string duration = seconds(p.durationSeconds, p.durationSeconds > 0);
    if (csv)
        return csvField(file) + "," + cue + "," + segue + "," + duration + "," + csvField(r.artist) +
               "," + csvField(r.title) + "," + csvField(r.year) + "," + csvField(r.genre) + "\n";
    auto number = [](const std::string& v) { return v.empty() ? std::string("null") : v; };
    return "{\"file\":" + jsonString(file) + ",\"cue_in\":" + number(cue) + ",\"segue\":" +
           number(segue) + ",\"duration\":" + number(duration) + ",\"artist\":" + jsonString(r.artist) +
           ",\"title\":" + jsonString(r.title) + ",\"year\":" + jsonString(r.year) +
           ",\"genre\":" + jsonString(r.genre) + "}\n";
}

// The bar goes to stderr on a terminal, and only while stdout is not a pipe into another
// program: output redirected to a file still shows how far an import has come.
bool wantsProgressBar() {
    struct stat out{};
    const bool piped = fstat(STDOUT_FILENO, &out) == 0 && S_ISFIFO(out.st_mode);
    return isatty(STDERR_FILENO) && !piped;
}

void drawBar(size_t done, size_t total, size_t failed) {
    constexpr int kWidth = 40;
    const int filled = total ? int(kWidth * done / total) : kWidth;
    std::fprintf(stderr, "\r[%s%s] %zu/%zu%s", std::string(size_t(filled), '#').c_str(),
                 std::string(size_t(kWidth - filled), '.').c_str(), done, total,
                 failed ? (" (" + std::to_string(failed) + " failed)").c_str() : "");
    std::fflush(stderr);
}

void clearBar() { std::fprintf(stderr, "\r\033[K"); }

} // namespace

int main(int argc, char** argv) {
    Options o;
    if (!parse(argc, argv, o)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    const std::vector<std::string> files = collect(o.paths);
    if (files.empty()) {
        std::fputs("corvid-analyse: no audio files found\n", stderr);
        return 2;
    }
    const unsigned jobs = std::min<size_t>(o.jobs ? o.jobs : std::max(1u, std::thread::hardware_concurrency()),
                                           files.size());
    const bool bar = wantsProgressBar();
    const auto started = std::chrono::steady_clock::now();

    // Workers take files in turn; records are written out in the order of the list, each as
    // soon as it and every one before it is done.
    std::vector<Record> records(files.size());
    std::atomic<size_t> nextFile{0};
    std::mutex outputMutex;
    size_t nextOut = 0, finished = 0, failed = 0;
    if (o.csv) std::fputs("file,cue_in,segue,duration,artist,title,year,genre\n", stdout);
    auto work = [&] {
        for (size_t i; (i = nextFile.fetch_add(1)) < files.size();) {
            Record r;
            analyse(files[i], o, r);
            std::lock_guard lock(outputMutex);
            records[i] = std::move(r);
            records[i].done = true;
            ++finished;
            if (bar) clearBar();
            for (; nextOut < files.size() && records[nextOut].done; ++nextOut) {
                const Record& done = records[nextOut];
                if (done.ok) {
                    std::fputs(format(files[nextOut], done, o.csv).c_str(), stdout);
                } else {
                    ++failed;
                    std::fprintf(stderr, "corvid-analyse: cannot read %s: %s\n", files[nextOut].c_str(),
                                 done.error.c_str());
                }
                records[nextOut] = Record{}; // written out: only its place is kept
                records[nextOut].done = true;
            }
            std::fflush(stdout);
            if (bar) drawBar(finished, files.size(), failed);
        }
    };
    std::vector<std::thread> workers;
    for (unsigned j = 1; j < jobs; ++j) workers.emplace_back(work);
    work();
    for (auto& w : workers) w.join();

    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    if (bar) clearBar();
    std::fprintf(stderr, "corvid-analyse: %zu files, %zu analysed, %zu could not be read, %.2f s on %u threads\n",
                 files.size(), files.size() - failed, failed, took, jobs);
    return failed ? 1 : 0;
}
