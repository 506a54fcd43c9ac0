#pragma once
// The bytes of an http(s) address, for a source that demuxes them itself (the Windows Media
// reader): the same session as the stream source (redirections, TLS, bounded buffering, the
// watchdog and the reconnect supervisor), read as a ByteReader.

#include "platform/Services.h"
#include "platform/Status.h"
#include "platform/native/graph/MediaType.h"

#include <memory>
#include <string>

namespace corvid::native {

class StreamSession;
class StreamView;

class AddressReader final : public ByteReader {
public:
    // Connects and waits (on the calling thread, at most 10 s) for the first bytes.
    static platform::Status open(const std::string& address, std::shared_ptr<platform::EventLoop> loop,
                                 std::shared_ptr<AddressReader>& out);
    ~AddressReader() override;

    int64_t size() const override { return -1; }
    bool seekable() const override { return false; }
    std::string path() const override { return address_; }
    int read(int64_t offset, uint8_t* destination, int count) override;
    // Any thread: a graph stop; a read that waits for the network returns -1 at once.
    void interrupt();

private:
    AddressReader() = default;
    std::string address_;
    std::shared_ptr<StreamSession> session_;
    std::shared_ptr<StreamView> view_;
};

} // namespace corvid::native
