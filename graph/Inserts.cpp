// The standard filters of every new graph, the sample grabber in front of the output device,
// and the per-item inserts (pitch shifter, pipe sender).
//
// A standard filter that cannot be created means that nothing will play: the operator is told
// in a message box and the platform's filter registration is repaired by a command started in
// the background. The maker's own filters are re-registered once and tried again first.

#include "control/PlayerCore.h"
#include "control/ProcessState.h"
#include "devices/FilterNames.h"

#include "devices/Routing.h"
#include "support/Text.h"

#include <cstdint>
#include <sstream>

namespace corvid {

using namespace filters;

namespace {

constexpr const char* kRepairGrabber = "regsvr32 Halden_sample_grabber.dll /s";
constexpr const char* kRepairPitch = "regsvr32 brindlepitch.dll /s";
constexpr const char* kRepairPlatformFilters = "regsvr32.exe  quartz.dll /s"; // two blanks, as always

constexpr int32_t kNoGrabber = 819;
constexpr int32_t kGrabberPlacement = 1000;
// What a script sees when it asks a collection for an absent key.
constexpr int32_t kNoSuchEntry = 5;
constexpr const char* kNoSuchEntryText = "Invalid procedure call or argument";

std::string identity(const void* object) {
    std::ostringstream out;
    out << reinterpret_cast<std::uintptr_t>(object);
    return out.str();
}

} // namespace

// ---- Filters by name -------------------------------------------------------------------------

platform::FilterPtr PlayerCore::AddFilterByName(const std::string& displayName) {
    const platform::CatalogueEntryPtr* entry = colDShowFilters().find(displayName);
    if (!entry || !*entry) {
        trapError(kNoSuchEntry, kNoSuchEntryText);
        return nullptr;
    }
    if (!MainGraphMan) {
        trapError(platform::hr::Pointer, "Invalid pointer");
        return nullptr;
    }
    platform::FilterPtr filter;
    if (!trap((*entry)->createIn(*MainGraphMan, filter))) return nullptr;
    if (!filter) trapError(platform::hr::Pointer, "Invalid pointer");
    return filter;
}

platform::FilterPtr PlayerCore::AddFilterByNameUnlessPresent(const std::string& displayName) {
    if (platform::FilterPtr present = FindFilterInGraph(displayName)) return present;
    return AddFilterByName(displayName);
}

platform::FilterPtr PlayerCore::FindFilterInGraph(const std::string& name) {
    if (!MainGraphMan) return nullptr;
    for (const auto& filter : MainGraphMan->filters())
        if (filter && text::equalsNoCase(filter->name(), name)) return filter;
    return nullptr;
}

bool PlayerCore::RemoveFilterFromGraph(const platform::FilterPtr& filter) {
    if (!filter || !MainGraphMan) return false;
    return trap(MainGraphMan->removeFilter(filter));
}

bool PlayerCore::IsInMainGraph(const platform::FilterPtr& filter) {
    if (!filter || !MainGraphMan) return false;
    for (const auto& present : MainGraphMan->filters())
        if (present == filter) return true;
    return false;
}

void PlayerCore::RepairRegistration(const std::string& commandLine) {
    // Started, never awaited: the repair takes effect for the next graph.
    Log("Starting repair: " + commandLine);
    platform_.operatorServices().startProcess(commandLine, platform::WindowStyle::Minimized);
}

void PlayerCore::CriticalMessage(const std::string& text, const std::string& title) {
    platform_.operatorServices().messageBox(text, title, platform::MessageIcon::Critical);
}

// ---- AddGraphFilters -------------------------------------------------------------------------

void PlayerCore::AddGraphFilters() {
    if (!StockStandardFilters()) RepairRegistration(kRepairPlatformFilters);
}

// Each step looks at the pending error itself; false when the installation needs repair.
bool PlayerCore::StockStandardFilters() {
    // The WMA decoder; the WMA chain says later whether it was missed.
    platform::FilterPtr wmaDecoder = AddFilterByName(kWmaDecoder);
    if (!wmaDecoder || errPending()) {
        Log("Failed to add WMAudio Decoder DMO " + std::to_string(Err.number) + " " + Err.description);
        clearErr();
    }

    // The ACM wrapper.
    if (!colDShowFilters().Contains(kAcmWrapper))
        platform_.operatorServices().messageBox(
            "No ACM Wrapper in colDShowFilters -- there are " + std::to_string(colDShowFilters().Count()),
            ThisCartName_, platform::MessageIcon::None);
    platform::FilterPtr acmWrapper = AddFilterByName(kAcmWrapper);
    if (!acmWrapper) {
        if (!MainGraphMan) platform_.operatorServices().messageBox("MainGraphMan is NOT set", ThisCartName_,
                                                                   platform::MessageIcon::None);
        const platform::CatalogueEntryPtr* entry = colDShowFilters().find(kAcmWrapper);
        CriticalMessage(std::to_string(Err.number) + " " + Err.description + "\r\n" +
                            "ACM wrapper *should* create - reinstall DirectX?" + "\r\n" + "Critical Playback error!!" +
                            "\r\n" + "Objptr: MainGraphMan: " + identity(MainGraphMan.get()) + "\r\n" +
                            "ObjPtr: FilClass: " + identity(entry ? entry->get() : nullptr) + "\r\n" +
                            "ObjPtr: fACMWrapper: " + identity(acmWrapper.get()),
                        ThisCartName_);
        clearErr();
    }

    // The MP3 decoder, or a second ACM wrapper decoding in its place.
    platform::FilterPtr mp3Decoder = AddFilterByName(kMp3Decoder);
    if (!mp3Decoder) {
        clearErr();
        UseACM_ = true;
        mp3Decoder = AddFilterByName(kAcmWrapper);
        if (!mp3Decoder) {
            CriticalMessage("Critical Playback error!", "ACM wrapper *should* create - reinstall DirectX?");
            return false;
        }
    }

    platform::FilterPtr splitter = AddFilterByName(kSplitter);
    if (!splitter) {
        CriticalMessage("Critical Playback Error!", "Mpeg Splitter *should* create - reinstall DirectX?");
        return false;
    }

    platform::FilterPtr waveParser = AddFilterByName(kWaveParser);
    if (!waveParser) {
        CriticalMessage("Critical Playback Error!", "Wave Parser *should* create - reinstall DirectX?");
        return false;
    }

    // The sample grabber, re-registered once before giving up.
    platform::FilterPtr grabber = AddFilterByName(kSampleGrabber);
    if (!grabber) {
        RepairRegistration(kRepairGrabber);
        clearErr();
        grabber = AddFilterByName(kSampleGrabber);
        if (!grabber) {
            CriticalMessage("Critical Playback Error!", "SampleGrabber *should* create - reinstall app?");
            return false;
        }
    }

    // The pitch shifter is made per item; here it only has to be registered.
    if (!colDShowFilters().Contains(kPitchShifter)) {
        RepairRegistration(kRepairPitch);
        if (!colDShowFilters().Contains(kPitchShifter)) {
            CriticalMessage("Critical Playback Error!", "Pitch shifter MUST exist! - reinstall Orvo");
            return false;
        }
    }

    // The surround filter of a speaker-pair output, then the references.
    const std::string surround = routing::SurroundFilterFor(GetMainSoundcard());
    if (!surround.empty()) {
        fSurround = AddFilterByName(surround);
        if (fSurround) GetPins(SurroundInPin, SurroundOutPin, fSurround);
        if (!fSurround || errPending() || !SurroundInPin || !SurroundOutPin) {
            fSurround.reset();
            SurroundInPin.reset();
            SurroundOutPin.reset();
            clearErr();
            CriticalMessage("Critical error with surround sound support in Orvo 2012+ - reinstall me?",
                            "Orvo 2012+ surround problem");
        }
    }
    fWMADecoder = wmaDecoder;
    fACMWrapper = acmWrapper;
    fMpegDecoder = mp3Decoder;
    fMpegSplitter = splitter;
    fWaveParser = waveParser;
    fSampleGrabber = grabber;
    GetPins(SampleGrabberInPin, SampleGrabberOutPin, fSampleGrabber);
    return true;
}

// ---- The sample grabber ----------------------------------------------------------------------

platform::FilterPtr PlayerCore::CreateSampleGrabber() {
    const platform::CatalogueEntryPtr* entry = colDShowFilters().find(kSampleGrabber);
    if (!entry || !*entry) raise(kNoGrabber, "Halden Sample Grabber not found");
    platform::FilterPtr grabber;
    if (!MainGraphMan || !trap((*entry)->createIn(*MainGraphMan, grabber)) || !grabber)
        raise(kNoGrabber, "Halden Sample Grabber could not be created in the graph");
    return grabber;
}

void PlayerCore::PutSampleGrabberBeforeRender() {
    if (!SoundCardInPin) raise(kGrabberPlacement, "PutSampleGrabber... needs the sound card in pin to work!");

    const platform::FilterPtr grabber = FindFilterInGraph(kSampleGrabber);
    if (!grabber) return;
    platform::PinPtr grabberIn, grabberOut;
    GetPins(grabberIn, grabberOut, grabber);

    if (!grabberIn || !grabberIn->isConnected())
        raise(kGrabberPlacement, "PutSampleGrabberBeforeRender expects samplegrabber connection");
    if (!grabberOut || !grabberOut->isConnected())
        raise(kGrabberPlacement, "PutSampleGrabberBeforeRender expects BOTH sample grab pins to be connected");
    if (!SoundCardInPin->isConnected())
        raise(kGrabberPlacement, "PutSampleGrabberBeforeRender expects soundcardinpin to be connected");

    const platform::PinPtr feedsGrabber = grabberIn->connectedTo();
    const platform::PinPtr grabberFeeds = grabberOut->connectedTo();
    const platform::PinPtr feedsCard = SoundCardInPin->connectedTo();
    if (grabberFeeds == SoundCardInPin) return;

    // The grabber leaves its place and goes in front of the card.
    trap(grabberIn->disconnect());
    trap(grabberOut->disconnect());
    trap(feedsGrabber->connectDirect(grabberFeeds));
    trap(SoundCardInPin->disconnect());
    trap(grabberIn->connectDirect(feedsCard));
    trap(grabberOut->connectDirect(SoundCardInPin));
}

// ---- Inserts ---------------------------------------------------------------------------------

bool PlayerCore::InsertFilterAfterFilter(const platform::FilterPtr& AfterWhatFilter,
                                     const platform::FilterPtr& FilterToInsert, std::string& failure) {
    const auto fail = [&](const char* why, const platform::Status& status) {
        failure = std::string(" InsertFilterAfterFilter: failed ") + why + std::to_string(status.number) + " " +
                  status.description;
        return false;
    };
    const platform::Status noPin = platform::Status::failure(platform::hr::Pointer, "Invalid pointer");

    platform::PinPtr afterIn, afterOut, insertIn, insertOut;
    if (AfterWhatFilter) GetPins(afterIn, afterOut, AfterWhatFilter);
    if (FilterToInsert) GetPins(insertIn, insertOut, FilterToInsert);

    if ((insertIn && insertIn->isConnected()) || (insertOut && insertOut->isConnected()))
        return fail("Filter to insert in pin is already connected", {});

    const platform::PinPtr downstream = afterOut ? afterOut->connectedTo() : nullptr;
    if (!downstream) return fail("AfterOutPin was not connected: unexpected", {});

    // A splice that fails halfway is undone, so that the audio still flows without the insert.
    trap(afterOut->disconnect());
    trap(downstream->disconnect());
    platform::Status joined = insertIn ? afterOut->connectDirect(insertIn) : noPin;
    if (!joined) {
        afterOut->connectDirect(downstream);
        return fail("Could not connect afteroutpin to filtertoinsertpin", joined);
    }
    joined = insertOut ? insertOut->connectDirect(downstream) : noPin;
    if (!joined) {
        afterOut->disconnect();
        afterOut->connectDirect(downstream);
        return fail("Could not connect filtertoinsert out pin to whatever used to be connected to the AfterWhatFilter",
                    joined);
    }
    return true;
}

void PlayerCore::InsertPipeSender() {
    if (!Pipe2020_) return;

    pipeSenderWanted_ = true;
    if (UsePitchAdjuster_) {
        fPipeSender = AddFilterByNameUnlessPresent(kPipeSender);
        if (!fPipeSender) {
            clearErr();
            CriticalMessage("Critical Playback error!", "Halden's Pipe Sender *should* create -- reinstall app?");
            pipeSenderWanted_ = false;
        }
    }

    // Behind the pitch shifter.
    if (pipeSenderWanted_ && fPipeSender) {
        std::string failure;
        if (!InsertFilterAfterFilter(FindFilterInGraph(kPitchShifter), fPipeSender, failure))
            LastError_ += "\r\nInsertPipeSender failed: " + failure;
    }

    // The new pipe sender takes the player's mute state.
    try {
        bool mute = get_PipeSenderDownstreamMute();
        put_PipeSenderDownstreamMute(mute);
    } catch (const AutomationError& e) {
        Log("InsertPipeSender: " + e.description());
    }
}

// The per-item inserts of a built graph: the pitch shifter goes in front of the sample grabber
// (or, where the grabber carries no audio, in front of the output), the pipe sender behind it,
// and the grabber is checked to sit last before the card.
void PlayerCore::SetupPitchAndPipeSender() {
    try {
        if (!MainGraphMan || !SoundCardInPin) return;

        // The pitch shifter carries rate and pitch; with the adjuster off it passes through.
        if (!fPitchShifter) {
            fPitchShifter = AddFilterByNameUnlessPresent(kPitchShifter);
            if (!fPitchShifter) {
                Log("SetupPitchAndPipeSender: no pitch shifter: " + std::to_string(Err.number) + " " + Err.description);
                clearErr();
                return;
            }
        }
        platform::PinPtr pitchIn, pitchOut;
        GetPins(pitchIn, pitchOut, fPitchShifter);
        if (!(pitchIn && pitchIn->isConnected())) {
            const platform::PinPtr before = InsertPointForPitch();
            if (!before || !InsertFilterBeforePin(fPitchShifter, before)) {
                Log("SetupPitchAndPipeSender: the pitch shifter could not be placed");
                RemoveFilterFromGraph(fPitchShifter);
                fPitchShifter.reset();
                clearErr();
                return;
            }
        }

        InsertPipeSender();

        if (SurroundRenderName_.empty() && SampleGrabberInPin && SampleGrabberInPin->isConnected())
            PutSampleGrabberBeforeRender();
    } catch (const AutomationError& e) {
        trapError(e.number(), e.description());
        Log("SetupPitchAndPipeSender: " + std::to_string(e.number()) + " " + e.description());
    }
}

// The input pin in front of which the pitch shifter goes: the sample grabber's when audio
// flows through it; otherwise the first pin of the output (the surround filter's, else the card's).
platform::PinPtr PlayerCore::InsertPointForPitch() {
    if (SampleGrabberInPin && SampleGrabberInPin->isConnected()) return SampleGrabberInPin;
    const platform::PinPtr feedsCard = SoundCardInPin ? SoundCardInPin->connectedTo() : nullptr;
    if (!feedsCard) return nullptr;
    if (SurroundOutPin && feedsCard == SurroundOutPin && SurroundInPin && SurroundInPin->isConnected())
        return SurroundInPin;
    return SoundCardInPin;
}

bool PlayerCore::InsertFilterBeforePin(const platform::FilterPtr& filter, const platform::PinPtr& before) {
    platform::PinPtr in, out;
    GetPins(in, out, filter);
    const platform::PinPtr feed = before->connectedTo();
    if (!in || !out || !feed) return false;
    trap(before->disconnect());
    const auto join = [](const platform::PinPtr& from, const platform::PinPtr& to) {
        return from->connectDirect(to).ok() || from->connect(to).ok();
    };
    if (join(feed, in) && join(out, before)) return true;
    // Undone: the audio flows as before, without the insert.
    in->disconnect();
    out->disconnect();
    feed->disconnect();
    join(feed, before);
    return false;
}

} // namespace corvid
