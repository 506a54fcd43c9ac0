// The smallest host: plays one file to its end on the silent device (or the sound server's
// default device with --sound), printing its tags, cue-in and end.
//
//     minimal-host FILE [--sound]

#include <corvid/NativePlatform.h>
#include <corvid/Player.h>
#include <corvid/Tags.h>

#include <cstdio>
#include <cstring>
#include <string>

struct Events : corvid::PlayerEvents {
    bool ended = false;
    void CueInFound(double& seconds) override { std::printf("cue-in %.2f s\n", seconds); }
    void EndOfStream(int32_t) override { ended = true; }
};

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: minimal-host FILE [--sound]\n");
        return 2;
    }
    corvid::NativePlatformOptions options;
    if (argc < 3 || std::strcmp(argv[2], "--sound") != 0)
        options.output = corvid::NativePlatformOptions::Output::Silent;
    corvid::NativePlatform platform(options);

    corvid::Player deck(platform);
    Events events;
    deck.setEvents(&events);
    deck.Init();
    deck.UseAutoCue = true;
    deck.CanCueIn = true;

    const corvid::ItemTags tags = corvid::readTags(platform, argv[1]);
    std::printf("%s - %s\n", tags.artist.c_str(), tags.title.c_str());
    deck.put_FileName(std::string(argv[1]));
    if (deck.get_FileName().empty()) {
        std::fprintf(stderr, "cannot play %s: %s\n", argv[1], deck.get_LastError().c_str());
        return 1;
    }
    deck.Play();
    const bool ended = platform.eventLoop().runUntil([&] { return events.ended; }, 60000);
    std::printf(ended ? "ended\n" : "did not end\n");
    return ended ? 0 : 1;
}
