// The settings text without a disk, then the store on a real file system: defaults, damaged
// files, concurrent writers and a writer killed in the middle of its work.

#include "platform/native/IniSettingsStore.h"
#include "platform/native/IniText.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace corvid::native {
namespace {

namespace fs = std::filesystem;

class IniSettingsStoreTest : public ::testing::Test {
protected:
    fs::path dir;

    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir = fs::path(CORVID_TEST_WORKDIR) / "ini" / (std::to_string(::getpid()) + "-" + info->name());
        fs::remove_all(dir);
    }
    void TearDown() override {
        std::error_code ec;
        fs::permissions(dir, fs::perms::owner_all, ec);
        fs::remove_all(dir, ec);
    }

    static void spit(const fs::path& p, const std::string& text) {
        fs::create_directories(p.parent_path());
        std::ofstream(p, std::ios::binary) << text;
    }
    std::vector<std::string> tempFiles() const {
        std::vector<std::string> names;
        for (const auto& e : fs::directory_iterator(dir))
            if (e.path().filename().string().find(".tmp.") != std::string::npos)
                names.push_back(e.path().filename().string());
        return names;
    }
};

// The text alone: every value survives a round trip, names ignore case and keep their first
// spelling, lines that are not ours stay.
TEST(IniTextTest, RoundTripsAnyTextAndKeepsWhatItCannotRead) {
    const std::vector<std::pair<std::string, std::string>> entries = {
        {"NewGraphEveryTime", "True"},        {"multi", "line one\nline two\r\nend"},
        {"equals", "a=b=c"},                  {"padded", "  both ends\t"},
        {"escapes", "C:\\path\\n\\x41"},      {"empty", ""},
        {"key=with[odd];#chars ", "[not a section]"}, {" ", "; not a comment"},
        {"utf8", "Bj\xc3\xb6rk \xe2\x80\x94 J\xc3\xb3ga"}, {"control", std::string("a\x01z\x7f", 4)},
    };
    std::string text;
    for (const auto& [k, v] : entries) text = ini::withValue(text, "Fenwick", k, v);
    text = ini::withValue(text, "odd]section=", "k", "v");
    for (const auto& [k, v] : entries) EXPECT_EQ(ini::value(text, "Fenwick", k), v) << k;
    EXPECT_EQ(ini::value(text, "odd]section=", "k"), "v");
    EXPECT_EQ(text.rfind("[Fenwick]\nNewGraphEveryTime=True\nmulti=line one\\nline two\\r\\nend\n", 0), 0u)
        << text;

    text = ini::withValue("", "Player-Settings", "Deck1 : PipeSenderDownstreamMute", "True");
    EXPECT_EQ(ini::value(text, "player-settings", "DECK1 : pipesenderdownstreammute"), "True");
    text = ini::withValue(text, "PLAYER-SETTINGS", "deck1 : PIPESENDERDOWNSTREAMMUTE", "False");
    EXPECT_EQ(text, "[Player-Settings]\nDeck1 : PipeSenderDownstreamMute=False\n");
    EXPECT_EQ(ini::value(text, "Other", "Deck1 : PipeSenderDownstreamMute"), std::nullopt);

    const std::string damaged = "garbage line\n[Fenwick\nbad\\qescape=1\n[Fenwick]\n"
                                "NewGraphEveryTime = True \n\\x=broken\n";
    EXPECT_EQ(ini::value(damaged, "Fenwick", "NewGraphEveryTime"), "True");
    EXPECT_EQ(ini::value(damaged, "Fenwick", "bad\\qescape"), std::nullopt);
    EXPECT_NE(ini::withValue(damaged, "Fenwick", "NewGraphEveryTime", "False").find("garbage line\n"),
              std::string::npos);
}

TEST(IniTextTest, ApplicationNamesBecomeSafeDistinctFileNames) {
    const std::pair<std::string, std::string> names[] = {
        {"Corvid", "corvid.ini"}, {"My App", "my_20app.ini"}, {"", "_.ini"},
        {"../../etc/passwd", "_2e_2e_2f_2e_2e_2fetc_2fpasswd.ini"}};
    for (const auto& [application, file] : names) EXPECT_EQ(ini::fileNameFor(application), file);
    EXPECT_NE(ini::fileNameFor("a_b"), ini::fileNameFor("a b"));
    const std::string longA(300, 'a'), longB = std::string(299, 'a') + "b";
    EXPECT_LE(ini::fileNameFor(longA).size(), 255u);
    EXPECT_NE(ini::fileNameFor(longA), ini::fileNameFor(longB));
}

TEST_F(IniSettingsStoreTest, AbsentValuesReadAsDefaultsWithoutWriting) {
    IniSettingsStore store((dir / "not-yet").string());
    EXPECT_EQ(store.read("Corvid", "Fenwick1", "SilenceData", "40,30,-1"), "40,30,-1");
    EXPECT_FALSE(fs::exists(dir / "not-yet"));

    ASSERT_TRUE(store.write("Corvid", "Fenwick1", "Other", "x").ok());
    EXPECT_EQ(store.read("Corvid", "Fenwick1", "SilenceData", "40,30,-1"), "40,30,-1");
    EXPECT_EQ(store.read("Corvid", "Fenwick2", "Other", "d"), "d");
    EXPECT_EQ(store.read("CORVID", "fenwick1", "OTHER", ""), "x") << "one file whatever the case";
    ASSERT_TRUE(store.write("../escape", "s", "k", "v").ok());
    EXPECT_TRUE(fs::exists(dir / "not-yet" / ini::fileNameFor("../escape")));
}

TEST_F(IniSettingsStoreTest, BaseDirectoryFollowsXdgConfigHome) {
    const char* old = std::getenv("XDG_CONFIG_HOME");
    const std::string saved = old ? old : "";
    ::setenv("XDG_CONFIG_HOME", "/some/where", 1);
    EXPECT_EQ(IniSettingsStore().baseDirectory(), "/some/where/corvid");
    ::setenv("XDG_CONFIG_HOME", "relative/path", 1); // not absolute: ignored
    EXPECT_NE(IniSettingsStore().baseDirectory(), "relative/path/corvid");
    if (old)
        ::setenv("XDG_CONFIG_HOME", saved.c_str(), 1);
    else
        ::unsetenv("XDG_CONFIG_HOME");
}

TEST_F(IniSettingsStoreTest, DamagedFilesReadAsDefaults) {
    IniSettingsStore store(dir.string());
    // Binary: nothing in it is trusted, and a write starts afresh, keeping the old aside.
    static const char binary[] = "[Fenwick1]\nSilenceData=-20,5,True\n\0\xff\xfe";
    spit(dir / "corvid.ini", std::string(binary, sizeof binary - 1));
    EXPECT_EQ(store.read("Corvid", "Fenwick1", "SilenceData", "def"), "def");
    ASSERT_TRUE(store.write("Corvid", "Fenwick1", "Other", "x").ok());
    EXPECT_EQ(store.read("Corvid", "Fenwick1", "Other", ""), "x");
    EXPECT_TRUE(fs::exists(dir / "corvid.ini.corrupt"));

    // Oversized.
    spit(dir / "big.ini", "[s]\nk=v\n" + std::string(5 * 1024 * 1024, 'x'));
    EXPECT_EQ(store.read("big", "s", "k", "def"), "def");
}

TEST_F(IniSettingsStoreTest, UnreadableFileReadsAsDefaultsAndIsNotReplaced) {
    IniSettingsStore store(dir.string());
    // A directory in the file's place cannot be read by anyone, root included.
    fs::create_directories(dir / "orvo2010.ini");
    EXPECT_EQ(store.read("Orvo2010", "Fenwick", "NewGraphEveryTime", "def"), "def");
    const platform::Status s = store.write("Orvo2010", "Fenwick", "NewGraphEveryTime", "True");
    EXPECT_FALSE(s.ok());
    EXPECT_NE(s.description.find("orvo2010.ini"), std::string::npos) << s.description;
    EXPECT_TRUE(fs::is_directory(dir / "orvo2010.ini"));

    if (::geteuid() != 0) { // permissions do not stop root
        spit(dir / "corvid.ini", "[Fenwick1]\nSilenceData=-20,5,True\n");
        fs::permissions(dir / "corvid.ini", fs::perms::none);
        EXPECT_EQ(store.read("Corvid", "Fenwick1", "SilenceData", "def"), "def");
        EXPECT_FALSE(store.write("Corvid", "Fenwick1", "SilenceData", "x").ok());
        fs::permissions(dir / "corvid.ini", fs::perms::owner_read | fs::perms::owner_write);
        EXPECT_EQ(store.read("Corvid", "Fenwick1", "SilenceData", "def"), "-20,5,True");
    }
}

TEST_F(IniSettingsStoreTest, ConcurrentWritersKeepEachOthersKeys) {
    // Two stores on one directory, interleaved, then two threads racing on one file.
    IniSettingsStore a(dir.string()), b(dir.string());
    ASSERT_TRUE(a.write("Corvid", "s", "fromA", "1").ok());
    ASSERT_TRUE(b.write("Corvid", "s", "fromB", "2").ok());
    EXPECT_EQ(a.read("Corvid", "s", "fromB", ""), "2");
    EXPECT_EQ(b.read("Corvid", "s", "fromA", ""), "1");

    constexpr int PerWriter = 40;
    std::atomic<int> failures{0};
    auto writer = [&](IniSettingsStore& store, const std::string& prefix) {
        for (int i = 0; i < PerWriter; ++i)
            if (!store.write("Corvid", "race", prefix + std::to_string(i), std::to_string(i)).ok())
                ++failures;
    };
    std::thread t1(writer, std::ref(a), "a"), t2(writer, std::ref(b), "b");
    t1.join();
    t2.join();
    EXPECT_EQ(failures.load(), 0);
    for (int i = 0; i < PerWriter; ++i) {
        EXPECT_EQ(a.read("Corvid", "race", "a" + std::to_string(i), ""), std::to_string(i));
        EXPECT_EQ(a.read("Corvid", "race", "b" + std::to_string(i), ""), std::to_string(i));
    }
    EXPECT_TRUE(tempFiles().empty());
}

TEST_F(IniSettingsStoreTest, WriterKilledMidWriteLeavesACompleteFile) {
    IniSettingsStore store(dir.string());
    ASSERT_TRUE(store.write("Corvid", "keep", "other", "untouched").ok());
    const std::string padding(256 * 1024, 'x'); // large values keep the writer inside a write

    auto complete = [&](const std::string& v) {
        return v.size() > padding.size() && v.rfind("v", 0) == 0 &&
               v.compare(v.size() - 4, 4, ":end") == 0 &&
               v.find(padding) != std::string::npos;
    };

    for (int round = 0; round < 4; ++round) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(ready[0]);
            IniSettingsStore writer(dir.string());
            const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
            for (int i = 0; i < 100000 && std::chrono::steady_clock::now() < until; ++i) {
                writer.write("Corvid", "loop", "value", "v" + std::to_string(i) + ":" + padding + ":end");
                if (i == 2) (void)!::write(ready[1], "r", 1);
            }
            ::_exit(0);
        }
        ::close(ready[1]);
        char c = 0;
        ASSERT_EQ(::read(ready[0], &c, 1), 1); // the child has written three times
        ::close(ready[0]);
        // Readers never see a half-written file while the writer works...
        IniSettingsStore reader(dir.string());
        int torn = 0;
        for (int i = 0; i < 40; ++i)
            if (!complete(reader.read("Corvid", "loop", "value", ""))) ++torn;
        EXPECT_EQ(torn, 0) << "round " << round;
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);

        // ...nor after it died at an arbitrary point.
        EXPECT_TRUE(complete(reader.read("Corvid", "loop", "value", ""))) << "round " << round;
        EXPECT_EQ(reader.read("Corvid", "keep", "other", ""), "untouched");
    }
    // A later write sweeps up what a killed writer left, and the lock is free again.
    ASSERT_TRUE(store.write("Corvid", "loop", "after", "1").ok());
    EXPECT_TRUE(tempFiles().empty());
    EXPECT_TRUE(complete(store.read("Corvid", "loop", "value", "")));
    EXPECT_EQ(store.read("Corvid", "keep", "other", ""), "untouched");
}

} // namespace
} // namespace corvid::native
