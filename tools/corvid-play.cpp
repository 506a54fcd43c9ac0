// corvid-play: plays one file or stream address through a Player on the native runtime, with
// a live status line (position, duration, meters, silence, end of stream) and keys for pause,
// stop, seek and quit on a terminal. It is also the smallest example of a host.

#include <corvid/Player.h>
#include "platform/native/NativePlatform.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

namespace {

constexpr const char* kUsage =
    "usage: corvid-play [--device NAME] [--log] [--quiet] FILE|ADDRESS\n"
    "       corvid-play --list-devices\n"
    "keys: space pause/play, s stop, left/right seek 5 s, q quit\n";

struct Options {
    std::string item;
    std::string device;
    bool listDevices = false;
    bool log = false;
    bool quiet = false;
};

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--device" && i + 1 < argc) o.device = argv[++i];
        else if (a == "--list-devices") o.listDevices = true;
        else if (a == "--log") o.log = true;
        else if (a == "--quiet") o.quiet = true;
        else if (a == "-h" || a == "--help") return false;
        else if (!a.empty() && a[0] == '-') return false;
        else if (o.item.empty()) o.item = a;
        else return false;
    }
    return o.listDevices || !o.item.empty();
}

// Clears the status line before a message, on a terminal only.
const char* lineStart() { return isatty(STDOUT_FILENO) ? "\r\033[K" : ""; }

// The host side: what the player tells us, kept for the status line.
struct Host : corvid::PlayerEvents {
    bool log = false;
    bool ended = false;
    int32_t left = 0, right = 0;
    int32_t silenceSecs = 0;
    int32_t state = corvid::mpstopped;

    void PlayerLogInfo(std::string& info) override {
        if (log) std::cerr << lineStart() << "[log] " << info << "\n";
    }
    void WriteLog(std::string& info) override {
        if (log) std::cerr << lineStart() << "[log] " << info << "\n";
    }
    void VUPeak(int32_t& l, int32_t& r) override {
        left = l;
        right = r;
        silenceSecs = 0;
    }
    void SilenceDetected(int32_t secs) override { silenceSecs += secs; }
    void EndOfStream(int32_t) override { ended = true; }
    void PlayStateChange(int32_t, int32_t newState) override { state = newState; }
    void CueInFound(double& pos) override { std::cout << lineStart() << "cue-in: " << pos << " s\n"; }
    void SegueFound(double& pos) override { std::cout << lineStart() << "segue: " << pos << " s\n"; }
    void ShoutCastMeta(std::string& artistTitle, std::string&, std::string&) override {
        std::cout << lineStart() << "now playing: " << artistTitle << "\n";
    }
    void StreamBuffering(int16_t& percent) override {
        if (percent >= 0) std::cout << lineStart() << "buffering " << percent << "%\n";
    }
};

// Raw keys while we run; the terminal is given back as it was.
class RawTerminal {
public:
    RawTerminal() {
        active_ = isatty(STDIN_FILENO) && tcgetattr(STDIN_FILENO, &saved_) == 0;
        if (!active_) return;
        termios raw = saved_;
        raw.c_lflag &= ~(ICANON | ECHO);
        raw.c_cc[VMIN] = 0;
        raw.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    ~RawTerminal() {
        if (active_) tcsetattr(STDIN_FILENO, TCSANOW, &saved_);
    }
    bool active() const { return active_; }

private:
    termios saved_{};
    bool active_ = false;
};

std::string clock(double seconds) {
    if (!(seconds >= 0) || seconds > 1e7) seconds = 0;
    const int whole = static_cast<int>(seconds);
    char buf[32];
    std::snprintf(buf, sizeof buf, "%d:%02d.%d", whole / 60, whole % 60,
                  static_cast<int>((seconds - whole) * 10));
    return buf;
}

// A 20-step meter over the 16-bit peak scale, in dB so quiet passages still move it.
std::string meter(int32_t peak) {
    const double magnitude = std::abs(static_cast<double>(peak)) / 32768.0;
    const double db = magnitude > 0 ? 20.0 * std::log10(magnitude) : -100.0;
    const int steps = std::clamp(static_cast<int>((db + 60.0) / 3.0), 0, 20);
    return std::string(steps, '#') + std::string(20 - steps, ' ');
}

void printStatus(corvid::Player& player, const Host& host, bool tty) {
    const double pos = player.get_CurrentPosition();
    const double dur = player.get_Duration();
    std::string line = clock(pos) + " / " + clock(dur) + "  L [" + meter(host.left) + "] R [" +
                       meter(host.right) + "]";
    if (host.state == corvid::mpPaused) line += "  paused";
    if (host.silenceSecs > 0) line += "  SILENCE " + std::to_string(host.silenceSecs) + " s";
    if (host.ended) line += "  end of stream";
    if (tty) std::cout << "\r\033[K" << line << std::flush;
    else std::cout << line << "\n";
}

} // namespace

int main(int argc, char** argv) {
    Options opt;
    if (!parse(argc, argv, opt)) {
        std::cerr << kUsage;
        return 2;
    }

    corvid::native::NativePlatform platform;
    corvid::Player player(platform);
    Host host;
    host.log = opt.log;
    player.setEvents(&host);
    bool on = true;
    if (opt.log) player.put_LoggingEnabled(on);

    if (opt.listDevices) {
        for (const auto& entry : player.EnumRenders(true))
            std::cout << entry.key << "  (" << entry.value.NumSpeakers() << " speakers)\n";
        return 0;
    }

    // Our Windows Media reader is a real decoder on this platform, not the old one the ban is
    // about: a command-line player should play WMA files.
    bool off = false;
    player.put_ASFReaderBanned(off);
    player.Init();
    if (!opt.device.empty()) {
        std::string device = opt.device;
        if (!player.SetSoundcard(device)) {
            std::cerr << "corvid-play: no such output device: " << opt.device
                      << " (see --list-devices)\n";
            return 1;
        }
    }

    // Ask for the cue-in and segue points while the item loads.
    player.UseAutoCue = true;
    player.CanCueIn = true;
    player.put_AutoSeg(on);

    std::string item = opt.item;
    player.put_FileName(item);
    if (player.get_FileName().empty()) {
        std::cerr << "corvid-play: cannot play " << opt.item << ": " << player.get_LastError()
                  << "\n";
        return 1;
    }
    std::cout << "playing " << opt.item << " on " << player.GetMainSoundcard() << "\n";
    player.AutoSegSearch();

    try {
        player.Play();
    } catch (const corvid::AutomationError& e) {
        std::cerr << "corvid-play: " << e.description() << "\n";
        return 1;
    }

    RawTerminal terminal;
    const bool tty = isatty(STDOUT_FILENO) && !opt.quiet;
    int sinceStatus = 0;
    bool quit = false;
    while (!quit && !host.ended) {
        platform.eventLoop().processPending();

        pollfd in{STDIN_FILENO, POLLIN, 0};
        if (terminal.active() && poll(&in, 1, 20) > 0) {
            char keys[8];
            const ssize_t n = read(STDIN_FILENO, keys, sizeof keys);
            for (ssize_t i = 0; i < n; ++i) {
                double pos = player.get_CurrentPosition();
                switch (keys[i]) {
                case 'q': quit = true; break;
                case 's': player.StopPlaying(); break;
                case ' ':
                    if (player.get_Playstate() == corvid::MpPlaying) player.Pause();
                    else player.Play();
                    break;
                case 'C': pos += 5; player.put_CurrentPosition(pos); break; // right arrow
                case 'D': pos -= 5; player.put_CurrentPosition(pos); break; // left arrow
                default: break;
                }
            }
        } else if (!terminal.active()) {
            poll(nullptr, 0, 20);
        }

        // The status line a few times a second on a terminal, once a second otherwise.
        if (!opt.quiet && ++sinceStatus >= (tty ? 5 : 50)) {
            sinceStatus = 0;
            printStatus(player, host, tty);
        }
    }
    if (!opt.quiet) {
        printStatus(player, host, tty);
        std::cout << "\n";
    }
    player.StopPlaying();
    return 0;
}
