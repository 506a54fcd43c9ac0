// AddSourceFilter: exactly one source filter for the item, and the output pin from which the
// decoder chain starts (MainSourcePin).
//
// The route follows the item: FLAC files into their own decoding source, local MP3 files into
// the player's own reader when it is preferred, Ogg files into the Ogg source, other local
// files into the asynchronous file source (or, where allowed, the platform's own choice),
// "icystream://" addresses into the stream source, and everything else into the Windows Media
// reader. A failure is kept as the pending error when AddSourceFilter returns false, so that
// the build reports why no source stands.

#include "control/PlayerCore.h"
#include "platform/ItemName.h"
#include "control/ProcessState.h"
#include "devices/FilterNames.h"

#include "devices/clsCards.h"
#include "platform/ItemName.h"
#include "support/Text.h"

#include <algorithm>

namespace corvid {

using namespace filters;

namespace {

constexpr int32_t kBusyOrUnplayable = 558;
// The stream source reports its state on the control thread; it is looked at this often,
// and given up after this long.
constexpr int32_t kStreamPollMs = 100;
constexpr int32_t kStreamTimeoutMs = 10000;

using item::isAddress;

std::string errText(int32_t number, const std::string& description) {
    return std::to_string(number) + " " + description;
}

} // namespace

bool PlayerCore::AddSourceFilter(const std::string& FileName, bool& bMustUseASFReader) {
    const std::string last3 = text::toLower(text::lastChars(FileName, 3));
    const std::string last4 = text::toLower(text::lastChars(FileName, 4));
    const bool address = isAddress(FileName);

    if (last3 == "wma") bMustUseASFReader = true;
    UsingASFReader_ = false;
    UsingHaldenSource_ = false;
    if (!MainGraphMan) return false;
    RemoveSourceFilter();
    const std::vector<platform::FilterPtr> standing = MainGraphMan->filters();

    // Why no source stands, when none does; left pending for the caller.
    PendingError failure;
    platform::FilterPtr source;
    bool result = false;

    // The busy flag falls whichever way this ends.
    struct ClearAdding {
        bool& flag;
        ~ClearAdding() { flag = false; }
    } clearAdding{AddingSourceFilter};

    try {
        if (last4 == "flac") {
            // FLAC decodes in its own source. Quick, so the busy flag stays down.
            Log("flac file loading into madflac ...");
            source = AddFlacSource(FileName);
            if (!source) return false;
        } else {
            if (last4 == ".m4a" && !IsMp4Capable()) {
                LastError_ = "Not mp4 capable";
                return false;
            }

            // Busy from here: the stream wait below lets the host in.
            Log("Setting AddingSourceFilter to TRUE in AddSourceFilter");
            AddingSourceFilter = true;
            addingItemName_ = FileName;
            RaisePlayerLogInfo("This is AddSourceFilter for " + FileName + "...");
            if (logging())
                Log(std::string("Player Settings: PreferHaldenSource: ") +
                    text::boolWord(Process().HaldenSourcePrefer) + " ASFReaderBanned = " +
                    text::boolWord(Process().ASFReaderBanned));

            // The player's own reader, for local MP3 files when preferred.
            platform::CatalogueEntryPtr reader;
            if (Process().HaldenSourcePrefer && !bMustUseASFReader) {
                if (const platform::CatalogueEntryPtr* own = colDShowFilters().find(kOwnReader)) {
                    if (!address && text::toUpper(last3) == "MP3") reader = *own;
                } else {
                    RaiseWriteLog("POTENTIAL TROUBLE: Halden's Source doesnt seem to be regged on this system!");
                }
            }

            const bool oggPath = !address && (last3 == "ogg" || last3 == "lac");
            if (!reader && !bMustUseASFReader && (!address || item::isIcyStream(FileName))) {
                if (oggPath)
                    source = AddOggSource(FileName);
                else if (!address)
                    source = AddFileSource(FileName);
                else
                    source = AddStreamSource(FileName, failure);
            } else {
                source = AddReaderSource(FileName, reader, failure);
            }
        }

        // The source's output pin. A route's own failure is the reason when no pin is found.
        // A source that could not load its item offers no pin to start from, even where its
        // platform shows the pin before a file is loaded.
        if (source) fSourceFilter = source;
        if (failure.number == 0) failure = Err;
        clearErr();
        const bool loaded = fSourceFilter && (!fSourceFilter->isFileSource() ||
                                              !fSourceFilter->fileName().empty());
        if (loaded) {
            const bool windowsMediaStream = text::containsNoCase(fSourceFilter->name(), "icyx://");
            for (const auto& pin : fSourceFilter->pins()) {
                if (!pin) continue;
                if (!windowsMediaStream) {
                    MainSourcePin = pin; // the last pin wins
                } else if (text::containsNoCase(pin->name(), "Audio")) {
                    MainSourcePin = pin;
                } else {
                    trap(pin->render()); // rendered away, so that it cannot stall the graph
                }
            }
        }

        if (!errPending() && MainSourcePin) {
            result = true;
            Log("AddSourceFilter: Success. Source name: " + fSourceFilter->name());
        }
    } catch (const AutomationError& e) {
        failure = PendingError{e.number(), e.description()};
        Log("AddSourceFilter: " + errText(e.number(), e.description()));
    }

    AddingSourceFilter = false;
    if (!result) {
        RemoveUnusableSources(standing);
        if (failure.number != 0) Err = failure;
    }
    return result;
}

// A source that did not give the chain its pin is no source: it goes, so that the graph holds
// no half-loaded reader or file source for the next attempt.
void PlayerCore::RemoveUnusableSources(const std::vector<platform::FilterPtr>& standing) {
    if (!MainGraphMan) return;
    for (const auto& filter : MainGraphMan->filters()) {
        if (!filter || std::find(standing.begin(), standing.end(), filter) != standing.end()) continue;
        if (!filter->isFileSource() && !filter->streamSource()) continue;
        MainGraphMan->removeFilter(filter);
        if (filter == fSourceFilter) {
            fSourceFilter.reset();
            MainSourcePin.reset();
        }
    }
}

// FLAC: the decoding source reads the file itself; a file it does not take is no source.
platform::FilterPtr PlayerCore::AddFlacSource(const std::string& FileName) {
    if (!colDShowFilters().Contains(kFlacSource)) {
        Log("Flac source not installed, please install Native Flac Decoder (the Halden de-bugged version ...");
        return nullptr;
    }
    platform::FilterPtr source = AddFilterByName(kFlacSource);
    if (!source) return nullptr;
    trap(source->setFileName(FileName));
    if (source->fileName() != FileName) {
        MainGraphMan->removeFilter(source);
        return nullptr;
    }
    return source;
}

// An ordinary local file: the asynchronous file source, or the platform's own choice where
// that is allowed.
platform::FilterPtr PlayerCore::AddFileSource(const std::string& FileName) {
    platform::FilterPtr source;
    if (colDShowFilters().Contains(kFileSource)) source = AddFilterByName(kFileSource);
    if (!source) {
        // The system source.
        if (!Process().AutoRenderAllowed) {
            LastError_ = "To improve the stability of the program, using system source is disabled";
            return nullptr;
        }
        Log("About to set " + FileName + " to system source filter...");
        trap(MainGraphMan->addSourceFilter(FileName, source));
        Log("Setted " + FileName + " to system source filter.");
        return source;
    }
    Log("About to set " + FileName + " to async source filter:");
    Log(source->name() + " ...");
    trap(source->setFileName(FileName));
    Log("Setted " + FileName + " to async source filter");
    return source;
}

// An "icystream://" address: the stream source opens it in the background while the host's
// event loop runs; it is given 10 000 ms.
platform::FilterPtr PlayerCore::AddStreamSource(const std::string& address, PendingError& failure) {
    platform::FilterPtr source = AddFilterByName(kStreamSource);
    platform::StreamSourceControl* control = source ? source->streamSource() : nullptr;
    if (!control) {
        failure = PendingError{Err.number ? Err.number : platform::hr::Pointer,
                               std::string(kStreamSource) + " is not available"};
        return nullptr;
    }
    streamSource_ = source;
    streamControl_ = control;
    control->registerCallback(this);
    if (!trap(control->open(address))) raise(Err.number, Err.description);
    WaitForStreamSource(source, address);
    return source;
}

bool PlayerCore::WaitForStreamSource(const platform::FilterPtr& source, const std::string& /*address*/) {
    platform::StreamSourceControl* control = source->streamSource();
    auto& ticks = platform_.ticks();
    auto& loop = platform_.eventLoop();
    for (int32_t waited = 0;; waited += kStreamPollMs) {
        const auto state = control->openState();
        if (state == platform::StreamSourceControl::OpenState::Open) return true;
        if (state == platform::StreamSourceControl::OpenState::Failed) {
            const platform::Status why = control->openFailure();
            streamAnswerFinal_ = control->failureIsFinal();
            raise(why.number ? why.number : platform::hr::Fail, why.description);
        }
        if (waited >= kStreamTimeoutMs) {
            streamAnswerFinal_ = true; // a server this slow would be as slow for any source
            if (control->canCancel()) control->cancel(); // and its connection ends now
            raise(kBusyOrUnplayable, "Waiting too long for the stream to load");
        }
        {
            // The host's loop runs here: what it does is done from outside this load.
            Reentrance::InEvent hostLoop(reentrance_);
            loop.processPending();
        }
        reentrance_.stopIfSuperseded();
        ticks.sleepMs(kStreamPollMs);
    }
}

// The Windows Media readers: the player's own reader (when it is preferred for local MP3 files) or the platform's,
// unless it is banned.
platform::FilterPtr PlayerCore::AddReaderSource(const std::string& FileName, platform::CatalogueEntryPtr reader,
                                            PendingError& failure) {
    const std::string last3 = text::toLower(text::lastChars(FileName, 3));

    if (!reader) {
        if (Process().ASFReaderBanned) {
            Log("WARNING: WM ASF READER is too old for me to try to use it. Update Windows Media Player to 11 or more!");
            // Only the reader opens such addresses: say so rather than let the file route
            // report a missing file.
            if (isAddress(FileName))
                failure = PendingError{kBusyOrUnplayable, "The address " + FileName +
                                                              " needs the Windows Media reader, which is banned "
                                                              "(ASFReaderBanned); only icystream:// and icystreams:// "
                                                              "addresses play without it."};
            return nullptr;
        }
        const platform::CatalogueEntryPtr* wm = colDShowFilters().find(kWmReader);
        if (!wm) {
            failure = PendingError{5, "Invalid procedure call or argument"};
            return nullptr;
        }
        reader = *wm;
    }

    clearErr();
    platform::FilterPtr source;
    if (!trap(reader->createIn(*MainGraphMan, source)) || !source) {
        failure = PendingError{Err.number ? Err.number : platform::hr::Pointer, Err.description};
        return nullptr;
    }
    Log("About to set " + FileName + " to source filter: ");
    const std::string name = source->name();
    Log(name);

    // The platform's reader hangs on some files: say so, but load them all the same.
    if (text::equalsNoCase(name, kWmReaderName)) {
        if (last3 == "mp3" || last3 == "mp2" || last3 == "wma" || last3 == "asf") {
            Log("Being careful to check extension before loading into " + name +
                " (Should be WM Reader) because of hangs...");
        } else {
            Log("NOT trying to load file, with extension: " + last3 + " into WM ASF Reader. It is delicate!");
            if (last3 == "ogg" || last3 == "lac") {
                Log("Trying the ogg subsystem...");
                MainGraphMan->removeFilter(source); // one source only
                return AddOggSource(FileName);
            }
        }
    }

    Log("Loading file: " + FileName + " into " + name + " ... ");
    trap(source->setFileName(FileName));
    fSourceFilter = source;

    if (source->fileName() != FileName) {
        // Not loaded: the reason stays pending through the clean-up.
        Log("Could not load " + FileName + " into source, with erNum: " + std::to_string(Err.number) +
            " ,desc: " + Err.description);
        failure = Err.number != 0
                      ? PendingError{Err.number, "Filename: " + FileName + " could not be loaded -- " + Err.description}
                      : PendingError{kBusyOrUnplayable, "Filename: " + FileName + " cannot be played."};
        Log("Removing Source Filter...");
        RemoveSourceFilter();
        Log("Source Filter removed. Graph looks like this: ");
        if (logging()) Log(PrintFilters(MainGraphMan));
        Err = failure;
    } else {
        Log("Setted " + FileName + " to source filter.");
    }

    if (errPending()) {
        fSourceFilter.reset();
        return nullptr;
    }
    if (text::equalsNoCase(name, kOwnReader)) {
        UsingHaldenSource_ = true;
    } else {
        UsingASFReader_ = true;
        UsingHaldenSource_ = false;
    }
    return source;
}

// Ogg (and "lac" names that are not FLAC): the Ogg source, when the Ogg chain is installed.
platform::FilterPtr PlayerCore::AddOggSource(const std::string& FileName) {
    const bool capable = IsOggCapable(!(fVorbisDecoder && fVorbisSplitter));
    if (!capable) {
        LastError_ = "Ogg decoder chain not installed. Please contact support if you need this.";
        RaisePlayerLogInfo(LastError_);
        LastError_ = "\r\n" + LastError_;
        return nullptr;
    }
    if (!colDShowFilters().Contains(kOggSource)) return nullptr;
    platform::FilterPtr source = AddFilterByName(kOggSource);
    if (!source) {
        LastError_ = "Unable to create ogg source filter, with err: " + errText(Err.number, Err.description);
        return nullptr;
    }
    if (!trap(source->setFileName(FileName)))
        LastError_ = "Unable to load " + FileName + " into async source filter, with err: " +
                     errText(Err.number, Err.description);
    return source;
}

} // namespace corvid
