// Test media made with the ffmpeg command, once per work folder, and bounded shell commands.
// Apart from the sound server so that suites that need no sound (the graph contract) can use it.

#include "NativeTestSupport.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <sys/wait.h>

namespace corvid::native::test {

namespace fs = std::filesystem;

namespace {

std::string shellQuote(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string toneExpression() {
    char e[128];
    std::snprintf(e, sizeof e, "%g*sin(2*PI*%g*t)", kToneAmplitude, kToneHz);
    return e;
}

void makeMedia(const std::string& name) {
    const std::string out = workDir() + "/media/" + name;
    const std::string tone = "-f lavfi -i \"aevalsrc=" + toneExpression() + "|" + toneExpression() +
                             ":s=44100:d=" + std::to_string(kToneSeconds) + "\" ";
    const std::string ff = "ffmpeg -nostdin -loglevel error -y ";
    const std::string meta = "-metadata artist='Test Artist' -metadata title='Test Title' "
                             "-metadata date=2001 -metadata genre=Jazz ";
    std::string cmd;
    if (name == "tone.wav") cmd = ff + tone + "-c:a pcm_s16le " + out;
    else if (name == "tone24.wav") cmd = ff + tone + "-c:a pcm_s24le " + out;
    else if (name == "tone.mp3") cmd = ff + tone + meta + "-c:a libmp3lame -b:a 192k " + out;
    else if (name == "tone.mpg") cmd = ff + tone + "-c:a mp2 -b:a 192k -f mpeg " + out;
    else if (name == "tone.flac") cmd = ff + tone + meta + "-c:a flac " + out;
    else if (name == "tone.ogg") cmd = ff + tone + meta + "-c:a libvorbis -q:a 6 " + out;
    else if (name == "tone.m4a") cmd = ff + tone + meta + "-c:a aac -b:a 192k " + out;
    else if (name == "tone.wma") // ASF names its year attribute itself
        cmd = ff + tone + "-metadata artist='Test Artist' -metadata title='Test Title' "
                          "-metadata WM/Year=2001 -metadata genre=Jazz -c:a wmav2 -b:a 192k " + out;
    else if (name == "cue.wav")
        cmd = ff + "-f lavfi -i \"aevalsrc=if(between(t\\,1\\,2)\\," + toneExpression() +
              "\\,0):s=44100:d=3\" -c:a pcm_s16le " + out;
    else if (name == "empty.mp3") cmd = "truncate -s 0 " + out;
    else if (name == "text.mp3") cmd = "printf 'This is not audio at all.\\n%.0s' $(seq 1 200) > " + out;
    else if (name.rfind("trunc.", 0) == 0) // cut inside the header: no audio at all
        cmd = "head -c 40 " + mediaPath("tone." + name.substr(6)) + " > " + out;
    else if (name.rfind("half.", 0) == 0) // cut in the middle of the audio
        cmd = "f=" + mediaPath("tone." + name.substr(5)) + "; head -c $(( $(stat -c %s $f) / 2 )) $f > " + out;
    else if (name.rfind("corrupt.", 0) == 0) // the header kept, the rest random bytes
        cmd = "{ head -c 600 " + mediaPath("tone." + name.substr(8)) +
              "; head -c 60000 /dev/urandom; } > " + out;
    ASSERT_FALSE(cmd.empty()) << name;
    ASSERT_EQ(runCommand(cmd), 0) << cmd;
}

} // namespace

const std::string& workDir() {
    static const std::string dir = [] {
        std::string d = CORVID_TEST_WORKDIR;
        std::error_code ec;
        fs::create_directories(d + "/media", ec);
        return d;
    }();
    return dir;
}

std::string mediaPath(const std::string& name) {
    const std::string path = workDir() + "/media/" + name;
    if (!fs::exists(path)) makeMedia(name);
    return path;
}

int runCommand(const std::string& command, int timeoutSeconds) {
    const std::string bounded =
        "timeout -k 2 " + std::to_string(timeoutSeconds) + " sh -c " + shellQuote(command);
    int status = std::system(bounded.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace corvid::native::test
