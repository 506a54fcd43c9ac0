// The standard filters of every new graph, the sample grabber in front of the output device,
// and the per-item inserts (pitch shifter, pipe sender).
//
// A standard filter that cannot be created means that nothing will play: the operator is told
// in a message box and the platform's filter registration is repaired by a command started in
// the background. The maker's own filters are re-registered once and tried again first.

#include "graph/GraphSession.h"
#include "support/ProcessState.h"
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

platform::FilterPtr GraphSession::AddFilterByName(const std::string& displayName) {
    const platform::CatalogueEntryPtr* entry = routing_.colDShowFilters().find(displayName);
    if (!entry || !*entry) {
        g_.trapError(kNoSuchEntry, kNoSuchEntryText);
        return nullptr;
    }
    if (!g_.MainGraphMan) {
        g_.trapError(platform::hr::Pointer, "Invalid pointer");
        return nullptr;
    }
    platform::FilterPtr filter;
    if (!g_.trap((*entry)->createIn(*g_.MainGraphMan, filter))) return nullptr;
    if (!filter) g_.trapError(platform::hr::Pointer, "Invalid pointer");
    return filter;
}

platform::FilterPtr GraphSession::AddFilterByNameUnlessPresent(const std::string& displayName) {
    if (platform::FilterPtr present = FindFilterInGraph(displayName)) return present;
    return AddFilterByName(displayName);
}

platform::FilterPtr GraphSession::FindFilterInGraph(const std::string& name) {
    if (!g_.MainGraphMan) return nullptr;
    for (const auto& filter : g_.MainGraphMan->filters())
        if (filter && text::equalsNoCase(filter->name(), name)) return filter;
    return nullptr;
}

bool GraphSession::RemoveFilterFromGraph(const platform::FilterPtr& filter) {
    if (!filter || !g_.MainGraphMan) return false;
    return g_.trap(g_.MainGraphMan->removeFilter(filter));
}

bool GraphSession::IsInMainGraph(const platform::FilterPtr& filter) {
    if (!filter || !g_.MainGraphMan) return false;
    for (const auto& present : g_.MainGraphMan->filters())
        if (present == filter) return true;
    return false;
}

void GraphSession::RepairRegistration(const std::string& commandLine) {
    // Started, never awaited: the repair takes effect for the next graph.
    events_.Log("Starting repair: " + commandLine);
    platform_.operatorServices().startProcess(commandLine, platform::WindowStyle::Minimized);
}

void GraphSession::CriticalMessage(const std::string& text, const std::string& title) {
    platform_.operatorServices().messageBox(text, title, platform::MessageIcon::Critical);
}

// ---- AddGraphFilters -------------------------------------------------------------------------

void GraphSession::AddGraphFilters() {
    if (!StockStandardFilters()) RepairRegistration(kRepairPlatformFilters);
}

// Each step looks at the pending error itself; false when the installation needs repair.
bool GraphSession::StockStandardFilters() {
    // The WMA decoder; the WMA chain says later whether it was missed.
    platform::FilterPtr wmaDecoder = AddFilterByName(kWmaDecoder);
    if (!wmaDecoder || g_.errPending()) {
        events_.Log("Failed to add WMAudio Decoder DMO " + std::to_string(g_.Err.number) + " " + g_.Err.description);
        g_.clearErr();
    }

    // The ACM wrapper.
    if (!routing_.colDShowFilters().Contains(kAcmWrapper))
        platform_.operatorServices().messageBox(
            "No ACM Wrapper in colDShowFilters -- there are " + std::to_string(routing_.colDShowFilters().Count()),
            g_.ThisCartName_, platform::MessageIcon::None);
    platform::FilterPtr acmWrapper = AddFilterByName(kAcmWrapper);
    if (!acmWrapper) {
        if (!g_.MainGraphMan) platform_.operatorServices().messageBox("MainGraphMan is NOT set", g_.ThisCartName_,
                                                                   platform::MessageIcon::None);
        const platform::CatalogueEntryPtr* entry = routing_.colDShowFilters().find(kAcmWrapper);
        CriticalMessage(std::to_string(g_.Err.number) + " " + g_.Err.description + "\r\n" +
                            "ACM wrapper *should* create - reinstall DirectX?" + "\r\n" + "Critical Playback error!!" +
                            "\r\n" + "Objptr: MainGraphMan: " + identity(g_.MainGraphMan.get()) + "\r\n" +
                            "ObjPtr: FilClass: " + identity(entry ? entry->get() : nullptr) + "\r\n" +
                            "ObjPtr: fACMWrapper: " + identity(acmWrapper.get()),
                        g_.ThisCartName_);
        g_.clearErr();
    }

    // The MP3 decoder, or a second ACM wrapper decoding in its place.
    platform::FilterPtr mp3Decoder = AddFilterByName(kMp3Decoder);
    if (!mp3Decoder) {
        g_.clearErr();
        g_.UseACM_ = true;
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
        g_.clearErr();
        grabber = AddFilterByName(kSampleGrabber);
        if (!grabber) {
            CriticalMessage("Critical Playback Error!", "SampleGrabber *should* create - reinstall app?");
            return false;
        }
    }

    // The pitch shifter is made per item; here it only has to be registered.
    if (!routing_.colDShowFilters().Contains(kPitchShifter)) {
        RepairRegistration(kRepairPitch);
        if (!routing_.colDShowFilters().Contains(kPitchShifter)) {
            CriticalMessage("Critical Playback Error!", "Pitch shifter MUST exist! - reinstall Orvo");
            return false;
        }
    }

    // The surround filter of a speaker-pair output, then the references.
    const std::string surround = routing::SurroundFilterFor(routing_.GetMainSoundcard());
    if (!surround.empty()) {
        g_.fSurround = AddFilterByName(surround);
        if (g_.fSurround) FormatChains::GetPins(g_.SurroundInPin, g_.SurroundOutPin, g_.fSurround);
        if (!g_.fSurround || g_.errPending() || !g_.SurroundInPin || !g_.SurroundOutPin) {
            g_.fSurround.reset();
            g_.SurroundInPin.reset();
            g_.SurroundOutPin.reset();
            g_.clearErr();
            CriticalMessage("Critical error with surround sound support in Orvo 2012+ - reinstall me?",
                            "Orvo 2012+ surround problem");
        }
    }
    g_.fWMADecoder = wmaDecoder;
    g_.fACMWrapper = acmWrapper;
    g_.fMpegDecoder = mp3Decoder;
    g_.fMpegSplitter = splitter;
    g_.fWaveParser = waveParser;
    g_.fSampleGrabber = grabber;
    FormatChains::GetPins(g_.SampleGrabberInPin, g_.SampleGrabberOutPin, g_.fSampleGrabber);
    return true;
}

// ---- The sample grabber ----------------------------------------------------------------------

platform::FilterPtr GraphSession::CreateSampleGrabber() {
    const platform::CatalogueEntryPtr* entry = routing_.colDShowFilters().find(kSampleGrabber);
    if (!entry || !*entry) raise(kNoGrabber, "Halden Sample Grabber not found");
    platform::FilterPtr grabber;
    if (!g_.MainGraphMan || !g_.trap((*entry)->createIn(*g_.MainGraphMan, grabber)) || !grabber)
        raise(kNoGrabber, "Halden Sample Grabber could not be created in the graph");
    return grabber;
}

void GraphSession::PutSampleGrabberBeforeRender() {
    if (!g_.SoundCardInPin) raise(kGrabberPlacement, "PutSampleGrabber... needs the sound card in pin to work!");

    const platform::FilterPtr grabber = FindFilterInGraph(kSampleGrabber);
    if (!grabber) return;
    platform::PinPtr grabberIn, grabberOut;
    FormatChains::GetPins(grabberIn, grabberOut, grabber);

    if (!grabberIn || !grabberIn->isConnected())
        raise(kGrabberPlacement, "PutSampleGrabberBeforeRender expects samplegrabber connection");
    if (!grabberOut || !grabberOut->isConnected())
        raise(kGrabberPlacement, "PutSampleGrabberBeforeRender expects BOTH sample grab pins to be connected");
    if (!g_.SoundCardInPin->isConnected())
        raise(kGrabberPlacement, "PutSampleGrabberBeforeRender expects soundcardinpin to be connected");

    const platform::PinPtr feedsGrabber = grabberIn->connectedTo();
    const platform::PinPtr grabberFeeds = grabberOut->connectedTo();
    const platform::PinPtr feedsCard = g_.SoundCardInPin->connectedTo();
    if (grabberFeeds == g_.SoundCardInPin) return;

    // The grabber leaves its place and goes in front of the card.
    g_.trap(grabberIn->disconnect());
    g_.trap(grabberOut->disconnect());
    g_.trap(feedsGrabber->connectDirect(grabberFeeds));
    g_.trap(g_.SoundCardInPin->disconnect());
    g_.trap(grabberIn->connectDirect(feedsCard));
    g_.trap(grabberOut->connectDirect(g_.SoundCardInPin));
}

// ---- Inserts ---------------------------------------------------------------------------------

bool GraphSession::InsertFilterAfterFilter(const platform::FilterPtr& AfterWhatFilter,
                                     const platform::FilterPtr& FilterToInsert, std::string& failure) {
    const auto fail = [&](const char* why, const platform::Status& status) {
        failure = std::string(" InsertFilterAfterFilter: failed ") + why + std::to_string(status.number) + " " +
                  status.description;
        return false;
    };
    const platform::Status noPin = platform::Status::failure(platform::hr::Pointer, "Invalid pointer");

    platform::PinPtr afterIn, afterOut, insertIn, insertOut;
    if (AfterWhatFilter) FormatChains::GetPins(afterIn, afterOut, AfterWhatFilter);
    if (FilterToInsert) FormatChains::GetPins(insertIn, insertOut, FilterToInsert);

    if ((insertIn && insertIn->isConnected()) || (insertOut && insertOut->isConnected()))
        return fail("Filter to insert in pin is already connected", {});

    const platform::PinPtr downstream = afterOut ? afterOut->connectedTo() : nullptr;
    if (!downstream) return fail("AfterOutPin was not connected: unexpected", {});

    // A splice that fails halfway is undone, so that the audio still flows without the insert.
    g_.trap(afterOut->disconnect());
    g_.trap(downstream->disconnect());
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

void GraphSession::InsertPipeSender() {
    if (!g_.Pipe2020_) return;

    g_.pipeSenderWanted_ = true;
    if (g_.UsePitchAdjuster_) {
        g_.fPipeSender = AddFilterByNameUnlessPresent(kPipeSender);
        if (!g_.fPipeSender) {
            g_.clearErr();
            CriticalMessage("Critical Playback error!", "Halden's Pipe Sender *should* create -- reinstall app?");
            g_.pipeSenderWanted_ = false;
        }
    }

    // Behind the pitch shifter.
    if (g_.pipeSenderWanted_ && g_.fPipeSender) {
        std::string failure;
        if (!InsertFilterAfterFilter(FindFilterInGraph(kPitchShifter), g_.fPipeSender, failure))
            g_.LastError_ += "\r\nInsertPipeSender failed: " + failure;
    }

    // The new pipe sender takes the player's mute state.
    try {
        bool mute = host_.get_PipeSenderDownstreamMute();
        host_.put_PipeSenderDownstreamMute(mute);
    } catch (const AutomationError& e) {
        events_.Log("InsertPipeSender: " + e.description());
    }
}

// The per-item inserts of a built graph: the pitch shifter goes in front of the sample grabber
// (or, where the grabber carries no audio, in front of the output), the pipe sender behind it,
// and the grabber is checked to sit last before the card.
void GraphSession::SetupPitchAndPipeSender() {
    try {
        if (!g_.MainGraphMan || !g_.SoundCardInPin) return;

        // The pitch shifter carries rate and pitch; with the adjuster off it passes through.
        if (!g_.fPitchShifter) {
            g_.fPitchShifter = AddFilterByNameUnlessPresent(kPitchShifter);
            if (!g_.fPitchShifter) {
                events_.Log("SetupPitchAndPipeSender: no pitch shifter: " + std::to_string(g_.Err.number) + " " + g_.Err.description);
                g_.clearErr();
                return;
            }
        }
        platform::PinPtr pitchIn, pitchOut;
        FormatChains::GetPins(pitchIn, pitchOut, g_.fPitchShifter);
        if (!(pitchIn && pitchIn->isConnected())) {
            const platform::PinPtr before = InsertPointForPitch();
            if (!before || !InsertFilterBeforePin(g_.fPitchShifter, before)) {
                events_.Log("SetupPitchAndPipeSender: the pitch shifter could not be placed");
                RemoveFilterFromGraph(g_.fPitchShifter);
                g_.fPitchShifter.reset();
                g_.clearErr();
                return;
            }
        }

        InsertPipeSender();

        if (g_.SurroundRenderName_.empty() && g_.SampleGrabberInPin && g_.SampleGrabberInPin->isConnected())
            PutSampleGrabberBeforeRender();
    } catch (const AutomationError& e) {
        g_.trapError(e.number(), e.description());
        events_.Log("SetupPitchAndPipeSender: " + std::to_string(e.number()) + " " + e.description());
    }
}

// The input pin in front of which the pitch shifter goes: the sample grabber's when audio
// flows through it; otherwise the first pin of the output (the surround filter's, else the card's).
platform::PinPtr GraphSession::InsertPointForPitch() {
    if (g_.SampleGrabberInPin && g_.SampleGrabberInPin->isConnected()) return g_.SampleGrabberInPin;
    const platform::PinPtr feedsCard = g_.SoundCardInPin ? g_.SoundCardInPin->connectedTo() : nullptr;
    if (!feedsCard) return nullptr;
    if (g_.SurroundOutPin && feedsCard == g_.SurroundOutPin && g_.SurroundInPin && g_.SurroundInPin->isConnected())
        return g_.SurroundInPin;
    return g_.SoundCardInPin;
}

bool GraphSession::InsertFilterBeforePin(const platform::FilterPtr& filter, const platform::PinPtr& before) {
    platform::PinPtr in, out;
    FormatChains::GetPins(in, out, filter);
    const platform::PinPtr feed = before->connectedTo();
    if (!in || !out || !feed) return false;
    g_.trap(before->disconnect());
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
