// ConnectGraphFilters: which decoder chain joins the source to the output device, in which
// order the others are tried when it fails, and, as the last resort where the caller allows
// it, letting the platform render the item by itself.

#include "control/PlayerCore.h"
#include "control/ProcessState.h"
#include "devices/FilterNames.h"

#include "platform/ItemName.h"
#include "support/Text.h"

namespace corvid {

using namespace filters;

namespace {

constexpr int32_t kMissingFilter = 819;

using item::isAddress;

// The chain tried first, by the item's address scheme or the last four characters of its name.
enum class FirstChoice { Stream, Mp3, Wave, Wma, Ogg, Mp4, None };

FirstChoice firstChoiceFor(const std::string& fileName) {
    if (isAddress(fileName)) return FirstChoice::Stream;
    const std::string extension = text::toLower(text::lastChars(fileName, 4));
    if (extension == ".mp3" || extension == "flac") return FirstChoice::Mp3; // FLAC deliberately
    if (extension == ".wav") return FirstChoice::Wave;
    if (extension == ".asf" || extension == ".wma") return FirstChoice::Wma;
    if (extension == ".ogg") return FirstChoice::Ogg;
    if (extension == ".m4a") return FirstChoice::Mp4;
    return FirstChoice::None;
}

} // namespace

bool PlayerCore::ConnectGraphFilters(const std::string& FileName, bool CanUseAutoRender, bool bMustUseASFReader) {
    ChainPins pins;
    bool usingWM = bMustUseASFReader || UsingASFReader_;
    try {
        // Every filter a chain may need, and its pins.
        if (!GatherChainPins(pins)) return ChainDispatchFailed();

        // The first choice.
        bool standing = false;
        switch (firstChoiceFor(FileName)) {
        case FirstChoice::Stream:
            RecreateGrabberIfMissing(pins);
            if (ConnectStreamFilters(pins.source, pins.decoderIn, pins.decoderOut, pins.sgIn, pins.sgOut,
                                     pins.renderIn, pins.grabber, FileName)) {
                standing = true;
                break;
            }
            // A stream that does not connect is not a file: no other chain is tried.
            RaiseWriteLog("ConnectGraphFilters: ConnectStreamFilters Failed!");
            return ChainDispatchFailed();
        case FirstChoice::Mp3:
            RecreateGrabberIfMissing(pins);
            Log("trying ConnectMp3Filters...");
            standing = TryMp3Chain(pins, usingWM, FileName);
            break;
        case FirstChoice::Wave:
            RecreateGrabberIfMissing(pins);
            Log("trying ConnectWavFilters...");
            standing = TryWaveChain(pins, FileName);
            break;
        case FirstChoice::Wma:
            RecreateGrabberIfMissing(pins);
            Log("trying ConnectWMAFilters...");
            standing = TryWmaChain(pins, FileName);
            break;
        case FirstChoice::Ogg:
            RecreateGrabberIfMissing(pins);
            Log("trying ConnectOggFilters...");
            standing = TryOggChain(pins, FileName);
            break;
        case FirstChoice::Mp4:
            RecreateGrabberIfMissing(pins);
            Log("trying ConnectMp4Filters...");
            standing = ConnectMp4Filters(pins.source, pins.sgIn, pins.sgOut, pins.renderIn, pins.grabber, FileName);
            SyncChainPins(pins);
            break;
        case FirstChoice::None:
            break;
        }

        // The fallbacks, in their fixed order; MP4 and streams are never among them.
        if (!standing) standing = ConnectFallbackChains(pins, usingWM, FileName, CanUseAutoRender);

        if (!standing) return ChainDispatchFailed();

        // A standing chain; a speaker-pair output gets its surround filter before the card.
        clearErr();
        InsertSurroundFilter(SoundCardInPin);
        return true;
    } catch (const AutomationError& e) {
        trapError(e.number(), e.description());
    } catch (const std::exception& e) {
        trapError(platform::hr::Fail, e.what());
    }
    return ChainDispatchFailed();
}

bool PlayerCore::ConnectFallbackChains(ChainPins& pins, bool& usingWM, const std::string& FileName,
                                   bool CanUseAutoRender) {
    RaisePlayerLogInfo("ConnectGraphFilters: ConnectGraphFilters failed: " + LastError_);

    // MP3 again, with the source as it stands (so an MP3 item runs this chain twice).
    RecreateGrabberIfMissing(pins);
    Log("trying ConnectMp3Filters (after fail)...");
    bool standing = TryMp3Chain(pins, usingWM, FileName);

    // Each of the others from a fresh source, which the chain adds itself.
    if (!standing) {
        ForgetSourceForNextChain(pins);
        Log("trying ConnectWaveFilters (after fail)...");
        standing = TryWaveChain(pins, FileName);
    }
    if (!standing) {
        ForgetSourceForNextChain(pins);
        Log("trying ConnectWMAFilters (after fail)...");
        standing = TryWmaChain(pins, FileName);
        if (logging()) Log(PrintFilters(MainGraphMan));
    }
    if (!standing) {
        ForgetSourceForNextChain(pins);
        Log("trying ConnectOggFilters (after fail)...");
        standing = TryOggChain(pins, FileName);
        if (logging()) Log(PrintFilters(MainGraphMan));
    }

    if (logging()) Log(PrintFilters(MainGraphMan));

    // The platform's own rendering, only where the caller allows it.
    if (!standing && CanUseAutoRender) {
        ForgetSourceForNextChain(pins);
        RaiseWriteLog("Getting desperate to render this file, doing automatically...");
        standing = RenderAutomatically(FileName, pins.sgIn, pins.sgOut);
        RaiseWriteLog("RenderAutomatically in ConnectGraphFilters completed...");
    }
    return standing;
}

bool PlayerCore::ChainDispatchFailed() {
    // The reason is added to what the chains already wrote.
    LastError_ = LastError_ + "\r\n" + "ConnectGraphFilters Failed: " + std::to_string(Err.number) + " " +
                 Err.description;
    RaiseWriteLog("ConnectGraphFilters failed, with error " + LastError_);
    clearErr();
    try {
        RemoveSourceFilter();
    } catch (const AutomationError& e) {
        Log("ConnectGraphFilters: " + e.description());
    }
    return false;
}

// ---- Chain pins ------------------------------------------------------------------------------

bool PlayerCore::GatherChainPins(ChainPins& pins) {
    const auto bail = [&](const char* text) {
        Log(text);
        return false;
    };
    platform::PinPtr unused;

    // The source filter, with its item.
    if (!fSourceFilter) raise(kMissingFilter, "ConnectGraphFilters: There is no source filter!");
    if (fSourceFilter->isFileSource() && fSourceFilter->fileName().empty())
        raise(kMissingFilter, "ConnectGraphFilters: The source filter has no filename!");

    // Without the ACM wrapper the chains still try; a wrapper without pins is broken.
    platform::PinPtr acmIn, acmOut;
    if (!fACMWrapper) {
        Log("ConnectGraphFilters: Error: No ACM Wrapper filter, bailing...");
    } else {
        GetPins(acmIn, acmOut, fACMWrapper);
        if (!acmIn || !acmOut) return bail("ConnectGraphFilters: Error: No ACM Wrapper pins, bailing...");
    }

    if (!MainSourcePin) return bail("ConnectGraphFilters: Error: No MainSourcePin, bailing...");
    pins.source = MainSourcePin;
    if (!pins.source) {
        RaiseWriteLog("ConnectGraphFilters: no Source Pin!");
        return false;
    }

    if (!fMpegSplitter) return bail("ConnectGraphFilters: Error: fMpegSplitter, bailing...");
    GetPins(pins.splitterIn, unused, fMpegSplitter);
    if (!pins.splitterIn) return bail("ConnectGraphFilters: Error no MPEG Splitter In Pin!");

    // The MP3 decoder, or the ACM wrapper in its place.
    if (fMpegDecoder) {
        GetPins(pins.decoderIn, pins.decoderOut, fMpegDecoder);
        if (!pins.decoderIn || !pins.decoderOut)
            return bail("ConnectGraphFilters: no MPEG Decoder In Pin Or MPEG Decoder Out Pin (when mp3 decoder exists)!");
    } else {
        pins.decoderIn = acmIn;
        pins.decoderOut = acmOut;
        if (!pins.decoderIn || !pins.decoderOut)
            return bail("ConnectGraphFilters: no MPEG Decoder In Pin Or MPEG Decoder Out Pin (when using ACM)!");
    }

    if (!fSampleGrabber) return bail("ConnectGraphFilters: Error no SampleGrabber Filter!");
    pins.grabber = fSampleGrabber;
    GetPins(pins.sgIn, pins.sgOut, fSampleGrabber);
    if (!pins.sgIn || !pins.sgOut)
        return bail("ConnectGraphFilters: no SampleGrabber In Pin or SampleGrabber Out Pin!");

    if (!fWaveParser) return bail("ConnectGraphFilters: Error no Wave Parser Filter!");
    GetPins(pins.waveParserIn, unused, fWaveParser);
    if (!pins.waveParserIn) return bail("ConnectGraphFilters: no waveParser in pin!");

    pins.renderIn = SoundCardInPin;
    return true;
}

// Before every chain: a chain that lost the sample grabber gets a new one.
void PlayerCore::RecreateGrabberIfMissing(ChainPins& pins) {
    if (fSampleGrabber) return;
    fSampleGrabber = CreateSampleGrabber();
    pins.grabber = fSampleGrabber;
    GetPins(pins.sgIn, pins.sgOut, fSampleGrabber);
}

// Between fallbacks: the source goes, and the next chain adds its own.
void PlayerCore::ForgetSourceForNextChain(ChainPins& pins) {
    RemoveSourceFilter();
    pins.source.reset();
    RecreateGrabberIfMissing(pins);
}

// The chains that hand back what they changed: the player takes it over.
void PlayerCore::SyncChainPins(ChainPins& pins) {
    SoundCardInPin = pins.renderIn;
    SampleGrabberInPin = pins.sgIn;
    SampleGrabberOutPin = pins.sgOut;
    if (fSampleGrabber != pins.grabber) pins.grabber = fSampleGrabber;
}

bool PlayerCore::TryMp3Chain(ChainPins& pins, bool& usingWM, const std::string& FileName) {
    const bool standing = ConnectMp3Filters(pins.source, pins.splitterIn, fMpegSplitter, pins.decoderIn,
                                            pins.decoderOut, pins.sgIn, pins.sgOut, pins.renderIn, pins.grabber,
                                            usingWM, FileName);
    SyncChainPins(pins);
    return standing;
}

bool PlayerCore::TryWaveChain(ChainPins& pins, const std::string& FileName) {
    const bool standing = ConnectWaveFilters(pins.source, pins.waveParserIn, fWaveParser, pins.sgIn, pins.sgOut,
                                             pins.renderIn, pins.grabber, FileName);
    SyncChainPins(pins);
    return standing;
}

bool PlayerCore::TryWmaChain(ChainPins& pins, const std::string& FileName) {
    const bool standing = ConnectWMAFilters(pins.source, pins.sgIn, pins.sgOut, pins.renderIn, FileName);
    SyncChainPins(pins);
    return standing;
}

bool PlayerCore::TryOggChain(ChainPins& pins, const std::string& FileName) {
    const bool standing = ConnectOggFilters(pins.source, pins.sgIn, pins.sgOut, pins.renderIn, FileName);
    SyncChainPins(pins);
    return standing;
}

// ---- RenderAutomatically ---------------------------------------------------------------------

bool PlayerCore::RenderAutomatically(const std::string& FileName, platform::PinPtr& sgIn, platform::PinPtr& sgOut) {
    // Only where the host allows the platform's own choice of filters.
    if (!Process().AutoRenderAllowed) {
        LastError_ += "\r\n" + FileName + " would need to be automatically rendered, but the setting is disabled.";
        RaisePlayerLogInfo(LastError_);
        return false;
    }

    PendingError failure;
    bool grabberRemoved = false;
    try {
        RemoveSourceFilter();
        Log("*****************NOT NICE: USING SYSTEM FILTERS TO RENDER AUTOMATICALLY. AVOID IF YOU CAN*****************************");

        if ((!SoundCardInPin || !fSoundCard) && !AddSoundCard(GetMainSoundcard(), false)) return false;

        // The grabber and the inserts would only be in the platform's way.
        for (const auto& filter : MainGraphMan->filters()) {
            const std::string name = filter->name();
            if (name == filters::kSampleGrabber) {
                MainGraphMan->removeFilter(filter);
                if (!fSampleGrabber) fSampleGrabber = filter;
                grabberRemoved = true;
                sgIn.reset();
                sgOut.reset();
                SampleGrabberInPin.reset();
                SampleGrabberOutPin.reset();
            } else if (name == filters::kPitchShifter) {
                MainGraphMan->removeFilter(filter);
            } else if (name == filters::kAcmWrapper && fChainACMWrapper) {
                MainGraphMan->removeFilter(fChainACMWrapper);
                fChainACMWrapper.reset();
            }
        }

        // A source, with the own reader's preference suspended for one retry if need be.
        if (!MainSourcePin) {
            bool mustUseReader = false;
            bool added = AddSourceFilter(FileName, mustUseReader);
            if (!added && Process().HaldenSourcePrefer) {
                Process().HaldenSourcePrefer = false;
                mustUseReader = false;
                added = AddSourceFilter(FileName, mustUseReader);
                Process().HaldenSourcePrefer = true;
            }
            if (!added || !MainSourcePin) {
                failure = Err;
                return RenderAutomaticallyFailed(failure, grabberRemoved);
            }
        }

        // The platform renders the pin by itself; what it leaves in the graph is reused below.
        if (MainSourcePin && !MainSourcePin->render().ok()) clearErr();

        // Then source to card by intelligent connect.
        DisconnectAllFilters(MainGraphMan);
        if (MainSourcePin && SoundCardInPin) {
            Log("****Render Auto:  trying to connect SourcePin to the SoundCardInPin - crash possible...****");
            trap(MainSourcePin->connect(SoundCardInPin));
            Log("****Render Auto:  finished trying to connect SourcePin to the SoundCardInPin****");
        }

        // The grabber back in, right before the card.
        const platform::Status added = MainGraphMan->addFilter(fSampleGrabber, filters::kSampleGrabber);
        if (!added) {
            failure = PendingError{added.number, added.description};
            Log("Unable to add the SampleGrabber filter back into the graph.");
        } else {
            grabberRemoved = false;
            GetPins(sgIn, sgOut, fSampleGrabber);
            SampleGrabberInPin = sgIn;
            SampleGrabberOutPin = sgOut;
            if (!sgIn || !sgOut) {
                Log("failed to get samplegrabber pins...");
            } else if (SoundCardInPin && fSoundCard && SoundCardInPin->isConnected()) {
                const platform::PinPtr upstream = SoundCardInPin->connectedTo();
                platform::Status step = SoundCardInPin->disconnect();
                if (step) step = sgIn->connectDirect(upstream);
                if (step) step = sgOut->connect(SoundCardInPin);
                if (step) {
                    Log("****RENDER AUTOMATICALLY: SUCCESSFUL - BUT TRY TO AVOID******");
                    std::string path = FileName;
                    raiseEvent([&](PlayerEvents& e) { e.RenderedAutomatically(path); });
                    return true;
                }
                failure = PendingError{step.number, step.description};
                clearErr();
            }
        }
    } catch (const AutomationError& e) {
        failure = PendingError{e.number(), e.description()};
    }
    return RenderAutomaticallyFailed(failure, grabberRemoved);
}

bool PlayerCore::RenderAutomaticallyFailed(const PendingError& failure, bool grabberRemoved) {
    // Never leave the graph without its grabber if that can be helped.
    Log("Errored in RenderAutomatically: " + std::to_string(failure.number) + " " + failure.description);
    if (grabberRemoved && (!fSampleGrabber || !MainGraphMan ||
                           !MainGraphMan->addFilter(fSampleGrabber, filters::kSampleGrabber).ok()))
        Log("SampleGrabber could NOT be added back to graph after RenderAutomatically FAILED!");
    return false;
}

} // namespace corvid
