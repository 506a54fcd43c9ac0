// "_DShowShoutCast": the network stream source.
//
// open() starts a StreamSession for the address and returns: its network thread connects
// (HTTP or HTTPS, redirections followed), takes the ICY metadata out of the body and appends
// the audio to a bounded StreamBuffer; its probe thread opens the demuxer and decoder over the
// first bytes (FFmpeg reads only through our StreamView: no FFmpeg network protocol is ever
// involved). The outcome, the buffering progress and the titles come back on the control
// thread, where openState() shows them. Once open, the "Audio" pin appears and the graph's
// streaming thread pulls packets from the demuxer as it does for any other source; a stream
// that drops while live is reconnected by the session, and the reader meanwhile waits as in
// any starvation.

#include "platform/native/stream/StreamSource.h"

#include "platform/GraphHelper.h"
#include "platform/native/filters/FFmpeg.h"
#include "platform/native/stream/Icy.h"
#include "platform/native/stream/Session.h"

#include <cerrno>
#include <poll.h>

namespace corvid::native {

namespace {

using OpenState = platform::StreamSourceControl::OpenState;

// The pre-roll a restart keeps: it plays what is live now, not what piled up while stopped.
constexpr size_t kRestartBytes = 32 * 1024;
// The duration by which a live stream is known (a year of minutes).
constexpr double kLiveDurationSeconds = 525600.0;

class NetworkStreamSource final : public NativeFilter,
                                  public platform::StreamSourceControl,
                                  public SessionOwner {
public:
    explicit NetworkStreamSource(const std::string& name) : NativeFilter(name) {}
    ~NetworkStreamSource() override { endSession(); }

    platform::StreamSourceControl* streamSource() override { return this; }
    bool isFileSource() const override { return true; }
    std::string fileName() const override { return address_; }
    // A file name is an address: setting it opens it (the outcome through openState()).
    Status setFileName(const std::string& fileName) override { return open(fileName); }

    // ---- StreamSourceControl (control thread) ----
    void registerCallback(platform::ShoutcastCallback* callback) override { callback_ = callback; }

    Status open(const std::string& address) override {
        if (state_ == OpenState::Opening || state_ == OpenState::Open)
            return Status::failure(hr::WrongState, "The stream source is already open.");
        icy::StreamAddress parsed;
        if (!icy::parseAddress(address, parsed))
            return Status::failure(hr::InvalidArg, "Not a stream address: " + address);
        auto loop = graph() ? graph()->loop() : nullptr;
        if (!loop) return Status::failure(hr::NotInGraph, "The stream source must be in a graph.");

        endSession();
        address_ = address;
        failure_ = Status::success();
        finalFailure_ = true;
        state_ = OpenState::Opening;
        auto self = std::static_pointer_cast<NetworkStreamSource>(shared_from_this());
        session_ = std::make_shared<StreamSession>(parsed, address, loop, std::weak_ptr<SessionOwner>(self));
        buffer_ = session_->buffer();
        if (Status s = session_->start(); !s) {
            finalFailure_ = false; // ours, not the server's
            fail(s);
        }
        return Status::success();
    }

    OpenState openState() const override { return state_; }
    Status openFailure() const override { return failure_; }
    // Every failure once the open began is the server's answer or the host's cancel.
    bool failureIsFinal() const override { return state_ == OpenState::Failed && finalFailure_; }
    bool canCancel() const override { return state_ == OpenState::Opening; }

    // The open's outcome reaches this thread as a task of the graph's loop: wait for the
    // loop's wakeup descriptor.
    void waitForChange(int32_t timeoutMs) override {
        auto loop = graph() ? graph()->loop() : nullptr;
        if (state_ != OpenState::Opening || !loop || timeoutMs <= 0) return;
        pollfd wakeup{loop->wakeupFd(), POLLIN, 0};
        while (::poll(&wakeup, 1, timeoutMs) < 0 && errno == EINTR) {
        }
    }

    Status cancel() override {
        if (!canCancel()) return Status::failure(hr::WrongState, "The stream is not opening.");
        endSession();
        fail(Status::failure(hr::Abort, "Opening the stream was cancelled."));
        return Status::success();
    }

    // ---- graph (control thread, produce on the streaming thread) ----
    std::vector<MediaType> outputTypes(NativePin&, NativePin*) override {
        if (!decoder_) return {};
        return {MediaType::pcmType(decoder_->outputFormat())};
    }
    bool isStreamHead() const override { return demuxer_ && output_ && output_->peer(); }
    double durationSeconds() const override {
        return state_ == OpenState::Open ? kLiveDurationSeconds : 0;
    }
    Status seekTo(double) override { return Status::success(); } // a live stream goes on

    Status activate() override {
        if (!buffer_) return Status::success();
        buffer_->resume();
        // A restart plays what is live now, not what piled up while stopped.
        if (played_) buffer_->skipToLive(kRestartBytes);
        played_ = true;
        if (session_) session_->setPlaying(true);
        return Status::success();
    }

    void unblock() override {
        if (session_) session_->setPlaying(false);
        // A stop during a starvation ends that buffering phase without a resume.
        if (buffer_ && buffer_->interrupt() && callback_) {
            std::weak_ptr<NativeFilter> self = weak_from_this();
            if (auto loop = graph() ? graph()->loop() : nullptr)
                loop->post([self] {
                    auto f = std::static_pointer_cast<NetworkStreamSource>(self.lock());
                    if (f && f->callback_) f->callback_->StreamBuffering(100);
                });
        }
    }

    Produced produce(uint64_t generation) override {
        // A stop that cut a read short leaves FFmpeg's reader at its end for good (even when
        // the demuxer still made a packet of what it had): the next start opens the demuxer
        // again at the live edge.
        if (spent_ && !reopen()) return buffer_->takeReadCut() ? Produced::Data : Produced::End;
        auto packet = std::make_shared<Packet>();
        const bool more = demuxer_->read(packet->packet);
        if (buffer_->takeReadCut()) {
            spent_ = true;
            return Produced::Data; // the graph is stopping
        }
        decoder_->decode(more ? packet->packet : nullptr,
                         [&](std::vector<uint8_t>&& pcm, double time) {
                             Buffer buffer;
                             buffer.generation = generation;
                             buffer.time = time;
                             buffer.format = decoder_->outputFormat();
                             buffer.bytes = std::move(pcm);
                             deliverAll(buffer);
                         });
        return more ? Produced::Data : Produced::End;
    }

    // ---- SessionOwner (control thread) ----
    uint64_t currentSession() const override { return session_ ? session_->serial() : 0; }

    void sessionBuffering(int32_t percent) override {
        if (callback_) callback_->StreamBuffering(percent);
    }

    void sessionTitle(const std::string& title, const std::string& url, const std::string& whole) override {
        if (callback_) callback_->MetaChangeCallback(title, url, whole);
    }

    void sessionOpened(OpenedStream& stream) override {
        if (state_ != OpenState::Opening) return;
        demuxer_ = std::move(stream.demuxer);
        decoder_ = std::move(stream.decoder);
        demuxers_ = std::move(stream.demuxers);
        headers_ = std::move(stream.headers);
        spent_ = false;
        played_ = false;
        if (!output_) output_ = addPin("Audio", platform::PinDirection::Output);
        session_->goLive();
        state_ = OpenState::Open;
        if (callback_) callback_->StreamBuffering(100);
    }

    void sessionFailed(const Status& why) override {
        if (state_ == OpenState::Opening) fail(why);
    }

    // Taken out of its graph, or the graph is gone: nobody will play the stream, so no
    // connection may outlive the graph.
    void sessionCheck() override {
        if (graph()) return;
        endSession();
        if (state_ == OpenState::Opening)
            fail(Status::failure(hr::Abort, "The stream source was taken out of its graph."));
    }

private:
    void fail(Status status) {
        state_ = OpenState::Failed;
        failure_ = std::move(status);
    }

    // Cancels the session (if any) and waits for its threads.
    void endSession() {
        if (!session_) return;
        session_->stop();
        session_.reset();
    }

    // ---- streaming thread ----
    bool reopen() {
        buffer_->takeReadCut();
        std::unique_ptr<Demuxer> demuxer;
        buffer_->skipToLive(kRestartBytes);
        auto view = std::make_shared<StreamView>(buffer_, buffer_->readPosition(), address_, headers_);
        if (!Demuxer::open(view, demuxers_, demuxer)) return false;
        demuxer_ = std::shared_ptr<Demuxer>(demuxer.release());
        decoder_->flush();
        spent_ = false;
        return true;
    }

    std::string address_;
    platform::ShoutcastCallback* callback_ = nullptr;
    OpenState state_ = OpenState::Idle;
    Status failure_;
    bool finalFailure_ = true;
    std::shared_ptr<StreamSession> session_;
    std::shared_ptr<StreamBuffer> buffer_;
    std::vector<std::string> demuxers_;
    // An Ogg stream's codec header pages, which only its start carries: a demuxer opened
    // again mid-way reads them first.
    std::string headers_;
    NativePinPtr output_;
    // Streaming state: touched by the control thread only while no streaming thread runs.
    std::shared_ptr<Demuxer> demuxer_;
    std::shared_ptr<AudioDecoder> decoder_;
    bool spent_ = false;  // the demuxer's reader hit a stop and must be opened again
    bool played_ = false; // streamed before: a new start skips to the live edge
};

} // namespace

NativeFilterPtr makeNetworkStreamSource(const std::string& name) {
    return std::make_shared<NetworkStreamSource>(name);
}

} // namespace corvid::native
