// corvid-play: plays files and stream addresses one after another through Corvid's players on
// the native runtime, with a live status line (position, remaining time, volume, rate, meters,
// silence) and keys for pause, stop, seek, next, volume, mute, rate and quit on a terminal.
// With --segue each next item starts at the previous one's segue point, on a second player,
// while the previous one plays out. It is also a small example of a host: it waits in poll()
// on the event loop's wakeup descriptor, the terminal and its signals, and never on a timer.

#include <corvid/Player.h>

#include <corvid/NativePlatform.h>
#include <corvid/Tags.h>

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr const char* kVersion = "corvid-play 0.1.0";

constexpr const char* kUsage =
    "usage: corvid-play [OPTIONS] FILE|ADDRESS...\n"
    "       corvid-play --list-devices\n"
    "Plays files and stream addresses one after another.\n"
    "\n"
    "options:\n"
    "  -d, --device NAME   output device as --list-devices names it, or a sink name\n"
    "      --silent        play to the silent device, without a sound server\n"
    "      --segue         start each next item at the segue point of the one before\n"
    "      --list-devices  list the output devices\n"
    "      --log           print the player's log on stderr\n"
    "  -q, --quiet         no status line\n"
    "  -h, --help          print this text\n"
    "  -V, --version       print the version\n"
    "\n"
    "keys: space pause/play, s stop, left/right seek 5 s, n next item,\n"
    "      9/0 volume down/up 3 dB, m mute, [/] rate down/up 5 %, backspace rate 100 %, q quit\n"
    "\n"
    "exit status: 0 all played (or q), 1 an item could not be played, 2 wrong command line,\n"
    "             3 no such output device, 128+N ended by signal N (terminal restored)\n";

enum ExitCode { kPlayed = 0, kItemFailed = 1, kUsageError = 2, kNoDevice = 3 };

struct Options {
    std::vector<std::string> items;
    std::string device;
    bool silent = false;
    bool segue = false;
    bool listDevices = false;
    bool log = false;
    bool quiet = false;
};

// Returns an exit code to leave with at once, or -1 to go on.
int parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if ((a == "-d" || a == "--device") && i + 1 < argc) o.device = argv[++i];
        else if (a == "--silent") o.silent = true;
        else if (a == "--segue") o.segue = true;
        else if (a == "--list-devices") o.listDevices = true;
        else if (a == "--log") o.log = true;
        else if (a == "-q" || a == "--quiet") o.quiet = true;
        else if (a == "-h" || a == "--help") {
            std::cout << kUsage;
            return kPlayed;
        } else if (a == "-V" || a == "--version") {
            std::cout << kVersion << "\n";
            return kPlayed;
        } else if (a.size() > 1 && a[0] == '-') {
            std::cerr << "corvid-play: " << (a == "-d" || a == "--device" ? "missing device name after "
                                                                          : "unknown option ")
                      << a << " (see --help)\n";
            return kUsageError;
        } else o.items.push_back(a);
    }
    if (!o.listDevices && o.items.empty()) {
        std::cerr << "corvid-play: nothing to play (see --help)\n";
        return kUsageError;
    }
    return -1;
}

// Clears the status line before a message, on a terminal only.
const char* lineStart() { return isatty(STDOUT_FILENO) ? "\r\033[K" : ""; }

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

// The terminal in raw keys while we run, given back as it was on every way out: the
// destructor for returns and exceptions, restore() for the signals we end or stop on.
class RawTerminal {
public:
    RawTerminal() {
        saved_ = isatty(STDIN_FILENO) && tcgetattr(STDIN_FILENO, &original_) == 0;
        enter();
    }
    ~RawTerminal() { restore(); }
    RawTerminal(const RawTerminal&) = delete;
    RawTerminal& operator=(const RawTerminal&) = delete;

    void enter() {
        if (!saved_) return;
        termios raw = original_;
        raw.c_lflag &= ~(ICANON | ECHO); // ISIG stays: Ctrl-C and Ctrl-Z reach us as signals
        raw.c_cc[VMIN] = 0;
        raw.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    void restore() {
        if (saved_) tcsetattr(STDIN_FILENO, TCSANOW, &original_);
    }
    bool active() const { return saved_; }

private:
    termios original_{};
    bool saved_ = false;
};

// The signals that end or suspend us arrive as readable data on a descriptor, so that the
// one poll() sees them; they are blocked before the runtime starts its threads, which
// inherit the mask. A signal the shell told us to ignore (nohup) stays ignored.
class Signals {
public:
    Signals() {
        sigset_t set;
        sigemptyset(&set);
        for (int s : {SIGINT, SIGTERM, SIGHUP, SIGTSTP}) {
            struct sigaction current{};
            if (sigaction(s, nullptr, &current) == 0 && current.sa_handler != SIG_IGN)
                sigaddset(&set, s);
        }
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        fd_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    ~Signals() {
        if (fd_ >= 0) close(fd_);
    }
    int fd() const { return fd_; }
    int take() {
        signalfd_siginfo info{};
        return read(fd_, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
    }

private:
    int fd_ = -1;
};

// One player and what its events told us.
struct Deck : corvid::PlayerEvents {
    explicit Deck(corvid::NativePlatform& platform) : player(platform) { player.setEvents(this); }

    corvid::Player player;
    std::string item;
    bool log = false;
    bool loaded = false;
    bool started = false;
    bool ended = false;
    double seguePos = -1;
    int32_t left = 0, right = 0;
    int32_t silenceSecs = 0;
    int32_t state = corvid::mpstopped;
    // The rate last written, as the write adjusted it: `Rate` reads the graph's own rate, which
    // stays 1.0 while the pitch filter carries the rate.
    double rate = 1.0;

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
    void CueInFound(double& pos) override {
        std::cout << lineStart() << "cue-in: " << pos << " s in " << item << "\n";
    }
    void SegueFound(double& pos) override {
        seguePos = pos;
        std::cout << lineStart() << "segue: " << pos << " s in " << item << "\n";
    }
    void ShoutCastMeta(std::string& artistTitle, std::string&, std::string&) override {
        std::cout << lineStart() << "now playing: " << artistTitle << "\n";
    }
    void StreamBuffering(int16_t& percent) override {
        if (percent >= 0) std::cout << lineStart() << "buffering " << percent << "%\n";
    }

    // Loads an item, asking for its cue-in and segue points; whether it loaded.
    bool load(const std::string& name) {
        item = name;
        loaded = started = ended = false;
        seguePos = -1;
        player.UseAutoCue = true;
        player.CanCueIn = true;
        bool on = true;
        player.put_AutoSeg(on);
        std::string wanted = name;
        player.put_FileName(wanted);
        if (player.get_FileName().empty()) {
            std::cerr << lineStart() << "corvid-play: cannot play " << name << ": "
                      << player.get_LastError() << "\n";
            return false;
        }
        player.AutoSegSearch();
        loaded = true;
        return true;
    }
    bool start() {
        try {
            player.Play();
        } catch (const corvid::AutomationError& e) {
            std::cerr << lineStart() << "corvid-play: cannot play " << item << ": "
                      << e.description() << "\n";
            ended = true;
            return false;
        }
        started = true;
        return true;
    }
    // Playing and past its segue point.
    bool pastSegue() {
        return started && !ended && seguePos > 0 && player.get_CurrentPosition() >= seguePos;
    }
};

void announce(corvid::NativePlatform& platform, Deck& deck) {
    std::cout << lineStart() << "playing " << deck.item << " on " << deck.player.GetMainSoundcard()
              << "\n";
    const corvid::ItemTags tags = corvid::readTags(platform, deck.item);
    if (!tags.artist.empty() || !tags.title.empty())
        std::cout << "  " << (tags.artist.empty() ? "?" : tags.artist) << " - "
                  << (tags.title.empty() ? "?" : tags.title) << "\n";
}

void printStatus(Deck& deck, bool tty) {
    corvid::Player& player = deck.player;
    const double pos = player.get_CurrentPosition();
    const double dur = player.get_Duration();
    char settings[64];
    std::snprintf(settings, sizeof settings, "vol %.1f dB  rate %.2f", player.get_Volume() / 100.0,
                  deck.rate);
    std::string line = clock(pos) + " / " + clock(dur) + "  -" + clock(dur - pos) + "  " +
                       settings + "  L [" + meter(deck.left) + "] R [" + meter(deck.right) + "]";
    if (player.get_mute()) line += "  muted";
    if (deck.state == corvid::mpPaused) line += "  paused";
    if (deck.silenceSecs > 0) line += "  SILENCE " + std::to_string(deck.silenceSecs) + " s";
    if (tty) std::cout << "\r\033[K" << line << std::flush;
    else std::cout << line << "\n";
}

// The keys of a terminal, on the deck playing now.
void handleKey(char key, Deck& deck, bool& quit, bool& skip) {
    corvid::Player& player = deck.player;
    double pos = player.get_CurrentPosition();
    int32_t volume = player.get_Volume();
    bool mute = !player.get_mute();
    switch (key) {
    case 'q': quit = true; break;
    case 'n': skip = true; break;
    case 's': player.StopPlaying(); break;
    case ' ':
        if (player.get_Playstate() == corvid::MpPlaying) player.Pause();
        else player.Play();
        break;
    case 'C': pos += 5; player.put_CurrentPosition(pos); break; // right arrow
    case 'D': pos -= 5; player.put_CurrentPosition(pos); break; // left arrow
    case '9': volume -= 300; player.put_Volume(volume); break;
    case '0': volume = std::min(volume + 300, 0); player.put_Volume(volume); break;
    case 'm': player.put_mute(mute); break;
    case '[': deck.rate -= 0.05; player.put_Rate(deck.rate); break;
    case ']': deck.rate += 0.05; player.put_Rate(deck.rate); break;
    case 127: case '\b': deck.rate = 1.0; player.put_Rate(deck.rate); break;
    default: break;
    }
}

int listDevices(corvid::NativePlatform& platform) {
    corvid::Player player(platform);
    for (const auto& entry : player.EnumRenders(true))
        std::cout << entry.key << "  (" << entry.value.NumSpeakers() << " speakers)\n";
    return kPlayed;
}

} // namespace

int main(int argc, char** argv) {
    Options opt;
    if (const int code = parse(argc, argv, opt); code >= 0) return code;

    Signals signals;
    corvid::NativePlatformOptions platformOptions;
    if (opt.silent) platformOptions.output = corvid::NativePlatformOptions::Output::Silent;
    corvid::NativePlatform platform(platformOptions);
    if (opt.listDevices) return listDevices(platform);

    // Two players: the one playing, and the next item's, loaded ahead so that it starts at
    // once at the segue point (or the end) while the one before plays out.
    std::unique_ptr<Deck> decks[2] = {std::make_unique<Deck>(platform), std::make_unique<Deck>(platform)};
    for (auto& deck : decks) {
        deck->log = opt.log;
        bool on = true, off = false;
        if (opt.log) deck->player.put_LoggingEnabled(on);
        // Our Windows Media reader is a real decoder on this platform, not the old one the
        // ban is about: a command-line player should play WMA files.
        deck->player.put_ASFReaderBanned(off);
        deck->player.Init();
        if (!opt.device.empty()) {
            std::string device = opt.device;
            if (!deck->player.SetSoundcard(device)) {
                std::cerr << "corvid-play: no such output device: " << opt.device
                          << " (see --list-devices)\n";
                return kNoDevice;
            }
        }
    }

    int exitCode = kPlayed;
    size_t nextItem = 0;
    // Loads the next item that loads into `deck`; false when none is left.
    auto loadNext = [&](Deck& deck) {
        while (nextItem < opt.items.size())
            if (deck.load(opt.items[nextItem++])) return true;
            else exitCode = kItemFailed;
        return false;
    };

    Deck* now = decks[0].get();
    Deck* next = decks[1].get();
    if (!loadNext(*now)) return exitCode;
    announce(platform, *now);
    if (!now->start()) exitCode = kItemFailed;
    bool nextLoaded = loadNext(*next);

    RawTerminal terminal;
    const bool tty = isatty(STDOUT_FILENO) && !opt.quiet;
    corvid::EventLoop& loop = platform.eventLoop();
    auto lastStatus = std::chrono::steady_clock::now();
    bool quit = false;
    int endedBy = 0;
    while (!quit) {
        pollfd fds[3] = {{loop.wakeupFd(), POLLIN, 0}, {signals.fd(), POLLIN, 0},
                         {STDIN_FILENO, POLLIN, 0}};
        // An item that failed to start has ended without an event to wake us.
        if (poll(fds, terminal.active() ? 3 : 2, now->ended ? 0 : -1) < 0 && errno != EINTR) break;

        if (fds[1].revents & POLLIN) {
            const int signal = signals.take();
            if (signal == SIGTSTP) {
                // Suspended with the terminal as the shell expects it, raw again on resume.
                terminal.restore();
                kill(getpid(), SIGSTOP);
                terminal.enter();
            } else if (signal != 0) {
                endedBy = signal;
                break;
            }
        }
        bool skip = false;
        bool keyed = false;
        if (terminal.active() && (fds[2].revents & POLLIN)) {
            keyed = true;
            char keys[16];
            const ssize_t n = read(STDIN_FILENO, keys, sizeof keys);
            for (ssize_t i = 0; i < n; ++i) handleKey(keys[i], *now, quit, skip);
        }
        loop.processPending();

        // The next item starts at this one's segue point with --segue, else at its end; the
        // one before plays out on its own player meanwhile, and then takes the item after.
        if (!nextLoaded && next->ended) {
            next->player.StopPlaying();
            nextLoaded = loadNext(*next);
        }
        const bool atEnd = skip || now->ended;
        if (atEnd || (opt.segue && now->pastSegue())) {
            if (!nextLoaded && atEnd) {
                next->player.StopPlaying(); // cut short what still plays out
                nextLoaded = loadNext(*next);
            }
            if (nextLoaded) {
                if (!atEnd)
                    std::cout << lineStart() << "segue to " << next->item << " at "
                              << now->player.get_CurrentPosition() << " s of " << now->item << "\n";
                if (skip) now->player.StopPlaying();
                std::swap(now, next);
                announce(platform, *now);
                if (!now->start()) exitCode = kItemFailed;
                nextLoaded = false;
            } else if (atEnd) {
                break; // nothing left to play
            }
        }

        // The status line a few times a second on a terminal, once a second otherwise, and at
        // once after a key, which may have paused the player (and its events with it).
        const auto t = std::chrono::steady_clock::now();
        if (!opt.quiet && (keyed || t - lastStatus >= std::chrono::milliseconds(tty ? 200 : 1000))) {
            lastStatus = t;
            printStatus(*now, tty);
        }
    }
    if (!opt.quiet) {
        printStatus(*now, tty);
        std::cout << "\n";
    }
    for (auto& deck : decks) deck->player.StopPlaying();
    terminal.restore();
    return endedBy ? 128 + endedBy : exitCode;
}
