#pragma once
// Outcome of a platform operation. Graph and pin operations never throw: each returns a
// Status that the player keeps as its pending error. Numbers follow the DirectShow HRESULT
// values so that logs read the same on every platform.

#include <cstdint>
#include <string>

namespace corvid::platform {

struct Status {
    int32_t number = 0;
    std::string description;

    bool ok() const { return number == 0; }
    explicit operator bool() const { return ok(); }

    static Status success() { return {}; }
    static Status failure(int32_t number, std::string description) {
        return Status{number, std::move(description)};
    }
};

// The failure numbers that the platforms report. Descriptions come with the Status.
namespace hr {
constexpr int32_t Fail = static_cast<int32_t>(0x80004005);             // E_FAIL
constexpr int32_t Pointer = static_cast<int32_t>(0x80004003);          // E_POINTER: no object
constexpr int32_t NotImplemented = static_cast<int32_t>(0x80004001);   // E_NOTIMPL
constexpr int32_t InvalidArg = static_cast<int32_t>(0x80070057);       // E_INVALIDARG
constexpr int32_t FileNotFound = static_cast<int32_t>(0x80070002);     // file not found
constexpr int32_t AccessDenied = static_cast<int32_t>(0x80070005);     // access denied
constexpr int32_t Timeout = static_cast<int32_t>(0x80070102);          // wait timed out
constexpr int32_t AlreadyConnected = static_cast<int32_t>(0x80040204); // VFW_E_ALREADY_CONNECTED
constexpr int32_t NoAcceptableTypes = static_cast<int32_t>(0x80040207);
constexpr int32_t NotConnected = static_cast<int32_t>(0x80040209);     // VFW_E_NOT_CONNECTED
constexpr int32_t NotInGraph = static_cast<int32_t>(0x8004020B);       // VFW_E_NOT_IN_GRAPH
constexpr int32_t UnknownFileType = static_cast<int32_t>(0x80040240);  // VFW_E_UNKNOWN_FILE_TYPE
constexpr int32_t UnsupportedStream = static_cast<int32_t>(0x80040265);
constexpr int32_t CannotConnect = static_cast<int32_t>(0x80040217);    // VFW_E_CANNOT_CONNECT
constexpr int32_t CannotRender = static_cast<int32_t>(0x80040218);     // VFW_E_CANNOT_RENDER
constexpr int32_t TypeNotAccepted = static_cast<int32_t>(0x8004022A);  // VFW_E_TYPE_NOT_ACCEPTED
constexpr int32_t InvalidFileFormat = static_cast<int32_t>(0x8004022F);
constexpr int32_t NoAudioHardware = static_cast<int32_t>(0x80040256);  // VFW_E_NO_AUDIO_HARDWARE
constexpr int32_t WrongState = static_cast<int32_t>(0x80040227);       // VFW_E_WRONG_STATE
constexpr int32_t Abort = static_cast<int32_t>(0x80004004);            // E_ABORT
} // namespace hr

} // namespace corvid::platform
