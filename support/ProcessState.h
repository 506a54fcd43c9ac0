#pragma once
// What all players of one process share: a handful of settings, the silence detector and
// the sound card and filter catalogue. One object per platform instance
// (Platform::processWide), so a new platform is a new process.

#include <cstdint>
#include <memory>

namespace corvid {

class clsCards;
class clsSilenceDet;

struct PlayerProcessState {
    bool AutoRenderAllowed = false;
    bool HaldenSourcePrefer = false;
    bool ASFReaderBanned = false;
    int32_t autoCueThresh = 0; // reads as 500 while below 1
    bool firstPlayerInitialised = false;
    std::shared_ptr<clsSilenceDet> silenceDet;
    std::shared_ptr<clsCards> cards;
};

} // namespace corvid
