// The network stream source ("_DShowShoutCast"):
//  - the wire: addresses and redirections, response heads, metadata blocks in any slicing,
//    chunked coding, title cleaning, bounds;
//  - the filter against the test's own stream server (good answers and hostile ones: a
//    stall, a drip, a trickle, a drop, a flood, a redirect loop, chunked coding, a metadata
//    interval of 1): what each reports and how each ends, no thread left behind;
//  - the player on the native runtime against a real icecast2 on 127.0.0.1, fed by ffmpeg
//    source clients, plain and over TLS with a certificate the test makes and trusts for its
//    own run only: load, play, titles, stop, a redirect to the TLS mount, a source client
//    that goes and comes back, a missing mount, a server that never answers, cancels.

#include "NativeTestSupport.h"
#include "StreamServer.h"

#include <corvid/Player.h>
#include "platform/native/NativeCatalogue.h"
#include "platform/native/filters/Filters.h"
#include "platform/native/stream/Icy.h"
#include "platform/native/stream/Session.h"
#include "tests/sim/RecordingEvents.h"

#include <chrono>
#include <optional>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace corvid::native::test {
namespace {

namespace fs = std::filesystem;
using platform::FilterPtr;
using OpenState = platform::StreamSourceControl::OpenState;
namespace hr = platform::hr;

// ---------------------------------------------------------------- helpers

// A port nobody listens on: the one a server that has gone had.
int freePort() { return StreamServer(StreamServer::Mode::Silent).port(); }

// One HTTP/1.0 request to 127.0.0.1:port; returns the status line ("" when unreachable).
std::string httpStatus(int port, const std::string& target, const std::string& authorization = "") {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(uint16_t(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string received;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) {
        std::string request = "GET " + target + " HTTP/1.0\r\nHost: 127.0.0.1\r\n";
        if (!authorization.empty()) request += "Authorization: Basic " + authorization + "\r\n";
        request += "\r\n";
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
        char buf[1024];
        pollfd p{fd, POLLIN, 0};
        while (received.find("\r\n") == std::string::npos && ::poll(&p, 1, 2000) == 1) {
            const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
            if (n <= 0) break;
            received.append(buf, size_t(n));
        }
    }
    ::close(fd);
    return received.substr(0, received.find("\r\n"));
}

// The titles the tests set hold letters, digits, blanks and dashes only.
std::string urlEncode(std::string text) {
    for (size_t at = 0; (at = text.find(' ', at)) != std::string::npos;) text.replace(at, 1, "%20");
    return text;
}

// ---------------------------------------------------------------- the wire

TEST(IcyWire, AddressesAndRedirectionsMapToHttpOrHttpsAndOnlyWellFormedOnesPass) {
    struct Case {
        const char* address;
        bool ok;
        bool tls;
        const char* host;
        const char* port;
        const char* path;
    };
    const Case cases[] = {
        {"icystream://127.0.0.1:8000/live.mp3", true, false, "127.0.0.1", "8000", "/live.mp3"},
        {"ICYSTREAM://Radio.example:8000", true, false, "Radio.example", "8000", "/"},
        {"http://127.0.0.1/stream?x=1", true, false, "127.0.0.1", "80", "/stream?x=1"},
        {"icystream://[::1]:9000/a", true, false, "::1", "9000", "/a"},
        {"icystreams://radio.example/live", true, true, "radio.example", "443", "/live"},
        {"HTTPS://127.0.0.1:8443/a", true, true, "127.0.0.1", "8443", "/a"},
        {"icystream://127.0.0.1:0/a", false, false, "", "", ""},
        {"icystream://127.0.0.1:65536/a", false, false, "", "", ""},
        {"icystream://127.0.0.1:80x/a", false, false, "", "", ""},
        {"icystream://user:pw@127.0.0.1/a", false, false, "", "", ""},
        {"icystream://127.0.0.1/a b", false, false, "", "", ""},
        {"icystream://127.0.0.1/a\r\nX: y", false, false, "", "", ""},
        {"icyx://127.0.0.1/a", false, false, "", "", ""},
        {"/music/icystream://x/a.mp3", false, false, "", "", ""},
        {"icystream://", false, false, "", "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.address);
        icy::StreamAddress a;
        ASSERT_EQ(icy::parseAddress(c.address, a), c.ok);
        if (!c.ok) continue;
        EXPECT_EQ(a.tls, c.tls);
        EXPECT_EQ(a.host, c.host);
        EXPECT_EQ(a.port, c.port);
        EXPECT_EQ(a.path, c.path);
    }
    icy::StreamAddress a;
    ASSERT_TRUE(icy::parseAddress("icystream://127.0.0.1:8000/live/a.mp3", a));
    const std::string request = icy::makeRequest(a);
    EXPECT_EQ(request.rfind("GET /live/a.mp3 HTTP/1.1\r\n", 0), 0u);
    EXPECT_NE(request.find("\r\nIcy-MetaData: 1\r\n"), std::string::npos);
    EXPECT_NE(request.find("\r\nHost: 127.0.0.1:8000\r\n"), std::string::npos);

    // Redirections: http and https only, never from TLS down to plain.
    icy::StreamAddress secure = a;
    secure.tls = true;
    const struct {
        const icy::StreamAddress& from;
        const char* location;
        const char* to; // "" = refused
    } moves[] = {
        {a, "https://other.example/x", "other.example:443/x"},
        {a, "http://other.example:81/x", "other.example:81/x"},
        {secure, "http://other.example:81/x", ""},
        {a, "/elsewhere", "127.0.0.1:8000/elsewhere"},
        {a, "b.mp3", "127.0.0.1:8000/live/b.mp3"},
        {a, "ftp://other.example/x", ""},
        {a, "file:///etc/passwd", ""},
        {a, "", ""},
    };
    for (const auto& m : moves) {
        SCOPED_TRACE(m.location);
        icy::StreamAddress to;
        const bool ok = icy::resolveLocation(m.from, m.location, to);
        EXPECT_EQ(ok, *m.to != '\0');
        if (ok) {
            EXPECT_EQ(icy::describe(to), m.to);
        }
    }
}

TEST(IcyWire, ResponseHeadsOfHttpAndIcyServersAndTheirBounds) {
    icy::ResponseHead h;
    const std::string icecast = "HTTP/1.0 200 OK\r\nContent-Type: audio/mpeg\r\nicy-metaint:16000\r\n"
                                "icy-name: Corvid FM\r\n\r\nAUDIO";
    const size_t length = icy::headLength(icecast);
    ASSERT_EQ(icecast.substr(length), "AUDIO");
    ASSERT_TRUE(icy::parseHead(icecast.substr(0, length), h));
    EXPECT_EQ(h.status, 200);
    EXPECT_EQ(h.contentType, "audio/mpeg");
    EXPECT_EQ(h.metaInterval, 16000u);
    EXPECT_EQ(h.name, "Corvid FM");

    const std::string shoutcast = "ICY 200 OK\nicy-metaint: 8192\ncontent-type: audio/aacp; charset=x\n\n";
    ASSERT_EQ(icy::headLength(shoutcast), shoutcast.size());
    ASSERT_TRUE(icy::parseHead(shoutcast, h));
    EXPECT_EQ(h.statusLine, "ICY 200 OK");
    EXPECT_EQ(h.contentType, "audio/aacp");
    EXPECT_EQ(icy::demuxersFor(h.contentType), std::vector<std::string>{"aac"});

    EXPECT_EQ(icy::headLength("HTTP/1.0 200 OK\r\nicy-metaint: 8"), 0u) << "incomplete";
    ASSERT_TRUE(icy::parseHead("HTTP/1.0 404 File Not Found\r\n\r\n", h));
    EXPECT_EQ(h.status, 404);
    ASSERT_TRUE(icy::parseHead("HTTP/1.1 302 Found\r\nLocation: /b\r\nTransfer-Encoding: chunked\r\n"
                               "Content-Length: 12\r\nicy-br: 128\r\n\r\n", h));
    EXPECT_TRUE(icy::isRedirection(h.status));
    EXPECT_EQ(h.location, "/b");
    EXPECT_TRUE(h.chunked);
    EXPECT_EQ(h.contentLength, 12);
    EXPECT_EQ(h.bitrateKbps, 128);
    for (const char* bad : {"icy-metaint: 0", "icy-metaint: 1", "icy-metaint: 255", "icy-metaint: 99999999999999999999",
                            "icy-metaint: 1048577", "icy-metaint: -5", "icy-metaint: 12abc"}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(icy::parseHead(std::string("HTTP/1.0 200 OK\r\n") + bad + "\r\n\r\n", h).number,
                  hr::InvalidFileFormat);
    }
    EXPECT_FALSE(icy::parseHead("<html>hello</html>\r\n\r\n", h));
    EXPECT_TRUE(icy::demuxersFor("text/html").empty());
    EXPECT_EQ(icy::demuxersFor("").size(), 3u);
    EXPECT_EQ(icy::demuxersFor("application/ogg"), std::vector<std::string>{"ogg"});
}

TEST(IcyWire, MetadataComesOutWholeHoweverTheBodyIsSliced) {
    const size_t interval = icy::kMinMetaInterval;
    std::string meta = "StreamTitle='A - B';StreamUrl='http://x/';";
    meta.resize((meta.size() + 15) / 16 * 16, '\0');
    std::string body, audio;
    for (int block = 0; block < 4; ++block) {
        const std::string run(interval, char('a' + block));
        body += run;
        audio += run;
        if (block == 1) {
            body += char(meta.size() / 16);
            body += meta;
        } else {
            body += '\0';
        }
    }
    body += "tail";
    audio += "tail";
    // The longest block a length byte can announce passes whole too.
    std::string longest(icy::kMaxMetaBlock, 'x');
    body += std::string(interval - 4, 'z') + char(255) + longest;
    audio += std::string(interval - 4, 'z');

    for (size_t slice : {size_t(1), size_t(3), size_t(16), body.size()}) {
        SCOPED_TRACE(slice);
        icy::MetadataSplitter splitter(interval);
        std::string gotAudio;
        std::vector<std::string> metas;
        for (size_t at = 0; at < body.size(); at += slice)
            splitter.feed(reinterpret_cast<const uint8_t*>(body.data()) + at, std::min(slice, body.size() - at),
                          [&](const uint8_t* d, size_t n) { gotAudio.append(reinterpret_cast<const char*>(d), n); },
                          [&](const std::string& m) { metas.push_back(m); });
        EXPECT_EQ(gotAudio, audio);
        ASSERT_EQ(metas.size(), 2u) << "empty blocks say nothing";
        EXPECT_EQ(icy::field(metas[0], "StreamTitle"), "A - B");
        EXPECT_EQ(icy::field(metas[0], "StreamUrl"), "http://x/");
        EXPECT_EQ(metas[1].size(), icy::kMaxMetaBlock);
    }
    EXPECT_EQ(icy::field("StreamTitle='It''s';", "StreamTitle"), "It''s");
    EXPECT_EQ(icy::field("StreamTitle='No end'", "StreamTitle"), "No end");
    EXPECT_EQ(icy::field("Other='x';", "StreamTitle"), "");
}

TEST(IcyWire, ChunkedBodiesAndTitlesAreDecodedWithinTheirBounds) {
    const std::string coded = "4\r\nWiki\r\n6;ext=1\r\npedia \r\nE\r\nin \r\n\r\nchunks.\r\n0\r\nX-Trailer: 1\r\n\r\nNEXT";
    for (size_t slice : {size_t(1), size_t(5), coded.size()}) {
        SCOPED_TRACE(slice);
        icy::ChunkedDecoder decoder;
        std::string body;
        for (size_t at = 0; at < coded.size(); at += slice)
            ASSERT_TRUE(decoder.feed(reinterpret_cast<const uint8_t*>(coded.data()) + at, std::min(slice, coded.size() - at),
                                     [&](const uint8_t* d, size_t n) { body.append(reinterpret_cast<const char*>(d), n); }));
        EXPECT_EQ(body, "Wikipedia in \r\n\r\nchunks.");
        EXPECT_TRUE(decoder.ended());
    }
    for (const std::string& bad : {std::string("zz\r\n"), std::string("4\r\nWikiX\r\n"), std::string(2000, '1')}) {
        icy::ChunkedDecoder decoder;
        EXPECT_FALSE(decoder.feed(reinterpret_cast<const uint8_t*>(bad.data()), bad.size(), [](const uint8_t*, size_t) {}));
    }

    const struct {
        std::string in, out;
        bool changed;
    } titles[] = {
        {"Caf\xc3\xa9 - Song", "Caf\xc3\xa9 - Song", false},     // UTF-8 stays
        {"Caf\xe9 - Song", "Caf\xc3\xa9 - Song", true},           // Latin-1 becomes UTF-8
        {"A\x01\x1b[31mB\x7f", "A[31mB", true},                  // control characters go
        {std::string(600, 'x'), std::string(icy::kMaxTitleBytes, 'x'), true},
        {std::string(511, 'x') + "\xc3\xa9", std::string(511, 'x'), true}, // cut at a character boundary
    };
    for (const auto& t : titles) {
        std::string text = t.in;
        EXPECT_EQ(icy::cleanText(text), t.changed);
        EXPECT_EQ(text, t.out);
    }
}

// ---------------------------------------------------------------- the filter

struct StreamEvents : platform::ShoutcastCallback {
    std::vector<int32_t> buffering;
    std::vector<std::string> titles, urls;
    void StreamBuffering(int32_t percent) override { buffering.push_back(percent); }
    void MetaChangeCallback(const std::string& artistTitle, const std::string& url, const std::string&) override {
        titles.push_back(artistTitle);
        urls.push_back(url);
    }
    void OdStreamSeg(double) override {}
};

class NativeStreamSource : public NativeGraphTest {
protected:
    void SetUp() override {
        NativeGraphTest::SetUp();
        graph_.reset(); // counted without it
        std::thread([] {}).join(); // a sanitizer starts a thread of its own with a process's first
        threads_ = threadCount();
        graph_ = newGraph();
        // Short limits, so that a stream that stays down ends within a test.
        StreamLimits limits;
        limits.watchWindow = std::chrono::milliseconds(2000);
        limits.firstRetry = std::chrono::milliseconds(200);
        limits.longestRetry = std::chrono::milliseconds(1000);
        limits.healthyAfter = std::chrono::milliseconds(5000);
        limits.outageLimit = std::chrono::milliseconds(5000);
        setStreamLimits(limits);
    }
    void TearDown() override {
        setStreamLimits(StreamLimits{});
        graph_.reset();
        EXPECT_TRUE(threadsBackTo(*platform_, threads_)) << "a thread outlived the graph";
        platform_.reset();
    }
    // Opens `address` and pumps until the open has an outcome (as the player's wait does).
    OpenState openAndWait(const FilterPtr& source, const std::string& address) {
        auto* control = source->streamSource();
        control->registerCallback(&events_);
        EXPECT_TRUE(control->open(address));
        pumpUntil(*platform_, [&] { return control->openState() != OpenState::Opening; }, 10000);
        return control->openState();
    }
    // Joins the open source through a sample grabber (which measures what passes) to the
    // silent device, and counts the graph's ends.
    SampleGrabberFilter* connect(const FilterPtr& source) {
        auto grabber = create("Halden Sample Grabber");
        EXPECT_TRUE(graphops::join({source, grabber, create(kDummyDeviceName)}));
        return dynamic_cast<SampleGrabberFilter*>(grabber.get());
    }
    // The louder channel's peak since the last call, as a fraction of full scale.
    static double peak(SampleGrabberFilter* grabber) {
        int32_t left = 0, right = 0;
        grabber->takePeaks(left, right);
        return std::max(left, right) / 32768.0;
    }

    int threads_ = 0;
    StreamEvents events_;
};

TEST_F(NativeStreamSource, OpensWithRisingBufferingThenPlaysAsALiveStream) {
    StreamServer server(StreamServer::Mode::File, mediaPath("tone.mp3"));
    auto source = create("_DShowShoutCast");
    ASSERT_TRUE(source && source->streamSource());
    EXPECT_TRUE(source->pins().empty()) << "no output before the stream is open";
    ASSERT_EQ(openAndWait(source, server.address()), OpenState::Open)
        << source->streamSource()->openFailure().description;
    EXPECT_NE(server.request().find("Icy-MetaData: 1"), std::string::npos);
    EXPECT_FALSE(source->streamSource()->canCancel());
    double duration = 0;
    ASSERT_TRUE(graph_->duration(duration));
    EXPECT_EQ(duration, 525600.0) << "a live stream's mark";

    // Positive percents, rising, and 100 when open: each report is a buffering phase's.
    ASSERT_FALSE(events_.buffering.empty());
    EXPECT_GT(events_.buffering.front(), 0);
    EXPECT_EQ(events_.buffering.back(), 100);
    EXPECT_TRUE(std::is_sorted(events_.buffering.begin(), events_.buffering.end()));
    ASSERT_EQ(source->pins().size(), 1u);
    EXPECT_EQ(source->pins().front()->name(), "Audio");

    auto* grabber = connect(source);
    ASSERT_TRUE(graph_->run());
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return ends_ > 0; }, 15000));
    EXPECT_NEAR(peak(grabber), kToneAmplitude, 0.06) << "the tone, decoded";
    graph_->stop();
    ASSERT_EQ(events_.titles.size(), 1u) << "the title once; empty blocks say nothing";
    EXPECT_EQ(events_.titles[0], kStreamTitle);
    EXPECT_EQ(events_.urls[0], "http://127.0.0.1/");
}

TEST_F(NativeStreamSource, AStopWhileItWaitsEndsThePhaseAndTheNextStartPlaysOn) {
    // Ogg too, whose codec headers only the start of the stream carries.
    struct Case {
        std::string file;
        size_t holdAfter;
        const char* contentType;
    };
    // The Ogg tone is longer than the stock one: a stream has many pages after the cut.
    const std::string ogg = workDir() + "/media/stream-tone.ogg";
    if (!fs::exists(ogg)) {
        ASSERT_EQ(runCommand("ffmpeg -nostdin -loglevel error -y -f lavfi -i 'aevalsrc=0.5*sin(2*PI*1000*t):"
                             "s=44100:d=8' -c:a libvorbis " + ogg),
                  0);
    }
    for (const Case& c : {Case{mediaPath("tone.mp3"), 36 * 1024, "audio/mpeg"}, Case{ogg, 12000, "application/ogg"}}) {
        SCOPED_TRACE(c.file);
        events_ = StreamEvents{};
        ends_ = 0;
        StreamServer server(StreamServer::Mode::Held, c.file, c.contentType, c.holdAfter);
        auto source = create("_DShowShoutCast");
        ASSERT_EQ(openAndWait(source, server.address()), OpenState::Open);
        const size_t opened = events_.buffering.size();
        auto* grabber = connect(source);
        ASSERT_TRUE(graph_->run());
        ASSERT_TRUE(pumpUntil(*platform_, [&] { return events_.buffering.size() > opened; }, 10000));
        ASSERT_TRUE(graph_->stop());
        ASSERT_TRUE(pumpUntil(*platform_, [&] { return events_.buffering.back() == 100; }, 2000))
            << "the stop ends the buffering phase";
        // The reader was cut off mid-read; the next start opens the rest afresh and plays it out.
        server.release();
        pumpUntil(*platform_, [] { return false; }, 300);
        peak(grabber);
        ASSERT_TRUE(graph_->run());
        EXPECT_TRUE(pumpUntil(*platform_, [&] { return ends_ > 0; }, 10000));
        // The tone again (the join, decoded from mid-stream, may overshoot a little).
        EXPECT_GT(peak(grabber), kToneAmplitude * 0.8) << "the rest played";
        graph_->stop();
        for (auto& f : graph_->filters()) graph_->removeFilter(f);
    }
}

TEST_F(NativeStreamSource, AnOpenThatHangsEndsByCancelRemovalOrTheGraphsEnd) {
    StreamServer server(StreamServer::Mode::Silent);
    auto source = create("_DShowShoutCast");
    auto* control = source->streamSource();
    EXPECT_EQ(control->open("not an address").number, hr::InvalidArg);
    EXPECT_EQ(control->openState(), OpenState::Idle);
    control->registerCallback(&events_);
    ASSERT_TRUE(control->open(server.address()));
    EXPECT_EQ(control->openState(), OpenState::Opening);
    EXPECT_TRUE(control->canCancel());
    EXPECT_EQ(control->open(server.address()).number, hr::WrongState) << "one open at a time";
    pumpUntil(*platform_, [] { return false; }, 200);
    ASSERT_TRUE(control->cancel());
    EXPECT_EQ(control->openState(), OpenState::Failed);
    EXPECT_EQ(control->openFailure().number, hr::Abort);
    EXPECT_FALSE(control->canCancel());
    EXPECT_FALSE(control->cancel()) << "nothing left to cancel";
    pumpUntil(*platform_, [] { return false; }, 100);
    EXPECT_EQ(control->openState(), OpenState::Failed) << "late news of the cancelled open is dropped";
    EXPECT_TRUE(events_.buffering.empty());

    // Taken out of the graph while opening, yet still held (as the player holds it): its
    // connection ends all the same, and it says why.
    auto removed = create("_DShowShoutCast");
    ASSERT_TRUE(removed->streamSource()->open(server.address()));
    ASSERT_TRUE(graph_->removeFilter(removed));
    ASSERT_TRUE(pumpUntil(*platform_, [&] { return removed->streamSource()->openState() == OpenState::Failed; },
                          5000));
    EXPECT_EQ(removed->streamSource()->openFailure().number, hr::Abort);

    // Nobody listens: refused at once, and for good.
    auto refused = create("_DShowShoutCast");
    ASSERT_EQ(openAndWait(refused, "icystream://127.0.0.1:" + std::to_string(freePort()) + "/x"), OpenState::Failed);
    EXPECT_EQ(refused->streamSource()->openFailure().number, hr::CannotConnect);
    EXPECT_TRUE(refused->streamSource()->failureIsFinal());

    // The graph goes while another one opens; the source goes with it.
    ASSERT_TRUE(create("_DShowShoutCast")->streamSource()->open(server.address()));
    // TearDown checks that no thread is left.
}

// A 20 s tone at 128 kbit/s, the rate the hostile servers announce.
std::string longTone() {
    const std::string file = workDir() + "/media/stream-tone-20s.mp3";
    if (!fs::exists(file)) {
        EXPECT_EQ(runCommand("ffmpeg -nostdin -loglevel error -y -f lavfi -i 'aevalsrc=0.5*sin(2*PI*1000*t):s=44100:d=20' "
                             "-c:a libmp3lame -b:a 128k " + file),
                  0);
    }
    return file;
}

// Every hostile server at once, each in a graph of its own: how its open ends, how a stream
// that opened ends, and that reports, titles, connections and bytes stay bounded.
TEST_F(NativeStreamSource, HostileServersEndAsDocumentedWithBoundedReportsAndConnections) {
    using M = StreamServer::Mode;
    struct Case {
        const char* name;
        M mode;
        const char* failure; // part of a failed open's text; nullptr: it opens
        bool ends;           // an opened stream ends within the run (the outage limit)
        int connections;     // at most
    };
    const Case cases[] = {
        {"stall", M::Stall, nullptr, true, 5},
        {"drip", M::Drip, nullptr, true, 5},
        {"trickle", M::Trickle, nullptr, true, 5},
        {"drop after 200 bytes", M::Drop, "ended the stream", false, 1},
        {"flood", M::Flood, nullptr, false, 1},
        {"redirect loop", M::RedirectLoop, "redirects in a loop", false, 3},
        {"chunked", M::Chunked, nullptr, true, 1},
        {"metadata interval 1", M::TinyInterval, "metadata interval", false, 1},
        {"title flood", M::TitleFlood, nullptr, false, 1},
    };
    struct Run {
        std::unique_ptr<StreamServer> server;
        platform::GraphPtr graph;
        FilterPtr source;
        StreamEvents events;
        int ends = 0;
    };
    const std::string tone = longTone();
    std::vector<std::unique_ptr<Run>> runs;
    for (const Case& c : cases) {
        auto r = std::make_unique<Run>();
        r->server = std::make_unique<StreamServer>(c.mode, tone);
        ASSERT_TRUE(platform_->createGraph(r->graph));
        r->source = create("_DShowShoutCast", r->graph);
        r->source->streamSource()->registerCallback(&r->events);
        ASSERT_TRUE(r->source->streamSource()->open(r->server->address()));
        runs.push_back(std::move(r));
    }
    auto state = [&](size_t i) { return runs[i]->source->streamSource()->openState(); };
    ASSERT_TRUE(pumpUntil(*platform_, [&] {
        for (size_t i = 0; i < runs.size(); ++i)
            if (state(i) == OpenState::Opening) return false;
        return true;
    }, 10000));
    for (size_t i = 0; i < runs.size(); ++i) {
        SCOPED_TRACE(cases[i].name);
        Run& r = *runs[i];
        if (cases[i].failure) {
            EXPECT_EQ(state(i), OpenState::Failed);
            EXPECT_TRUE(r.source->streamSource()->failureIsFinal());
            EXPECT_NE(r.source->streamSource()->openFailure().description.find(cases[i].failure), std::string::npos)
                << r.source->streamSource()->openFailure().description;
            continue;
        }
        ASSERT_EQ(state(i), OpenState::Open) << r.source->streamSource()->openFailure().description;
        ASSERT_TRUE(graphops::join({r.source, create(kDummyDeviceName, r.graph)}));
        r.graph->setEventHandler([&r](platform::GraphEvent e) { r.ends += e == platform::GraphEvent::EndOfStream; });
        ASSERT_TRUE(r.graph->run());
    }
    const auto start = std::chrono::steady_clock::now();
    pumpUntil(*platform_, [&] {
        for (size_t i = 0; i < runs.size(); ++i)
            if (cases[i].ends && runs[i]->ends == 0) return false;
        return true;
    }, 25000);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    for (size_t i = 0; i < runs.size(); ++i) {
        SCOPED_TRACE(cases[i].name);
        Run& r = *runs[i];
        if (!cases[i].failure) {
            EXPECT_EQ(r.ends > 0, cases[i].ends);
        }
        EXPECT_LE(r.server->connections(), cases[i].connections);
        EXPECT_LE(r.events.buffering.size(), 60u);
        EXPECT_LE(double(r.events.titles.size()), 2 * seconds + 2) << "titles at most twice a second";
        r.graph->stop();
    }
    // Back-pressure: the flood's server could send little more than the buffer and the sockets hold.
    EXPECT_LT(runs[4]->server->bytesSent(), 32 << 20);
    // Latin-1 titles arrive as UTF-8, each new one replacing the one still waiting.
    ASSERT_FALSE(runs[8]->events.titles.empty());
    EXPECT_EQ(runs[8]->events.titles.front().rfind("Caf\xc3\xa9 ", 0), 0u);
    EXPECT_GT(runs[8]->events.titles.size(), 2u);
}

// ---------------------------------------------------------------- the player on icecast2

constexpr const char* kSourcePassword = "corvid-source";
constexpr const char* kAdminPassword = "corvid-admin";
constexpr const char* kAdminAuthorization = "YWRtaW46Y29ydmlkLWFkbWlu"; // "admin:corvid-admin", Base64
constexpr const char* kMount = "/live.mp3";
constexpr const char* kAacMount = "/live.aac";
constexpr const char* kOggMount = "/live.ogg";
constexpr double kIcecastTone = 0.5; // -6 dBFS

// One icecast2 for the suite, on a free port with a private configuration, and an ffmpeg
// source client sending a 1 kHz tone to /live.mp3.
class Icecast {
public:
    Icecast() {
        dir_ = workDir() + "/icecast";
        std::error_code ec;
        fs::remove_all(dir_, ec);
        fs::create_directories(dir_ + "/log", ec);
        // icecast2 refuses to run as root unless it may drop to another user, which then
        // has to write its logs here.
        const bool root = ::geteuid() == 0;
        if (root) {
            fs::permissions(dir_, fs::perms::all, ec);
            fs::permissions(dir_ + "/log", fs::perms::all, ec);
            for (fs::path p = dir_; p.has_parent_path() && p != p.parent_path(); p = p.parent_path())
                fs::permissions(p, fs::perms::others_exec, fs::perm_options::add, ec);
        }
        port_ = freePort();
        tlsPort_ = freePort();
        // A certificate for 127.0.0.1, made for this run; the tests that trust it say so
        // through SSL_CERT_FILE while they run.
        runCommand("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 "
                   "-addext subjectAltName=IP:127.0.0.1 -keyout " + dir_ + "/key.pem -out " + certificate() +
                   " 2>/dev/null && cat " + certificate() + " " + dir_ + "/key.pem > " + dir_ + "/icecast.pem && chmod 644 " +
                   dir_ + "/icecast.pem");
        {
            std::ofstream xml(dir_ + "/icecast.xml");
            xml << "<icecast>\n"
                << " <limits><clients>20</clients><sources>4</sources><burst-size>65536</burst-size>"
                << "<source-timeout>10</source-timeout></limits>\n"
                << " <authentication><source-password>" << kSourcePassword << "</source-password>"
                << "<admin-user>admin</admin-user><admin-password>" << kAdminPassword
                << "</admin-password></authentication>\n"
                << " <hostname>127.0.0.1</hostname>\n"
                << " <listen-socket><port>" << port_ << "</port><bind-address>127.0.0.1</bind-address></listen-socket>\n"
                << " <listen-socket><port>" << tlsPort_ << "</port><bind-address>127.0.0.1</bind-address><ssl>1</ssl>"
                << "</listen-socket>\n"
                << " <fileserve>0</fileserve>\n"
                << " <paths><basedir>" << dir_ << "</basedir><logdir>" << dir_ << "/log</logdir>"
                << "<webroot>/usr/share/icecast2/web</webroot><adminroot>/usr/share/icecast2/admin</adminroot>"
                << "<ssl-certificate>" << dir_ << "/icecast.pem</ssl-certificate></paths>\n"
                << " <logging><accesslog>access.log</accesslog><errorlog>error.log</errorlog>"
                << "<loglevel>2</loglevel></logging>\n"
                << " <security><chroot>0</chroot>"
                << (root ? "<changeowner><user>nobody</user><group>nogroup</group></changeowner>" : "")
                << "</security>\n"
                << "</icecast>\n";
        }
        server_ = std::make_unique<ChildProcess>(std::vector<std::string>{"icecast2", "-c", dir_ + "/icecast.xml"},
                                          dir_ + "/server.out");
        if (!pumpWait([&] { return !httpStatus(port_, "/status-json.xsl").empty(); })) return;
        sources_.resize(3);
        for (size_t i = 0; i < sources_.size(); ++i) startSource(i);
        up_ = pumpWait([&] {
            for (const char* mount : {kMount, kAacMount, kOggMount})
                if (httpStatus(port_, mount).find(" 200") == std::string::npos) return false;
            return true;
        });
    }
    // One mount per format the source decodes, each fed by its own source client.
    void startSource(size_t i) {
        const std::string tone = "aevalsrc=exprs=" + std::to_string(kIcecastTone) + "*sin(2*PI*1000*t)|" +
                                 std::to_string(kIcecastTone) + "*sin(2*PI*1000*t):s=44100";
        const std::vector<std::vector<std::string>> encodings = {
            {kMount, "libmp3lame", "audio/mpeg", "mp3"},
            {kAacMount, "aac", "audio/aac", "adts"},
            {kOggMount, "libvorbis", "application/ogg", "ogg"},
        };
        const auto& e = encodings[i];
        sources_[i] = std::make_unique<ChildProcess>(
            std::vector<std::string>{"ffmpeg", "-nostdin", "-loglevel", "error", "-re", "-f", "lavfi", "-i", tone,
                                     "-c:a", e[1], "-b:a", "128k", "-content_type", e[2], "-f", e[3],
                                     "icecast://source:" + std::string(kSourcePassword) + "@127.0.0.1:" +
                                         std::to_string(port_) + e[0]},
            dir_ + "/source.out");
    }
    void stopSource(size_t i) { sources_[i].reset(); }
    bool mountUp(const char* mount = kMount) const { return httpStatus(port_, mount).find(" 200") != std::string::npos; }
    std::string certificate() const { return dir_ + "/cert.pem"; }
    std::string tlsAddress(const std::string& scheme = "icystreams") const {
        return scheme + "://127.0.0.1:" + std::to_string(tlsPort_) + kMount;
    }
    ~Icecast() {
        sources_.clear();
        server_.reset();
    }

    bool up() const { return up_; }
    int port() const { return port_; }
    std::string address(const std::string& mount = kMount) const {
        return "icystream://127.0.0.1:" + std::to_string(port_) + mount;
    }
    // Sets the title that listeners of the mount get in their next metadata block.
    bool setSong(const std::string& song) const {
        const std::string target = "/admin/metadata?mount=" + std::string(kMount) + "&mode=updinfo&song=" + urlEncode(song);
        return httpStatus(port_, target, kAdminAuthorization).find(" 200") !=
               std::string::npos;
    }
    std::string log() const {
        std::ifstream a(dir_ + "/server.out"), b(dir_ + "/log/error.log"), c(dir_ + "/source.out");
        std::stringstream s;
        s << a.rdbuf() << b.rdbuf() << c.rdbuf();
        return s.str();
    }

private:
    template <class F> static bool pumpWait(F done) {
        for (int i = 0; i < 100; ++i) { // at most 10 s
            if (done()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return false;
    }
    std::string dir_;
    int port_ = 0, tlsPort_ = 0;
    bool up_ = false;
    std::unique_ptr<ChildProcess> server_;
    std::vector<std::unique_ptr<ChildProcess>> sources_;
};

class StreamOnIcecast : public NativePlayerTest {
protected:
    static void SetUpTestSuite() { icecast_ = new Icecast(); }
    static void TearDownTestSuite() {
        delete icecast_;
        icecast_ = nullptr;
    }
    void SetUp() override {
        if (!icecast_->up()) GTEST_SKIP() << "icecast2 did not come up:\n" << icecast_->log();
        start(false, kDummyDeviceName);
    }
    void TearDown() override {
        if (!platform_) return;
        player_.reset();
        EXPECT_TRUE(threadsBackTo(*platform_, threads_)) << "a thread outlived the player";
        platform_.reset();
    }
    bool sawTitle(const std::string& title) const { return host_.count("ShoutCastMeta: " + title + "|") > 0; }

    static Icecast* icecast_;
};

Icecast* StreamOnIcecast::icecast_ = nullptr;

TEST_F(StreamOnIcecast, ALiveStreamLoadsPlaysCarriesItsTitlesAndStops) {
    ASSERT_TRUE(icecast_->setSong("Corvid Artist - First Song"));
    load(icecast_->address());
    ASSERT_EQ(player_->get_FileName(), icecast_->address()) << player_->get_LastError();
    EXPECT_EQ(player_->get_LastError(), "");
    EXPECT_EQ(player_->get_Duration(), 216000.0);
    EXPECT_EQ(player_->get_GraphDuration(), 525600.0);
    EXPECT_FALSE(player_->get_StreamingIsOnDemandFile());
    EXPECT_TRUE(player_->get_isStreaming());
    EXPECT_FALSE(player_->get_StreamingCanCancelPlay()) << "open: nothing to cancel";
    // The pre-roll: buffering started and reported, ending at 100.
    EXPECT_EQ(host_.count("StreamBufferingStarted"), 1);
    ASSERT_GT(host_.count("StreamBuffering: "), 0);
    EXPECT_EQ(host_.count("StreamBuffering: 100"), 1);
    EXPECT_EQ(player_->get_StreamBufferingPercent(), -1);

    player_->Play();
    EXPECT_EQ(player_->get_Playstate(), MpPlaying);
    EXPECT_TRUE(pump([&] { return sawTitle("Corvid Artist - First Song"); }, 10000));
    // A new title on the air reaches the host while it plays.
    ASSERT_TRUE(icecast_->setSong("Corvid Artist - Second Song"));
    EXPECT_TRUE(pump([&] { return sawTitle("Corvid Artist - Second Song"); }, 10000));
    // The meters tick while it plays, with the tone's level: the stream chain leaves the sample
    // grabber aside, so the helper meters what reaches the device.
    EXPECT_TRUE(pump([&] { return host_.vuPeaks.size() >= 20 && host_.timings.size() >= 20; }, 5000));
    EXPECT_NEAR(host_.loudest(), kIcecastTone * 32768, 32768 * 0.08);
    const float elapsed = player_->get_Elapsed();
    EXPECT_GT(elapsed, 0.5f) << "the play clock runs";
    EXPECT_TRUE(host_.endOfStreams.empty()) << "a live stream goes on";

    player_->StopPlaying();
    EXPECT_EQ(player_->get_Playstate(), mpstopped);
    const size_t peaks = host_.vuPeaks.size();
    pump([] { return false; }, 300);
    EXPECT_EQ(host_.vuPeaks.size(), peaks) << "no meters once stopped";

    // Played again: the stream goes on from where it is live now.
    player_->Play();
    EXPECT_EQ(player_->get_Playstate(), MpPlaying);
    EXPECT_TRUE(pump([&] { return host_.vuPeaks.size() >= peaks + 10; }, 5000));
    player_->StopPlaying();
    load("");
}

// Trusts the test's own certificate for as long as it lives.
struct TrustedCertificate {
    explicit TrustedCertificate(const std::string& file) { ::setenv("SSL_CERT_FILE", file.c_str(), 1); }
    ~TrustedCertificate() { ::unsetenv("SSL_CERT_FILE"); }
};

// Every way an address reaches a mount: each format by its content type, TLS once its
// certificate is trusted (and a plain address redirected there), http and https through the
// reader once it is allowed; and the refusals before that.
TEST_F(StreamOnIcecast, EveryAddressFormPlaysOnceAllowedAndSaysWhyBefore) {
    const std::string plain = "http://127.0.0.1:" + std::to_string(icecast_->port()) + kMount;
    StreamServer moved(StreamServer::Mode::RedirectTo, "", "", 0, icecast_->tlsAddress("https"));
    struct Case {
        std::string address;
        bool trusted, reader;
        const char* error; // the load fails with this in LastError; nullptr: it plays
        const char* title; // on the air while it plays
    };
    const Case cases[] = {
        {icecast_->tlsAddress(), false, false, "could not prove who it is", nullptr},
        {plain, false, false, "ASFReaderBanned", nullptr},
        {icecast_->address(kAacMount), false, false, nullptr, nullptr},
        {icecast_->address(kOggMount), false, false, nullptr, nullptr},
        {icecast_->tlsAddress(), true, false, nullptr, "Corvid Artist - Secure Song"},
        {moved.address(), true, false, nullptr, "Corvid Artist - Secure Song"},
        {plain, false, true, nullptr, nullptr},
        {icecast_->tlsAddress("https"), true, true, nullptr, nullptr},
    };
    ASSERT_TRUE(icecast_->setSong("Corvid Artist - Secure Song"));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.address + (c.trusted ? " trusted" : "") + (c.reader ? " through the reader" : ""));
        std::optional<TrustedCertificate> trust;
        if (c.trusted) trust.emplace(icecast_->certificate());
        bool banned = !c.reader;
        player_->put_ASFReaderBanned(banned);
        load(c.address);
        if (c.error) {
            EXPECT_EQ(player_->get_FileName(), "");
            EXPECT_NE(player_->get_LastError().find(c.error), std::string::npos) << player_->get_LastError();
            continue;
        }
        ASSERT_EQ(player_->get_FileName(), c.address) << player_->get_LastError();
        EXPECT_EQ(player_->get_UsingASFReader(), c.reader);
        if (!c.reader) {
            EXPECT_EQ(host_.count("StreamBuffering: 100"), 1) << "opened at the first attempt";
        }
        player_->Play();
        EXPECT_EQ(player_->get_Playstate(), MpPlaying);
        if (c.title) {
            EXPECT_TRUE(pump([&] { return sawTitle(c.title); }, 10000));
        }
        EXPECT_TRUE(pump([&] { return host_.vuPeaks.size() >= 10; }, 5000));
        EXPECT_TRUE(host_.endOfStreams.empty());
        player_->StopPlaying();
        load("");
    }
}

TEST_F(StreamOnIcecast, ASourceClientThatGoesAndComesBackIsReconnectedWithBufferingBetween) {
    load(icecast_->address());
    ASSERT_EQ(player_->get_FileName(), icecast_->address()) << player_->get_LastError();
    player_->Play();
    ASSERT_TRUE(pump([&] { return host_.vuPeaks.size() >= 10; }, 5000));
    host_.clear();
    icecast_->stopSource(0);
    // What was buffered plays out first; then the deck says it waits.
    ASSERT_TRUE(pump([&] { return host_.count("StreamBufferingStarted") > 0; }, 15000));
    icecast_->startSource(0);
    ASSERT_TRUE(pump([&] { return icecast_->mountUp(); }, 10000));
    host_.clear();
    EXPECT_TRUE(pump([&] { return host_.count("StreamBuffering: -1") > 0; }, 10000)) << "playback goes on";
    auto loud = [&] {
        for (const auto& [left, right] : host_.vuPeaks)
            if (std::max(left, right) > kIcecastTone * 32768 * 0.5) return true;
        return false;
    };
    EXPECT_TRUE(pump(loud, 5000)) << "the tone again";
    EXPECT_EQ(player_->get_Playstate(), MpPlaying);
    EXPECT_TRUE(host_.endOfStreams.empty());
    player_->StopPlaying();
    load("");
}

TEST_F(StreamOnIcecast, AFailedStreamLoadEndsWithTheServersAnswerOrTheHostsCancelAfterOneConnection) {
    struct Case {
        const char* name;
        std::function<void(Player&)> host; // runs inside the player's wait, as a button would
        const char* error;
    };
    const Case cases[] = {
        {"silent server", nullptr, "Waiting too long for the stream to load"},
        {"StreamingCancelPlay", [](Player& p) { p.StreamingCancelPlay(); }, "Opening the stream was cancelled."},
        {"StopPlaying", [](Player& p) { p.StopPlaying(); }, "Opening the stream was cancelled."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        StreamServer server(StreamServer::Mode::Silent);
        std::function<void()> press = [&] {
            if (server.connections() == 0) return platform_->eventLoop().post(press);
            c.host(*player_);
        };
        if (c.host) platform_->eventLoop().post(press);
        load(server.address());
        EXPECT_EQ(player_->get_FileName(), "");
        EXPECT_EQ(player_->get_LastError(), c.error);
        EXPECT_EQ(server.connections(), 1) << "no second build towards the same server";
        EXPECT_FALSE(player_->get_StreamingCanCancelPlay());
    }
    load(icecast_->address("/nothing-here.mp3"));
    EXPECT_EQ(player_->get_FileName(), "");
    EXPECT_NE(player_->get_LastError().find("does not exist (HTTP/1.0 404"), std::string::npos) << player_->get_LastError();
    // The next load works as ever.
    load(icecast_->address());
    EXPECT_EQ(player_->get_FileName(), icecast_->address()) << player_->get_LastError();
}

} // namespace
} // namespace corvid::native::test
