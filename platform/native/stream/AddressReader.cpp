#include "platform/native/stream/AddressReader.h"

#include "platform/native/stream/Session.h"

namespace corvid::native {

using platform::Status;
namespace hr = platform::hr;

namespace {

// Enough for a reader's type probe to look at; a slow server has the player's own 10 s.
constexpr size_t kFirstBytes = 32 * 1024;
constexpr auto kFirstBytesDeadline = std::chrono::seconds(10);

} // namespace

Status AddressReader::open(const std::string& address, std::shared_ptr<platform::EventLoop> loop,
                           std::shared_ptr<AddressReader>& out) {
    icy::StreamAddress parsed;
    if (!icy::parseAddress(address, parsed))
        return Status::failure(hr::InvalidArg, "Not an http or https address: " + address);
    if (!loop) return Status::failure(hr::NotInGraph, "The reader must be in a graph.");
    std::shared_ptr<AddressReader> reader(new AddressReader());
    reader->address_ = address;
    reader->session_ = std::make_shared<StreamSession>(parsed, address, std::move(loop), std::weak_ptr<SessionOwner>(),
                                                       /*probe=*/false);
    if (Status s = reader->session_->start(); !s) return s;
    const auto& buffer = reader->session_->buffer();
    if (!buffer->waitForBytes(kFirstBytes, StreamClock::now() + kFirstBytesDeadline) || buffer->written() == 0) {
        const Status why = reader->session_->failure();
        reader->session_->stop();
        return why.ok() ? Status::failure(hr::Timeout, "The stream server " + address + " sent no audio in time.") : why;
    }
    reader->view_ = std::make_shared<StreamView>(buffer, 0, address);
    reader->session_->goLive();
    reader->session_->setPlaying(true);
    out = std::move(reader);
    return Status::success();
}

AddressReader::~AddressReader() {
    if (session_) session_->stop();
}

int AddressReader::read(int64_t offset, uint8_t* destination, int count) {
    return view_->read(offset, destination, count);
}

void AddressReader::interrupt() { session_->buffer()->interrupt(); }

} // namespace corvid::native
