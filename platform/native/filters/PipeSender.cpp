// "Pipe Sender": passes the audio on and also writes it, as raw interleaved PCM in the
// stream's own format, to a named pipe. The pipe never holds the stream up: without a
// reader, or when the reader lags, the data for the pipe is dropped.

#include "platform/native/SystemServices.h"
#include "platform/native/filters/Filters.h"
#include "platform/native/filters/PassThrough.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvid::native {

namespace {

// About six seconds of 44.1 kHz 16-bit stereo; the unprivileged limit of a pipe by default.
constexpr int kPipeBytes = 1 << 20;

std::string newPipePath() {
    static std::atomic<int> counter{0};
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    std::string dir = (runtime && *runtime) ? std::string(runtime) + "/corvid" : "/tmp/corvid-" +
                                                                                     std::to_string(::getuid());
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    return dir + "/pipe-" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
}

// A write to a pipe whose reader went away must not kill the process.
void ignorePipeSignalOnThisThread() {
    thread_local bool done = false;
    if (done) return;
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    done = true;
}

void consumePendingPipeSignal() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    timespec zero{0, 0};
    while (sigtimedwait(&set, nullptr, &zero) > 0) {
    }
}

class PipeSenderFilter final : public PassThroughFilter, public platform::PipeSenderControl {
public:
    explicit PipeSenderFilter(const std::string& name) : PassThroughFilter(name), path_(newPipePath()) {
        ::unlink(path_.c_str());
        made_ = ::mkfifo(path_.c_str(), 0600) == 0;
    }
    ~PipeSenderFilter() override {
        if (fd_ >= 0) ::close(fd_);
        if (made_) ::unlink(path_.c_str());
    }

    platform::PipeSenderControl* pipeSender() override { return this; }
    Status setDownstreamMute(bool mute) override {
        mute_.store(mute);
        return Status::success();
    }
    bool downstreamMute() const override { return mute_.load(); }
    std::string pipePath() const override { return path_; }

    void receive(NativePin&, Buffer& buffer) override {
        sendToPipe(buffer);
        if (!mute_.load()) {
            deliverAll(buffer);
            return;
        }
        Buffer silent = buffer;
        std::fill(silent.bytes.begin(), silent.bytes.end(),
                  buffer.format.format == SampleFormat::U8 ? uint8_t(0x80) : uint8_t(0));
        deliverAll(silent);
    }

    void deactivate() override {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    void sendToPipe(const Buffer& buffer) {
        if (!made_ || buffer.bytes.empty()) return;
        ignorePipeSignalOnThisThread();
        if (fd_ < 0) {
            fd_ = ::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            if (fd_ < 0) return; // nobody reads the pipe now
            // The streaming thread runs up to the sound server's buffer (about a second) ahead
            // of the speakers, in bursts; the default 64 KiB would overflow between two reads
            // of a reader that keeps up. Where the system refuses the size, the default stays.
            (void)::fcntl(fd_, F_SETPIPE_SZ, kPipeBytes);
        }
        ssize_t n = ::write(fd_, buffer.bytes.data(), buffer.bytes.size());
        if (n < 0 && errno == EPIPE) {
            consumePendingPipeSignal();
            ::close(fd_);
            fd_ = -1;
        }
    }

    std::string path_;
    bool made_ = false;
    int fd_ = -1; // stream thread
    std::atomic<bool> mute_{false};
};

} // namespace

NativeFilterPtr makePipeSender(const std::string& name) {
    return std::make_shared<PipeSenderFilter>(name);
}

} // namespace corvid::native
