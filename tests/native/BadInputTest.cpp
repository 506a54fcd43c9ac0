// Untrusted input: every kind of bad file fails where the chains look (loading the source or
// connecting the parser) with a Status that says why, or, when the damage is further in,
// plays to its end. Nothing crashes and nothing hangs.

#include "NativeTestSupport.h"

#include <corvid/Player.h>
#include "platform/native/NativeCatalogue.h"

#include <filesystem>

#include <sys/wait.h>
#include <unistd.h>

namespace corvid::native::test {
namespace {

namespace hr = platform::hr;

using graphops::Chain;
using graphops::kChains;

class NativeBadInput : public NativeGraphTest {
protected:
    // Builds `chain` for `file` in a graph of its own up to the renderer.
    platform::Status build(const Chain& chain, const std::string& file, platform::GraphPtr& graph) {
        graph = newGraph();
        return NativeGraphTest::build(file, chain.filters, {create(kDefaultDeviceName, graph)}, graph);
    }
};

TEST_F(NativeBadInput, FilesWithoutAudioOrOfAnotherKindFailToLoadOrConnectWithAReason) {
    const std::string dir = workDir() + "/media/a-directory.mp3";
    std::filesystem::create_directories(dir);
    for (const auto& chain : kChains) {
        const std::string ext = chain.kind;
        if (ext == "wide.wav") continue; // no bad copies of it are made
        for (const std::string& file :
             {mediaPath("empty.mp3"), mediaPath("text.mp3"), mediaPath("trunc." + ext), dir,
              workDir() + "/media/missing." + ext}) {
            SCOPED_TRACE(chain.filters.back() + " with " + file);
            platform::GraphPtr graph;
            const auto s = build(chain, file, graph);
            EXPECT_FALSE(s);
            EXPECT_FALSE(s.description.empty());
            EXPECT_TRUE(s.number == hr::InvalidFileFormat || s.number == hr::UnknownFileType ||
                        s.number == hr::FileNotFound || s.number == hr::AccessDenied ||
                        s.number == hr::UnsupportedStream)
                << std::hex << s.number << " " << s.description;
        }
    }
    platform::GraphPtr graph;
    const auto s = build(kChains[0], mediaPath("tone.mp3"), graph); // MP3 into the Wave Parser
    EXPECT_EQ(s.number, hr::InvalidFileFormat) << s.description;
    EXPECT_NE(s.description.find("mp3"), std::string::npos) << s.description;
}

// What a host sees: the load of a bad item leaves no item and says why in LastError.
std::string loadThroughPlayer(NativePlatform& platform, const std::string& file) {
    Player player(platform);
    bool allowed = false; // every source route open, the Windows Media reader included
    player.put_ASFReaderBanned(allowed);
    player.Init();
    std::string item = file;
    player.put_FileName(item);
    return player.get_FileName().empty() ? player.get_LastError() : std::string();
}

TEST_F(NativeBadInput, APlayerGivesAReasonForEveryItemItCannotLoad) {
    const std::string dir = workDir() + "/media/a-directory.mp3";
    std::filesystem::create_directories(dir);
    std::vector<std::string> files = {mediaPath("empty.mp3"), mediaPath("text.mp3"), dir,
                                      workDir() + "/media/missing.mp3"};
    for (const char* ext : {"wav", "mp3", "ogg", "m4a", "flac", "wma"})
        files.push_back(mediaPath(std::string("trunc.") + ext));
    for (const auto& file : files) {
        SCOPED_TRACE(file);
        EXPECT_FALSE(loadThroughPlayer(*platform_, file).empty()) << "a reason in LastError";
    }
}

TEST_F(NativeBadInput, AnUnreadableFileIsRefusedWithAReason) {
    const std::string file = workDir() + "/media/unreadable.wav";
    std::filesystem::copy_file(mediaPath("tone.wav"), file, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::permissions(file, std::filesystem::perms::none);
    if (::geteuid() != 0) {
        platform::GraphPtr graph;
        EXPECT_EQ(build(kChains[0], file, graph).number, hr::AccessDenied);
        EXPECT_FALSE(loadThroughPlayer(*platform_, file).empty());
        return;
    }
    // Root reads every file: the load runs in a child that has become "nobody".
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(3);
        NativePlatform platform(testOptions(true));
        ::_exit(loadThroughPlayer(platform, file).empty() ? 1 : 0);
    }
    int status = 0;
    for (int waited = 0; waited < 300 && ::waitpid(child, &status, WNOHANG) == 0; ++waited)
        ::usleep(100 * 1000);
    if (::waitpid(child, &status, WNOHANG) == 0) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
        FAIL() << "the load did not end";
    }
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_NE(WEXITSTATUS(status), 3) << "could not become nobody";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the load failed without a reason, or succeeded";
}

TEST_F(NativeBadInput, DamageFurtherInPlaysToAnEndOrFailsCleanly) {
    for (const auto& chain : kChains) {
        for (const char* kind : {"half.", "corrupt."}) {
            if (std::string(chain.kind) == "wide.wav") continue;
            const std::string file = mediaPath(kind + std::string(chain.kind));
            SCOPED_TRACE(chain.filters.back() + " with " + file);
            platform::GraphPtr graph;
            const auto s = build(chain, file, graph);
            if (!s) {
                EXPECT_FALSE(s.description.empty());
                continue;
            }
            ends_ = 0;
            ASSERT_TRUE(graph->run());
            EXPECT_TRUE(pumpUntil(*platform_, [&] { return ends_ > 0; }, 15000));
        }
    }
}

} // namespace
} // namespace corvid::native::test
