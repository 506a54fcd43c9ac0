// The native services outside the graph that the contract suite does not share with the
// simulation: the event loop's blocking run, the tick counter, the operator, the files' places,
// the silent fallback when no sound server answers, and real-time scheduling without a grant.

#include "NativeTestSupport.h"

#include "platform/native/NativeCatalogue.h"
#include "platform/native/Realtime.h"

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace corvid::native::test {
namespace {

TEST(NativeEventLoopTest, AQuitBeforeRunMakesRunReturnAtOnce) {
    NativeEventLoop loop;
    loop.quit();
    loop.run();
}


TEST(NativeServicesTest, TickCounterIsMonotonicAndWallClockStaysInTheDay) {
    NativePlatform platform(testOptions(true));
    auto& ticks = platform.ticks();
    const int32_t a = ticks.nowMs();
    ticks.sleepMs(20);
    const int32_t b = ticks.nowMs();
    EXPECT_GE(int32_t(uint32_t(b) - uint32_t(a)), 20);
    const double s = ticks.secondsSinceMidnight();
    EXPECT_GE(s, 0);
    EXPECT_LT(s, 86400);
}

TEST(NativeServicesTest, OperatorReportsRepairsAndBoxesAndStartsProgramsWithoutWaiting) {
    NativePlatform platform(testOptions(true));
    std::vector<std::string> sink;
    platform.setLogSink([&](const std::string& line) { sink.push_back(line); });
    auto& op = platform.operatorServices();

    op.messageBox("Critical Playback Error!", "SampleGrabber *should* create - reinstall app?",
                  platform::MessageIcon::Critical);
    ASSERT_EQ(sink.size(), 1u);
    EXPECT_NE(sink[0].find("Critical Playback Error!"), std::string::npos);
    EXPECT_NE(sink[0].find("SampleGrabber *should* create - reinstall app?"), std::string::npos);

    EXPECT_TRUE(op.startProcess("regsvr32.exe  quartz.dll /s", platform::WindowStyle::Minimized));
    ASSERT_EQ(sink.size(), 2u);
    EXPECT_NE(sink[1].find("regsvr32.exe  quartz.dll /s"), std::string::npos);

    const auto mixer = op.startProcess("SNDVOL32.EXE", platform::WindowStyle::Normal);
    EXPECT_EQ(bool(mixer), !findExecutable("pavucontrol").empty() ||
                               !findExecutable("pavucontrol-qt").empty() ||
                               !findExecutable("pwvucontrol").empty());

    // The program waits at a gate the test opens only after startProcess returned, then says
    // it ran: a startProcess that waited for it would never return.
    const std::string gate = workDir() + "/start-gate", marker = workDir() + "/started-marker";
    std::filesystem::remove(gate);
    std::filesystem::remove(marker);
    ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
    ASSERT_TRUE(op.startProcess("timeout 30 sh -c \"cat " + gate + " > /dev/null; touch " + marker + "\"",
                                platform::WindowStyle::Hidden));
    int writer = -1; // opens once the program reads the gate
    for (int i = 0; i < 1000 && writer < 0; ++i, platform.ticks().sleepMs(10))
        writer = ::open(gate.c_str(), O_WRONLY | O_NONBLOCK);
    ASSERT_GE(writer, 0) << "the program never reached its gate";
    EXPECT_FALSE(std::filesystem::exists(marker));
    ::close(writer);
    for (int i = 0; i < 1000 && !std::filesystem::exists(marker); ++i) platform.ticks().sleepMs(10);
    EXPECT_TRUE(std::filesystem::exists(marker));
    EXPECT_FALSE(op.startProcess("no-such-program-anywhere", platform::WindowStyle::Normal));
}

TEST(NativeServicesTest, FilesLiveInTheUsersStateAndConfigFolders) {
    NativePlatform platform(testOptions(true));
    auto& op = platform.operatorServices();
    const std::string report = op.detectionReportPath();
    EXPECT_EQ(report, std::string(std::getenv("XDG_STATE_HOME")) + "/corvid/DetectionInfo.txt");
    EXPECT_EQ(op.markerFilePath(), std::string(std::getenv("XDG_CONFIG_HOME")) + "/corvid/marlodev");
    std::filesystem::remove_all(std::filesystem::path(report).parent_path());
    ASSERT_TRUE(op.writeTextFile(report, "Detection Done!\r\n"));
    EXPECT_TRUE(op.fileExists(report));
    EXPECT_TRUE(op.testOpen(report));
    EXPECT_EQ(op.testOpen(workDir()).number, platform::hr::AccessDenied);
    EXPECT_EQ(op.testOpen(workDir() + "/nothing-here").number, platform::hr::FileNotFound);
    EXPECT_FALSE(op.fileExists(workDir() + "/nothing-here"));
}

TEST(NativeServicesTest, WithoutASoundServerTheDefaultDeviceIsTheSilentOneSaidOnce) {
    const std::string saved = std::getenv("PULSE_SERVER") ? std::getenv("PULSE_SERVER") : "";
    ::setenv("PULSE_SERVER", ("unix:" + workDir() + "/no-server-here").c_str(), 1);
    {
        NativePlatform platform(testOptions());
        std::vector<platform::CatalogueEntryPtr> entries;
        ASSERT_TRUE(platform.catalogue().enumerate(platform::category::AudioRenderers, entries));
        ASSERT_EQ(entries.size(), 2u);
        EXPECT_EQ(entries[0]->name(), kDefaultDeviceName);
        platform.catalogue().refresh();
        platform.catalogue().enumerate(platform::category::AudioRenderers, entries);
        const auto& reports = platform.operatorReports().reports();
        EXPECT_EQ(reports.size(), 1u);
        EXPECT_NE(reports.front().find("silent"), std::string::npos);

        // The silent default still plays to its end.
        platform::GraphPtr graph;
        platform.createGraph(graph);
        int ends = 0;
        graph->setEventHandler([&](platform::GraphEvent e) { ends += e == platform::GraphEvent::EndOfStream; });
        platform::FilterPtr source;
        ASSERT_TRUE(graph->addSourceFilter(mediaPath("tone.flac"), source));
        ASSERT_TRUE(source->pins().front()->render());
        ASSERT_TRUE(graph->setCurrentPosition(kToneSeconds - 0.2));
        ASSERT_TRUE(graph->run());
        EXPECT_TRUE(pumpUntil(platform, [&] { return ends > 0; }, 5000));
    }
    ::setenv("PULSE_SERVER", saved.c_str(), 1);
}

// A system bus that takes the connection and never answers: an unprivileged child without
// RLIMIT_RTPRIO asks twice, is refused, and is not held up by the bus library's own waits.
TEST(NativeServicesTest, RealtimeFromABusThatNeverAnswersIsRefusedWithoutHanging) {
    const std::string name = "corvid-mute-bus-" + std::to_string(::getpid());
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.data(), name.size()); // abstract: no file rights
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address),
                     socklen_t(offsetof(sockaddr_un, sun_path) + 1 + name.size())), 0);
    ASSERT_EQ(::listen(listener, 4), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_RTPRIO, &none);
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(2);
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:abstract=" + name).c_str(), 1);
        const bool granted = requestRealtime().granted || requestRealtime().granted;
        ::_exit(granted ? 1 : 0);
    }
    int status = 0;
    pid_t done = 0;
    for (int i = 0; i < 100 && (done = ::waitpid(child, &status, WNOHANG)) == 0; ++i) ::usleep(50000);
    if (done == 0) ::kill(child, SIGKILL), ::waitpid(child, &status, 0);
    ::close(listener);
    EXPECT_NE(done, 0) << "the thread's start waited on the bus for 5 s and more";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

} // namespace
} // namespace corvid::native::test
