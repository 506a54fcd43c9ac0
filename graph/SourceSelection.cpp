// AddSourceFilter: exactly one source filter for the item, and the output pin from which the
// decoder chain starts (MainSourcePin).
//
// The route follows the item: FLAC files into their own decoding source, local MP3 files into
// the player's own reader when it is preferred, Ogg files into the Ogg source, other local
// files into the asynchronous file source (or, where allowed, the platform's own choice),
// "icystream://" addresses into the stream source, and everything else into the Windows Media
// reader. A failure is kept as the pending error when AddSourceFilter returns false, so that
// the build reports why no source stands.

#include "graph/GraphSession.h"

#include "devices/FilterNames.h"
#include "devices/clsCards.h"
#include "support/ProcessState.h"
#include "support/Text.h"

#include <algorithm>

namespace corvid {

using namespace filters;

namespace {

constexpr int32_t kBusyOrUnplayable = 558;
// The schemes a source opens: the stream source its own two, the Windows Media reader the
// plain web ones.
constexpr std::string_view kPlayableSchemes[] = {"http", "https", "icystream", "icystreams"};
// The stream source reports its state on the control thread; it is given up after this long.
constexpr int32_t kStreamTimeoutMs = 10000;

std::string errText(int32_t number, const std::string& description) {
    return std::to_string(number) + " " + description;
}

} // namespace

bool GraphSession::RefuseUnplayableAddress(const item::Name& item) {
    if (!item.isAddress()) return false;
    std::string playable;
    for (std::string_view scheme : kPlayableSchemes) {
        if (text::equalsNoCase(item.scheme(), scheme)) return false;
        playable += (playable.empty() ? "" : ", ") + std::string(scheme) + "://";
    }
    const std::string why = "The address " + item.text() + " cannot be played: no source takes " +
                            std::string(item.scheme()) + ":// addresses. Addresses that play: " + playable + ".";
    g_.LastError_ = why;
    g_.trapError(kBusyOrUnplayable, why);
    g_.streamAnswerFinal_ = true; // every source would answer the same
    events_.Log("BuildGraph: " + why);
    return true;
}

bool GraphSession::AddSourceFilter(const item::Name& item, bool& bMustUseASFReader) {
    const std::string& FileName = item.text();
    const bool address = item.isAddress();

    if (item.extensionIs("wma")) bMustUseASFReader = true;
    g_.UsingASFReader_ = false;
    g_.UsingHaldenSource_ = false;
    if (!g_.MainGraphMan) return false;
    RemoveSourceFilter();
    const std::vector<platform::FilterPtr> standing = g_.MainGraphMan->filters();

    // Why no source stands, when none does; left pending for the caller.
    GraphModel::PendingError failure;
    platform::FilterPtr source;
    bool result = false;

    // The busy flag falls whichever way this ends.
    struct ClearAdding {
        bool& flag;
        ~ClearAdding() { flag = false; }
    } clearAdding{g_.AddingSourceFilter};

    try {
        if (item.extensionIs("flac")) {
            // FLAC decodes in its own source. Quick, so the busy flag stays down.
            events_.Log("flac file loading into madflac ...");
            source = AddFlacSource(FileName);
            if (!source) return false;
        } else {
            if (item.extensionIs("m4a") && !chains_.IsMp4Capable()) {
                g_.LastError_ = "Not mp4 capable";
                return false;
            }

            // Busy from here: the stream wait below lets the host in.
            events_.Log("Setting AddingSourceFilter to TRUE in AddSourceFilter");
            g_.AddingSourceFilter = true;
            g_.addingItemName_ = FileName;
            events_.RaisePlayerLogInfo("This is AddSourceFilter for " + FileName + "...");
            if (events_.logging())
                events_.Log(std::string("Player Settings: PreferHaldenSource: ") +
                    text::boolWord(g_.process->HaldenSourcePrefer) + " ASFReaderBanned = " +
                    text::boolWord(g_.process->ASFReaderBanned));

            // The player's own reader, for local MP3 files when preferred.
            platform::CatalogueEntryPtr reader;
            if (g_.process->HaldenSourcePrefer && !bMustUseASFReader) {
                if (const platform::CatalogueEntryPtr* own = routing_.colDShowFilters().find(kOwnReader)) {
                    if (!address && item.extensionIs("mp3")) reader = *own;
                } else {
                    events_.RaiseWriteLog("POTENTIAL TROUBLE: Halden's Source doesnt seem to be regged on this system!");
                }
            }

            const bool oggPath = !address && isOggName(item);
            if (!reader && !bMustUseASFReader && (!address || item.isIcyStream())) {
                if (oggPath)
                    source = AddOggSource(FileName);
                else if (!address)
                    source = AddFileSource(FileName);
                else
                    source = AddStreamSource(FileName, failure);
            } else {
                source = AddReaderSource(item, reader, failure);
            }
        }

        // The source's output pin. A route's own failure is the reason when no pin is found.
        // A source that could not load its item offers no pin to start from, even where its
        // platform shows the pin before a file is loaded.
        if (source) g_.fSourceFilter = source;
        if (failure.number == 0) failure = g_.Err;
        g_.clearErr();
        const bool loaded = g_.fSourceFilter && (!g_.fSourceFilter->isFileSource() ||
                                              !g_.fSourceFilter->fileName().empty());
        if (loaded) {
            const bool windowsMediaStream = text::containsNoCase(g_.fSourceFilter->name(), "icyx://");
            for (const auto& pin : g_.fSourceFilter->pins()) {
                if (!pin) continue;
                if (!windowsMediaStream) {
                    g_.MainSourcePin = pin; // the last pin wins
                } else if (text::containsNoCase(pin->name(), "Audio")) {
                    g_.MainSourcePin = pin;
                } else {
                    g_.trap(pin->render()); // rendered away, so that it cannot stall the graph
                }
            }
        }

        if (!g_.errPending() && g_.MainSourcePin) {
            result = true;
            events_.Log("AddSourceFilter: Success. Source name: " + g_.fSourceFilter->name());
        }
    } catch (const AutomationError& e) {
        failure = GraphModel::PendingError{e.number(), e.description()};
        events_.Log("AddSourceFilter: " + errText(e.number(), e.description()));
    }

    g_.AddingSourceFilter = false;
    if (!result) {
        RemoveUnusableSources(standing);
        if (failure.number != 0) g_.Err = failure;
    }
    return result;
}

// A source that did not give the chain its pin is no source: it goes, so that the graph holds
// no half-loaded reader or file source for the next attempt.
void GraphSession::RemoveUnusableSources(const std::vector<platform::FilterPtr>& standing) {
    if (!g_.MainGraphMan) return;
    for (const auto& filter : g_.MainGraphMan->filters()) {
        if (!filter || std::find(standing.begin(), standing.end(), filter) != standing.end()) continue;
        if (!filter->isFileSource() && !filter->streamSource()) continue;
        g_.MainGraphMan->removeFilter(filter);
        if (filter == g_.fSourceFilter) {
            g_.fSourceFilter.reset();
            g_.MainSourcePin.reset();
        }
    }
}

// FLAC: the decoding source reads the file itself; a file it does not take is no source.
platform::FilterPtr GraphSession::AddFlacSource(const std::string& FileName) {
    if (!routing_.colDShowFilters().Contains(kFlacSource)) {
        events_.Log("Flac source not installed, please install Native Flac Decoder (the Halden de-bugged version ...");
        return nullptr;
    }
    platform::FilterPtr source = AddFilterByName(kFlacSource);
    if (!source) return nullptr;
    g_.trap(source->setFileName(FileName));
    if (source->fileName() != FileName) {
        g_.MainGraphMan->removeFilter(source);
        return nullptr;
    }
    return source;
}

// An ordinary local file: the asynchronous file source, or the platform's own choice where
// that is allowed.
platform::FilterPtr GraphSession::AddFileSource(const std::string& FileName) {
    platform::FilterPtr source;
    if (routing_.colDShowFilters().Contains(kFileSource)) source = AddFilterByName(kFileSource);
    if (!source) {
        // The system source.
        if (!g_.process->AutoRenderAllowed) {
            g_.LastError_ = "To improve the stability of the program, using system source is disabled";
            return nullptr;
        }
        events_.Log("About to set " + FileName + " to system source filter...");
        g_.trap(g_.MainGraphMan->addSourceFilter(FileName, source));
        events_.Log("Setted " + FileName + " to system source filter.");
        return source;
    }
    events_.Log("About to set " + FileName + " to async source filter:");
    events_.Log(source->name() + " ...");
    g_.trap(source->setFileName(FileName));
    events_.Log("Setted " + FileName + " to async source filter");
    return source;
}

// An "icystream://" address: the stream source opens it in the background while the host's
// event loop runs; it is given 10 000 ms.
platform::FilterPtr GraphSession::AddStreamSource(const std::string& address, GraphModel::PendingError& failure) {
    platform::FilterPtr source = AddFilterByName(kStreamSource);
    platform::StreamSourceControl* control = source ? source->streamSource() : nullptr;
    if (!control) {
        failure = GraphModel::PendingError{g_.Err.number ? g_.Err.number : platform::hr::Pointer,
                               std::string(kStreamSource) + " is not available"};
        return nullptr;
    }
    g_.streamSource_ = source;
    g_.streamControl_ = control;
    control->registerCallback(&chains_);
    if (!g_.trap(control->open(address))) raise(g_.Err.number, g_.Err.description);
    WaitForStreamSource(source, address);
    return source;
}

bool GraphSession::WaitForStreamSource(const platform::FilterPtr& source, const std::string& /*address*/) {
    platform::StreamSourceControl* control = source->streamSource();
    auto& ticks = platform_.ticks();
    auto& loop = platform_.eventLoop();
    const int32_t started = ticks.nowMs();
    for (;;) {
        const auto state = control->openState();
        if (state == platform::StreamSourceControl::OpenState::Open) return true;
        if (state == platform::StreamSourceControl::OpenState::Failed) {
            const platform::Status why = control->openFailure();
            g_.streamAnswerFinal_ = control->failureIsFinal();
            raise(why.number ? why.number : platform::hr::Fail, why.description);
        }
        const int32_t waited = elapsedMs(started, ticks.nowMs());
        if (waited >= kStreamTimeoutMs) {
            g_.streamAnswerFinal_ = true; // a server this slow would be as slow for any source
            if (control->canCancel()) control->cancel(); // and its connection ends now
            raise(kBusyOrUnplayable, "Waiting too long for the stream to load");
        }
        {
            // The host's loop runs here: what it does is done from outside this load.
            Reentrance::InEvent hostLoop(g_.reentrance_);
            loop.processPending();
        }
        g_.reentrance_.stopIfSuperseded();
        control->waitForChange(kStreamTimeoutMs - waited);
    }
}

// The Windows Media readers: the player's own reader (when it is preferred for local MP3 files) or the platform's,
// unless it is banned.
platform::FilterPtr GraphSession::AddReaderSource(const item::Name& item, platform::CatalogueEntryPtr reader,
                                            GraphModel::PendingError& failure) {
    const std::string& FileName = item.text();
    const std::string& extension = item.extension();

    if (!reader) {
        if (g_.process->ASFReaderBanned) {
            events_.Log("WARNING: WM ASF READER is too old for me to try to use it. Update Windows Media Player to 11 or more!");
            // Only the reader opens such addresses: say so rather than let the file route
            // report a missing file.
            if (item.isAddress())
                failure = GraphModel::PendingError{kBusyOrUnplayable, "The address " + FileName +
                                                              " needs the Windows Media reader, which is banned "
                                                              "(ASFReaderBanned); only icystream:// and icystreams:// "
                                                              "addresses play without it."};
            else
                failure = GraphModel::PendingError{kBusyOrUnplayable, "The file " + FileName +
                                                              " needs the Windows Media reader, which is banned "
                                                              "(ASFReaderBanned)."};
            return nullptr;
        }
        const platform::CatalogueEntryPtr* wm = routing_.colDShowFilters().find(kWmReader);
        if (!wm) {
            failure = GraphModel::PendingError{5, "Invalid procedure call or argument"};
            return nullptr;
        }
        reader = *wm;
    }

    g_.clearErr();
    platform::FilterPtr source;
    if (!g_.trap(reader->createIn(*g_.MainGraphMan, source)) || !source) {
        failure = GraphModel::PendingError{g_.Err.number ? g_.Err.number : platform::hr::Pointer, g_.Err.description};
        return nullptr;
    }
    events_.Log("About to set " + FileName + " to source filter: ");
    const std::string name = source->name();
    events_.Log(name);

    // The platform's reader hangs on some files: say so, but load them all the same.
    if (text::equalsNoCase(name, kWmReaderName)) {
        if (extension == "mp3" || extension == "mp2" || extension == "wma" || extension == "asf") {
            events_.Log("Being careful to check extension before loading into " + name +
                " (Should be WM Reader) because of hangs...");
        } else {
            events_.Log("NOT trying to load file, with extension: " + extension + " into WM ASF Reader. It is delicate!");
            if (isOggName(item)) {
                events_.Log("Trying the ogg subsystem...");
                g_.MainGraphMan->removeFilter(source); // one source only
                return AddOggSource(FileName);
            }
        }
    }

    events_.Log("Loading file: " + FileName + " into " + name + " ... ");
    g_.trap(source->setFileName(FileName));
    g_.fSourceFilter = source;

    if (source->fileName() != FileName) {
        // Not loaded: the reason stays pending through the clean-up.
        events_.Log("Could not load " + FileName + " into source, with erNum: " + std::to_string(g_.Err.number) +
            " ,desc: " + g_.Err.description);
        failure = g_.Err.number != 0
                      ? GraphModel::PendingError{g_.Err.number, "Filename: " + FileName + " could not be loaded -- " + g_.Err.description}
                      : GraphModel::PendingError{kBusyOrUnplayable, "Filename: " + FileName + " cannot be played."};
        events_.Log("Removing Source Filter...");
        RemoveSourceFilter();
        events_.Log("Source Filter removed. Graph looks like this: ");
        if (events_.logging()) events_.Log(events_.PrintFilters(g_.MainGraphMan));
        g_.Err = failure;
    } else {
        events_.Log("Setted " + FileName + " to source filter.");
    }

    if (g_.errPending()) {
        g_.fSourceFilter.reset();
        return nullptr;
    }
    if (text::equalsNoCase(name, kOwnReader)) {
        g_.UsingHaldenSource_ = true;
    } else {
        g_.UsingASFReader_ = true;
        g_.UsingHaldenSource_ = false;
    }
    return source;
}

// Ogg (and "lac" names that are not FLAC): the Ogg source, when the Ogg chain is installed.
platform::FilterPtr GraphSession::AddOggSource(const std::string& FileName) {
    const bool capable = chains_.IsOggCapable(!(g_.fVorbisDecoder && g_.fVorbisSplitter));
    if (!capable) {
        g_.LastError_ = "Ogg decoder chain not installed. Please contact support if you need this.";
        events_.RaisePlayerLogInfo(g_.LastError_);
        g_.LastError_ = "\r\n" + g_.LastError_;
        return nullptr;
    }
    if (!routing_.colDShowFilters().Contains(kOggSource)) return nullptr;
    platform::FilterPtr source = AddFilterByName(kOggSource);
    if (!source) {
        g_.LastError_ = "Unable to create ogg source filter, with err: " + errText(g_.Err.number, g_.Err.description);
        return nullptr;
    }
    if (!g_.trap(source->setFileName(FileName)))
        g_.LastError_ = "Unable to load " + FileName + " into async source filter, with err: " +
                     errText(g_.Err.number, g_.Err.description);
    return source;
}

} // namespace corvid
