// The Ogg chain: source -> "dsf Ogg Demuxer2+" -> "Xiph.Org Vorbis Decoder PLUS" -> sample
// grabber -> sound card. Demuxer and decoder come from outside parties and may be missing on
// a machine: they are added for each attempt and taken out again when it fails. Names ending
// in "lac" come here too when the dispatcher routes them.

#include "control/PlayerCore.h"
#include "devices/FilterNames.h"
#include "formats/ChainSupport.h"
#include "support/Text.h"

namespace corvid {

using namespace filters;

namespace {
} // namespace

// Leaves the pending error as it found it: a filter that is no longer in the graph is not a
// failure of the caller's work.
void PlayerCore::RemoveVorbisFilters() {
    const PendingError kept = Err;
    RemoveFilterTrapped(fVorbisDecoder);
    RemoveFilterTrapped(fVorbisSplitter);
    Err = kept;
}

void PlayerCore::AddVorbisFilters(bool& force, bool& ok) {
    clearErr();
    if (force) vorbisReady_ = false;
    if (fVorbisDecoder && vorbisReady_) { // still in place from the last call
        ok = fVorbisDecoder && fVorbisSplitter;
        return;
    }

    RemoveVorbisFilters();
    vorbisReady_ = true;

    bool decoderFound = false;
    bool demuxerFound = false;
    if (colDShowFilters().Contains(kVorbisDecoder)) {
        decoderFound = true;
        fVorbisDecoder = AddCatalogueInstance(TakeCatalogueEntry(kVorbisDecoder));
        if (errPending()) {
            RaisePlayerLogInfo("WARNING: Failed to add  Vorbis Decoder to graph");
            clearErr();
            ok = false;
            return;
        }
    } else {
        RaisePlayerLogInfo("WARNING: Vorbis decoder is not found");
    }

    if (decoderFound) {
        if (colDShowFilters().Contains(kOggDemuxer)) {
            demuxerFound = true;
            fVorbisSplitter = AddCatalogueInstance(TakeCatalogueEntry(kOggDemuxer));
        } else {
            RaisePlayerLogInfo("WARNING: Vorbis Demuxer is not found");
        }
    }

    bool failed = !(decoderFound && demuxerFound);
    if (failed) RemoveVorbisFilters();
    if (errPending()) {
        RaisePlayerLogInfo("Failed to add  Vorbis Splitter to graph");
        clearErr();
        failed = true;
    }
    ok = !failed;
}

bool PlayerCore::ConnectOggFilters(platform::PinPtr& sourcePin, platform::PinPtr& sgIn,
                               platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                               const std::string& fileName) {
    using namespace formats;

    // The source filter stays in the graph: only our two filters go.
    auto fail = [&]() -> bool {
        RemoveVorbisFilters();
        return false;
    };
    auto failWith = [&](const char* line) -> bool {
        RaisePlayerLogInfo(line);
        return fail();
    };

    if (!TakeSourcePin(sourcePin, fileName, false,
                       {"ConnectOggFilters: cannot add source filter",
                        "ConnectOggFilters, for: ",
                        "ConnectOggFilters: no source pin, cannot continue"}))
        return false;

    const auto ending = text::lastChars(fileName, 3);
    if (!text::equalsNoCase(ending, "ogg") && !text::equalsNoCase(ending, "lac")) {
        Log("ConnectOggFilters: Path does not end in .ogg, returning false");
        return false;
    }

    bool force = true;
    bool ok = false;
    AddVorbisFilters(force, ok);
    if (!ok) {
        // Without the codecs there is nothing to tell the operator beyond AddVorbisFilters'
        // warnings.
        RemoveVorbisFilters();
        return false;
    }
    if (!fVorbisDecoder) {
        RaisePlayerLogInfo("Ogg Splitter, or Vorbis Decoder filters missing.");
        trapError(12345, "Vorbis decoder not installed");
        return fail();
    }

    clearErr();
    platform::PinPtr decoderIn, decoderOut, splitterIn, splitterOut;
    GetPins(decoderIn, decoderOut, fVorbisDecoder);
    if (!decoderIn) return failWith("Missing vorbis decoder input pin");
    if (!fVorbisSplitter) return failWith("No vorbis splitter");

    GetPins(splitterIn, splitterOut, fVorbisSplitter);
    if (!sourcePin || !splitterIn)
        return failWith(" No Source Pin or vorbis splitter in pin in ConnectOggFilters");
    trap(connectDirect(sourcePin, splitterIn));
    if (errPending()) return failWith("Failed to connect source pin to vorbis splitter in pin");

    GetPins(decoderIn, decoderOut, fVorbisDecoder);
    if (!decoderOut) return failWith("Missing vorbis decoder output pin");
    if (errPending()) return fail();

    // The demuxer's output appears only once its input is connected.
    GetPins(splitterIn, splitterOut, fVorbisSplitter);
    if (!splitterOut || !decoderIn)
        return failWith(" No Vorbis splitter out Pin or vorbis decoder in pin in ConnectOggFilters");
    trap(connectDirect(splitterOut, decoderIn));
    if (errPending()) return failWith("Failed to connect source pin to vorbis splitter in pin");

    if (!decoderOut || !sgIn)
        return failWith(" No Vorbis decoder out Pin or sample grabber in pin in ConnectOggFilters");
    trap(connectDirect(decoderOut, sgIn));
    if (errPending()) {
        clearErr();
        trap(connect(decoderOut, sgIn));
        if (errPending()) return fail();
    }

    if (!sgOut || !renderIn)
        return failWith(" No SampleGrabber out Pin or Render in pin in ConnectOggFilters");
    trap(connectDirect(sgOut, renderIn));
    if (errPending()) return fail();
    return true;
}

bool PlayerCore::IsOggCapable(bool ForceRefresh) {
    if (ForceRefresh) QuerySoundCards(true);

    // With a refresh, each filter must also prove that it can be made.
    platform::GraphPtr scratch;
    auto canCreate = [&](const char* name) {
        if (!ForceRefresh) return true;
        if (!scratch && !platform_.createGraph(scratch).ok()) return false;
        const platform::CatalogueEntryPtr* entry = colDShowFilters().find(name);
        if (!entry || !*entry || !scratch) return false;
        platform::FilterPtr filter;
        return (*entry)->createIn(*scratch, filter).ok() && filter != nullptr;
    };

    if (!colDShowFilters().Contains(kOggDemuxer) || !canCreate(kOggDemuxer)) return false;
    if (!colDShowFilters().Contains(kVorbisDecoder) || !canCreate(kVorbisDecoder)) return false;
    return true;
}

} // namespace corvid
