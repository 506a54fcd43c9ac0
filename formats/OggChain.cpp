// The Ogg chain: source -> "dsf Ogg Demuxer2+" -> "Xiph.Org Vorbis Decoder PLUS" -> sample
// grabber -> sound card. Demuxer and decoder come from outside parties and may be missing on
// a machine: they are added for each attempt and taken out again when it fails. Names ending
// in "lac" come here too when the dispatcher routes them.

#include "formats/FormatChains.h"
#include "devices/FilterNames.h"
#include "formats/ChainRegistry.h"
#include "formats/ChainSupport.h"

namespace corvid {

using namespace filters;

namespace {
} // namespace

// Leaves the pending error as it found it: a filter that is no longer in the graph is not a
// failure of the caller's work.
void FormatChains::RemoveVorbisFilters() {
    const GraphModel::PendingError kept = g_.Err;
    RemoveFilterTrapped(g_.fVorbisDecoder);
    RemoveFilterTrapped(g_.fVorbisSplitter);
    g_.Err = kept;
}

void FormatChains::AddVorbisFilters(bool& force, bool& ok) {
    g_.clearErr();
    if (force) g_.vorbisReady_ = false;
    if (g_.fVorbisDecoder && g_.vorbisReady_) { // still in place from the last call
        ok = g_.fVorbisDecoder && g_.fVorbisSplitter;
        return;
    }

    RemoveVorbisFilters();
    g_.vorbisReady_ = true;

    bool decoderFound = false;
    bool demuxerFound = false;
    if (routing_.colDShowFilters().Contains(kVorbisDecoder)) {
        decoderFound = true;
        g_.fVorbisDecoder = AddCatalogueInstance(TakeCatalogueEntry(kVorbisDecoder));
        if (g_.errPending()) {
            events_.RaisePlayerLogInfo("WARNING: Failed to add  Vorbis Decoder to graph");
            g_.clearErr();
            ok = false;
            return;
        }
    } else {
        events_.RaisePlayerLogInfo("WARNING: Vorbis decoder is not found");
    }

    if (decoderFound) {
        if (routing_.colDShowFilters().Contains(kOggDemuxer)) {
            demuxerFound = true;
            g_.fVorbisSplitter = AddCatalogueInstance(TakeCatalogueEntry(kOggDemuxer));
        } else {
            events_.RaisePlayerLogInfo("WARNING: Vorbis Demuxer is not found");
        }
    }

    bool failed = !(decoderFound && demuxerFound);
    if (failed) RemoveVorbisFilters();
    if (g_.errPending()) {
        events_.RaisePlayerLogInfo("Failed to add  Vorbis Splitter to graph");
        g_.clearErr();
        failed = true;
    }
    ok = !failed;
}

bool FormatChains::ConnectOggFilters(ChainPins& pins, bool& /*usingWM*/, const item::Name& item) {
    using namespace formats;
    platform::PinPtr& sourcePin = pins.source;
    platform::PinPtr& sgIn = pins.sgIn;
    platform::PinPtr& sgOut = pins.sgOut;
    platform::PinPtr& renderIn = pins.renderIn;

    // The source filter stays in the graph: only our two filters go.
    auto fail = [&]() -> bool {
        RemoveVorbisFilters();
        return false;
    };
    auto failWith = [&](const char* line) -> bool {
        events_.RaisePlayerLogInfo(line);
        return fail();
    };

    if (!TakeSourcePin(sourcePin, item, false,
                       {"ConnectOggFilters: cannot add source filter",
                        "ConnectOggFilters, for: ",
                        "ConnectOggFilters: no source pin, cannot continue"}))
        return false;

    if (!isOggName(item)) {
        events_.Log("ConnectOggFilters: Path does not end in .ogg, returning false");
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
    if (!g_.fVorbisDecoder) {
        events_.RaisePlayerLogInfo("Ogg Splitter, or Vorbis Decoder filters missing.");
        g_.trapError(12345, "Vorbis decoder not installed");
        return fail();
    }

    g_.clearErr();
    platform::PinPtr decoderIn, decoderOut, splitterIn, splitterOut;
    GetPins(decoderIn, decoderOut, g_.fVorbisDecoder);
    if (!decoderIn) return failWith("Missing vorbis decoder input pin");
    if (!g_.fVorbisSplitter) return failWith("No vorbis splitter");

    GetPins(splitterIn, splitterOut, g_.fVorbisSplitter);
    if (!sourcePin || !splitterIn)
        return failWith(" No Source Pin or vorbis splitter in pin in ConnectOggFilters");
    g_.trap(connectDirect(sourcePin, splitterIn));
    if (g_.errPending()) return failWith("Failed to connect source pin to vorbis splitter in pin");

    GetPins(decoderIn, decoderOut, g_.fVorbisDecoder);
    if (!decoderOut) return failWith("Missing vorbis decoder output pin");
    if (g_.errPending()) return fail();

    // The demuxer's output appears only once its input is connected.
    GetPins(splitterIn, splitterOut, g_.fVorbisSplitter);
    if (!splitterOut || !decoderIn)
        return failWith(" No Vorbis splitter out Pin or vorbis decoder in pin in ConnectOggFilters");
    g_.trap(connectDirect(splitterOut, decoderIn));
    if (g_.errPending()) return failWith("Failed to connect source pin to vorbis splitter in pin");

    if (!decoderOut || !sgIn)
        return failWith(" No Vorbis decoder out Pin or sample grabber in pin in ConnectOggFilters");
    g_.trap(connectDirect(decoderOut, sgIn));
    if (g_.errPending()) {
        g_.clearErr();
        g_.trap(connect(decoderOut, sgIn));
        if (g_.errPending()) return fail();
    }

    if (!sgOut || !renderIn)
        return failWith(" No SampleGrabber out Pin or Render in pin in ConnectOggFilters");
    g_.trap(connectDirect(sgOut, renderIn));
    if (g_.errPending()) return fail();
    return true;
}

bool FormatChains::IsOggCapable(bool ForceRefresh) {
    if (ForceRefresh) routing_.QuerySoundCards(true);

    // With a refresh, each filter must also prove that it can be made.
    platform::GraphPtr scratch;
    auto canCreate = [&](const char* name) {
        if (!ForceRefresh) return true;
        if (!scratch && !platform_.createGraph(scratch).ok()) return false;
        const platform::CatalogueEntryPtr* entry = routing_.colDShowFilters().find(name);
        if (!entry || !*entry || !scratch) return false;
        platform::FilterPtr filter;
        return (*entry)->createIn(*scratch, filter).ok() && filter != nullptr;
    };

    if (!routing_.colDShowFilters().Contains(kOggDemuxer) || !canCreate(kOggDemuxer)) return false;
    if (!routing_.colDShowFilters().Contains(kVorbisDecoder) || !canCreate(kVorbisDecoder)) return false;
    return true;
}

} // namespace corvid
