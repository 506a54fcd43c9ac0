// ConnectGraphFilters: the registered chain that is the item's first choice joins the source to
// the output device; when it fails, the registry's fallbacks follow in their order, and, as the
// last resort where the caller allows it, the platform renders the item by itself.

#include "graph/GraphSession.h"

#include "devices/FilterNames.h"
#include "formats/ChainRegistry.h"
#include "support/ProcessState.h"

namespace corvid {

using namespace filters;

namespace {
constexpr int32_t kMissingFilter = 819;
} // namespace

bool GraphSession::ConnectGraphFilters(const item::Name& item, bool CanUseAutoRender, bool bMustUseASFReader) {
    ChainPins pins;
    bool usingWM = bMustUseASFReader || g_.UsingASFReader_;
    try {
        // Every filter a chain may need, and its pins.
        if (!GatherChainPins(pins)) return ChainDispatchFailed();

        // The first choice, by the item's address scheme or extension.
        bool standing = false;
        if (const FormatChain* first = chains::firstChoiceFor(item)) {
            RecreateGrabberIfMissing(pins);
            if (first->announce) events_.Log(first->announce);
            standing = RunChain(*first, pins, usingWM, item);
            if (!standing && first->failureEndsDispatch) {
                events_.RaiseWriteLog(first->failureEndsDispatch);
                return ChainDispatchFailed();
            }
        }

        if (!standing) standing = ConnectFallbackChains(pins, usingWM, item, CanUseAutoRender);

        if (!standing) return ChainDispatchFailed();

        // A standing chain; a speaker-pair output gets its surround filter before the card.
        g_.clearErr();
        chains_.InsertSurroundFilter(g_.SoundCardInPin);
        return true;
    } catch (const AutomationError& e) {
        g_.trapError(e.number(), e.description());
    } catch (const std::exception& e) {
        g_.trapError(platform::hr::Fail, e.what());
    }
    return ChainDispatchFailed();
}

bool GraphSession::RunChain(const FormatChain& chain, ChainPins& pins, bool& usingWM, const item::Name& item) {
    const bool standing = (chains_.*chain.connect)(pins, usingWM, item);
    if (chain.handsBackPins) SyncChainPins(pins);
    return standing;
}

bool GraphSession::ConnectFallbackChains(ChainPins& pins, bool& usingWM, const item::Name& item,
                                         bool CanUseAutoRender) {
    events_.RaisePlayerLogInfo("ConnectGraphFilters: ConnectGraphFilters failed: " + g_.LastError_);

    bool standing = false;
    for (const ChainFallback& fallback : chains::fallbacks()) {
        if (fallback.freshSource)
            ForgetSourceForNextChain(pins);
        else
            RecreateGrabberIfMissing(pins);
        events_.Log(fallback.announce);
        standing = RunChain(*fallback.chain, pins, usingWM, item);
        if (fallback.listGraphAfter && events_.logging()) events_.Log(events_.PrintFilters(g_.MainGraphMan));
        if (standing) break;
    }

    if (events_.logging()) events_.Log(events_.PrintFilters(g_.MainGraphMan));

    // The platform's own rendering, only where the caller allows it.
    if (!standing && CanUseAutoRender) {
        ForgetSourceForNextChain(pins);
        events_.RaiseWriteLog("Getting desperate to render this file, doing automatically...");
        standing = RenderAutomatically(item, pins.sgIn, pins.sgOut);
        events_.RaiseWriteLog("RenderAutomatically in ConnectGraphFilters completed...");
    }
    return standing;
}

bool GraphSession::ChainDispatchFailed() {
    // The reason is added to what the chains already wrote.
    g_.LastError_ = g_.LastError_ + "\r\n" + "ConnectGraphFilters Failed: " + std::to_string(g_.Err.number) + " " +
                 g_.Err.description;
    events_.RaiseWriteLog("ConnectGraphFilters failed, with error " + g_.LastError_);
    g_.clearErr();
    try {
        RemoveSourceFilter();
    } catch (const AutomationError& e) {
        events_.Log("ConnectGraphFilters: " + e.description());
    }
    return false;
}

// ---- Chain pins ------------------------------------------------------------------------------

bool GraphSession::GatherChainPins(ChainPins& pins) {
    const auto bail = [&](const char* text) {
        events_.Log(text);
        return false;
    };
    platform::PinPtr unused;

    // The source filter, with its item.
    if (!g_.fSourceFilter) raise(kMissingFilter, "ConnectGraphFilters: There is no source filter!");
    if (g_.fSourceFilter->isFileSource() && g_.fSourceFilter->fileName().empty())
        raise(kMissingFilter, "ConnectGraphFilters: The source filter has no filename!");

    // Without the ACM wrapper the chains still try; a wrapper without pins is broken.
    platform::PinPtr acmIn, acmOut;
    if (!g_.fACMWrapper) {
        events_.Log("ConnectGraphFilters: Error: No ACM Wrapper filter, bailing...");
    } else {
        FormatChains::GetPins(acmIn, acmOut, g_.fACMWrapper);
        if (!acmIn || !acmOut) return bail("ConnectGraphFilters: Error: No ACM Wrapper pins, bailing...");
    }

    if (!g_.MainSourcePin) return bail("ConnectGraphFilters: Error: No MainSourcePin, bailing...");
    pins.source = g_.MainSourcePin;
    if (!pins.source) {
        events_.RaiseWriteLog("ConnectGraphFilters: no Source Pin!");
        return false;
    }

    if (!g_.fMpegSplitter) return bail("ConnectGraphFilters: Error: fMpegSplitter, bailing...");
    FormatChains::GetPins(pins.splitterIn, unused, g_.fMpegSplitter);
    if (!pins.splitterIn) return bail("ConnectGraphFilters: Error no MPEG Splitter In Pin!");

    // The MP3 decoder, or the ACM wrapper in its place.
    if (g_.fMpegDecoder) {
        FormatChains::GetPins(pins.decoderIn, pins.decoderOut, g_.fMpegDecoder);
        if (!pins.decoderIn || !pins.decoderOut)
            return bail("ConnectGraphFilters: no MPEG Decoder In Pin Or MPEG Decoder Out Pin (when mp3 decoder exists)!");
    } else {
        pins.decoderIn = acmIn;
        pins.decoderOut = acmOut;
        if (!pins.decoderIn || !pins.decoderOut)
            return bail("ConnectGraphFilters: no MPEG Decoder In Pin Or MPEG Decoder Out Pin (when using ACM)!");
    }

    if (!g_.fSampleGrabber) return bail("ConnectGraphFilters: Error no SampleGrabber Filter!");
    pins.grabber = g_.fSampleGrabber;
    FormatChains::GetPins(pins.sgIn, pins.sgOut, g_.fSampleGrabber);
    if (!pins.sgIn || !pins.sgOut)
        return bail("ConnectGraphFilters: no SampleGrabber In Pin or SampleGrabber Out Pin!");

    if (!g_.fWaveParser) return bail("ConnectGraphFilters: Error no Wave Parser Filter!");
    FormatChains::GetPins(pins.waveParserIn, unused, g_.fWaveParser);
    if (!pins.waveParserIn) return bail("ConnectGraphFilters: no waveParser in pin!");

    pins.renderIn = g_.SoundCardInPin;
    return true;
}

// Before every chain: a chain that lost the sample grabber gets a new one.
void GraphSession::RecreateGrabberIfMissing(ChainPins& pins) {
    if (g_.fSampleGrabber) return;
    g_.fSampleGrabber = CreateSampleGrabber();
    pins.grabber = g_.fSampleGrabber;
    FormatChains::GetPins(pins.sgIn, pins.sgOut, g_.fSampleGrabber);
}

// Between fallbacks: the source goes, and the next chain adds its own.
void GraphSession::ForgetSourceForNextChain(ChainPins& pins) {
    RemoveSourceFilter();
    pins.source.reset();
    RecreateGrabberIfMissing(pins);
}

// The chains that hand back what they changed: the player takes it over.
void GraphSession::SyncChainPins(ChainPins& pins) {
    g_.SoundCardInPin = pins.renderIn;
    g_.SampleGrabberInPin = pins.sgIn;
    g_.SampleGrabberOutPin = pins.sgOut;
    if (g_.fSampleGrabber != pins.grabber) pins.grabber = g_.fSampleGrabber;
}

// ---- RenderAutomatically ---------------------------------------------------------------------

bool GraphSession::RenderAutomatically(const item::Name& item, platform::PinPtr& sgIn, platform::PinPtr& sgOut) {
    const std::string& FileName = item.text();
    // Only where the host allows the platform's own choice of filters.
    if (!g_.process->AutoRenderAllowed) {
        g_.LastError_ += "\r\n" + FileName + " would need to be automatically rendered, but the setting is disabled.";
        events_.RaisePlayerLogInfo(g_.LastError_);
        return false;
    }

    GraphModel::PendingError failure;
    bool grabberRemoved = false;
    try {
        RemoveSourceFilter();
        events_.Log("*****************NOT NICE: USING SYSTEM FILTERS TO RENDER AUTOMATICALLY. AVOID IF YOU CAN*****************************");

        if ((!g_.SoundCardInPin || !g_.fSoundCard) && !routing_.AddSoundCard(routing_.GetMainSoundcard(), false)) return false;

        // The grabber and the inserts would only be in the platform's way.
        for (const auto& filter : g_.MainGraphMan->filters()) {
            const std::string name = filter->name();
            if (name == filters::kSampleGrabber) {
                g_.MainGraphMan->removeFilter(filter);
                if (!g_.fSampleGrabber) g_.fSampleGrabber = filter;
                grabberRemoved = true;
                sgIn.reset();
                sgOut.reset();
                g_.SampleGrabberInPin.reset();
                g_.SampleGrabberOutPin.reset();
            } else if (name == filters::kPitchShifter) {
                g_.MainGraphMan->removeFilter(filter);
            } else if (name == filters::kAcmWrapper && g_.fChainACMWrapper) {
                g_.MainGraphMan->removeFilter(g_.fChainACMWrapper);
                g_.fChainACMWrapper.reset();
            }
        }

        // A source, with the own reader's preference suspended for one retry if need be.
        if (!g_.MainSourcePin) {
            bool mustUseReader = false;
            bool added = AddSourceFilter(item, mustUseReader);
            if (!added && g_.process->HaldenSourcePrefer) {
                g_.process->HaldenSourcePrefer = false;
                mustUseReader = false;
                added = AddSourceFilter(item, mustUseReader);
                g_.process->HaldenSourcePrefer = true;
            }
            if (!added || !g_.MainSourcePin) {
                failure = g_.Err;
                return RenderAutomaticallyFailed(failure, grabberRemoved);
            }
        }

        // The platform renders the pin by itself; what it leaves in the graph is reused below.
        if (g_.MainSourcePin && !g_.MainSourcePin->render().ok()) g_.clearErr();

        // Then source to card by intelligent connect.
        DisconnectAllFilters(g_.MainGraphMan);
        if (g_.MainSourcePin && g_.SoundCardInPin) {
            events_.Log("****Render Auto:  trying to connect SourcePin to the SoundCardInPin - crash possible...****");
            g_.trap(g_.MainSourcePin->connect(g_.SoundCardInPin));
            events_.Log("****Render Auto:  finished trying to connect SourcePin to the SoundCardInPin****");
        }

        // The grabber back in, right before the card.
        const platform::Status added = g_.MainGraphMan->addFilter(g_.fSampleGrabber, filters::kSampleGrabber);
        if (!added) {
            failure = GraphModel::PendingError{added.number, added.description};
            events_.Log("Unable to add the SampleGrabber filter back into the graph.");
        } else {
            grabberRemoved = false;
            FormatChains::GetPins(sgIn, sgOut, g_.fSampleGrabber);
            g_.SampleGrabberInPin = sgIn;
            g_.SampleGrabberOutPin = sgOut;
            if (!sgIn || !sgOut) {
                events_.Log("failed to get samplegrabber pins...");
            } else if (g_.SoundCardInPin && g_.fSoundCard && g_.SoundCardInPin->isConnected()) {
                const platform::PinPtr upstream = g_.SoundCardInPin->connectedTo();
                platform::Status step = g_.SoundCardInPin->disconnect();
                if (step) step = sgIn->connectDirect(upstream);
                if (step) step = sgOut->connect(g_.SoundCardInPin);
                if (step) {
                    events_.Log("****RENDER AUTOMATICALLY: SUCCESSFUL - BUT TRY TO AVOID******");
                    std::string path = FileName;
                    events_.raiseEvent([&](PlayerEvents& e) { e.RenderedAutomatically(path); });
                    return true;
                }
                failure = GraphModel::PendingError{step.number, step.description};
                g_.clearErr();
            }
        }
    } catch (const AutomationError& e) {
        failure = GraphModel::PendingError{e.number(), e.description()};
    }
    return RenderAutomaticallyFailed(failure, grabberRemoved);
}

bool GraphSession::RenderAutomaticallyFailed(const GraphModel::PendingError& failure, bool grabberRemoved) {
    // Never leave the graph without its grabber if that can be helped.
    events_.Log("Errored in RenderAutomatically: " + std::to_string(failure.number) + " " + failure.description);
    if (grabberRemoved && (!g_.fSampleGrabber || !g_.MainGraphMan ||
                           !g_.MainGraphMan->addFilter(g_.fSampleGrabber, filters::kSampleGrabber).ok()))
        events_.Log("SampleGrabber could NOT be added back to graph after RenderAutomatically FAILED!");
    return false;
}

} // namespace corvid
