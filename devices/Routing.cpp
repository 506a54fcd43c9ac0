// The player's output routing: its main and pre-fade-listen (PFL) devices, the speaker pairs of
// multichannel devices, the silent dummy device, and the renderer filters that stand for them
// in the graphs.
//
// A device change is refused while an item is loaded or playing rather than synchronised with
// the running graph; a change that arrives while the player plays is kept as pending and applied
// by the next load (ApplyPendingSoundCards).

#include "devices/Routing.h"

#include "support/ProcessState.h"
#include "devices/clsCards.h"
#include "devices/clsEnumFilters.h"
#include "support/Text.h"

#include <array>
#include <utility>

namespace corvid {

namespace routing {

namespace {
struct SpeakerPair {
    const char* suffix; // exactly six characters, leading blank
    const char* surroundFilter;
};
constexpr std::array<SpeakerPair, 4> kSpeakerPairs = {{{" [1-2]", "Sondrel 1-2"},
                                                       {" [3-4]", "Sondrel 3-4"},
                                                       {" [5-6]", "Sondrel 5-6"},
                                                       {" [7-8]", "Sondrel 7-8"}}};
constexpr std::size_t kSuffixLength = 6;
} // namespace

std::string BaseDeviceName(const std::string& name) {
    const std::string_view tail = text::lastChars(name, kSuffixLength);
    if (tail.size() < kSuffixLength) return name;
    for (const auto& pair : kSpeakerPairs)
        if (text::equalsNoCase(tail, pair.suffix)) return name.substr(0, name.size() - kSuffixLength);
    return name;
}

std::string SurroundFilterFor(const std::string& rendererName) {
    const std::string_view tail = text::lastChars(rendererName, kSuffixLength);
    for (const auto& pair : kSpeakerPairs)
        if (text::equalsNoCase(tail, pair.suffix)) return pair.surroundFilter;
    return {};
}

bool IsDefaultDevice(const std::string& name) { return text::equalsNoCase(name, kDefaultDevice); }

} // namespace routing

using routing::kDefaultDevice;
using routing::kDummyDevice;

namespace {
constexpr const char* kCantChange = "Cant Change cards while playing!";
constexpr const char* kNextCut = "This will be implemented for the next cut that loads!";
constexpr const char* kNotValidDevice = " would NOT appear to be a valid DirectSound device!";
constexpr int32_t kNullRenderFailed = 963;
} // namespace

// ---- The catalogue and its events ----------------------------------------------------------

CardsEvents DeviceRouting::CardsEventsForThisPlayer() {
    CardsEvents sink;
    sink.GotFiltersWeNeed = [this](FilterCatalogue& found, NameCollection& weNeed) {
        OnCardsGotFiltersWeNeed(found, weNeed);
    };
    sink.StartedCounting = [this](int32_t& count) {
        events_.raiseEvent([&](PlayerEvents& e) { e.StartedCountingFilters(count); });
    };
    sink.Counting = [this](int32_t index) {
        events_.raiseEvent([&](PlayerEvents& e) { e.CountingFilters(index); });
    };
    sink.FinishedCountingFilters = [this] {
        events_.raiseEvent([](PlayerEvents& e) { e.FinishedCountingFilters(); });
    };
    return sink;
}

void DeviceRouting::OnCardsGotFiltersWeNeed(FilterCatalogue& /*found*/, NameCollection& weNeed) {
    // Kept alive across the event: the host may replace the list from inside.
    const std::shared_ptr<NameCollection> names = std::make_shared<NameCollection>(weNeed);
    FilterNamesWeNeed_ = names;
    events_.raiseEvent([&](PlayerEvents& e) { e.GotTheFiltersWeNeed(*names); });
}

clsCards& DeviceRouting::Cards() {
    PlayerProcessState& process = *g_.process;
    if (!process.cards) {
        // Stored before the detection runs, so that a host re-entering from a progress event
        // finds the catalogue instead of starting a second detection.
        process.cards = std::make_shared<clsCards>(platform_);
        const CardsEvents sink = CardsEventsForThisPlayer();
        process.cards->GetSoundcards(&sink);
    }
    return *process.cards;
}

const FilterCatalogue& DeviceRouting::colDShowFilters() { return Cards().Filters(); }

// ---- Device lists ----------------------------------------------------------------------------

SoundCardCollection DeviceRouting::QuerySoundCards(bool ForceEnum) {
    try {
        if (ForceEnum || !soundCards_) {
            // A catalogue made just now has detected already: its cards are fresh.
            const bool fresh = !g_.process->cards;
            clsCards& cards = Cards();
            const CardsEvents sink = CardsEventsForThisPlayer();
            soundCards_ = std::make_unique<SoundCardCollection>(fresh ? cards.SoundCards()
                                                                      : cards.GetSoundcards(&sink));
        }
        return *soundCards_;
    } catch (const std::exception& e) {
        events_.Log(std::string("QuerySoundCards: ") + e.what());
        return soundCards_ ? *soundCards_ : SoundCardCollection{};
    }
}

void DeviceRouting::putref_SetSoundCardCollection(const SoundCardCollection& value) {
    soundCards_ = std::make_unique<SoundCardCollection>(value);
}

SoundCardCollection DeviceRouting::EnumRenders(bool ForceRefresh) {
    try {
        if (ForceRefresh || !renderEnum_) {
            platform_.catalogue().refresh();
            const bool fresh = !g_.process->cards;
            clsCards& cards = Cards();
            const CardsEvents sink = CardsEventsForThisPlayer();
            if (!fresh) cards.GetSoundcards(&sink);
        }
        // Multichannel devices appear once per speaker pair; the first entry of a name wins.
        std::vector<platform::CatalogueEntryPtr> entries;
        g_.trap(platform_.catalogue().enumerateRenderersWithPairs(entries));
        auto renders = std::make_unique<SoundCardCollection>();
        for (const auto& entry : entries) {
            if (!entry) continue;
            clsDShowRender render(entry);
            renders->Add(render.Name(), render);
        }
        renderEnum_ = std::move(renders);
        return *renderEnum_;
    } catch (const std::exception& e) {
        events_.Log(std::string("EnumRenders: ") + e.what());
        return renderEnum_ ? *renderEnum_ : SoundCardCollection{};
    }
}

std::optional<clsDShowRender> DeviceRouting::FindDevice(const std::string& name) {
    if (!soundCards_) QuerySoundCards(false);
    const bool speakerPair = routing::BaseDeviceName(name) != name;
    if (speakerPair) {
        const SoundCardCollection renders = EnumRenders(false);
        if (const clsDShowRender* found = renders.find(name)) return *found;
        return std::nullopt;
    }
    if (soundCards_)
        if (const clsDShowRender* found = soundCards_->find(name)) return *found;
    return std::nullopt;
}

bool DeviceRouting::DeviceExists(const std::string& name) { return FindDevice(name).has_value(); }

std::string DeviceRouting::ListedName(const std::string& name) {
    if (routing::IsDefaultDevice(name) || DeviceExists(name) || !soundCards_) return name;
    const std::string base = routing::BaseDeviceName(name);
    if (base.empty()) return name;
    for (const auto& card : *soundCards_)
        if (card.value.entry() && sameKey(card.value.entry()->alias(), base))
            return card.key + name.substr(base.size());
    return name;
}

bool DeviceRouting::DefaultSoundDeviceExists() {
    try {
        if (!soundCards_ || soundCards_->empty()) {
            clsEnumFilters enummer(platform_);
            SoundCardCollection cards;
            if (auto renderers = enummer.EnumFilters(5))
                for (const auto& entry : *renderers) cards.Add(entry.key, clsDShowRender(entry.value));
            putref_SetSoundCardCollection(cards);
        }
        const clsDShowRender* device = soundCards_->find(kDefaultDevice);
        if (!device || !device->entry()) return false;
        // A renderer is made in a scratch graph: the device must answer, not only be listed.
        platform::GraphPtr scratch;
        if (!platform_.createGraph(scratch).ok() || !scratch) return false;
        platform::FilterPtr renderer;
        return device->entry()->createIn(*scratch, renderer).ok() && renderer;
    } catch (const std::exception& e) {
        events_.Log(std::string("DefaultSoundDeviceExists: ") + e.what());
        return false;
    }
}

// ---- Main output -----------------------------------------------------------------------------

bool DeviceRouting::SetSoundcard(std::string& NewSoundCardName) {
    try {
        // Not while an item is loaded or playing. True all the same: the host counts the call
        // as handled.
        if (transport_.get_Playstate() == MpPlaying || !g_.currentItem_.empty()) {
            platform_.operatorServices().messageBox(kCantChange, g_.ThisCartName_, platform::MessageIcon::None);
            return true;
        }
        // An empty name is the default device, and the caller sees so.
        if (NewSoundCardName.empty()) NewSoundCardName = kDefaultDevice;
        NewSoundCardName = ListedName(NewSoundCardName);
        return RouteMainOutput(NewSoundCardName);
    } catch (const std::exception& e) {
        events_.Log(std::string("SetSoundcard: ") + e.what());
        return false;
    }
}

bool DeviceRouting::RouteMainOutput(const std::string& name) {
    const bool isDefault = routing::IsDefaultDevice(name);

    // Already there?
    if (g_.fSoundCard) {
        if (text::equalsNoCase(g_.fSoundCard->name(), name) && g_.SurroundRenderName_.empty()) return true;
    } else if (isDefault) {
        g_.SurroundRenderName_.clear();
        mainCardName_ = name;
        return true;
    }

    // An unknown device is remembered all the same, for a later load.
    bool result = false;
    if (!isDefault && !DeviceExists(name)) {
        mainCardName_ = name;
        return false;
    }

    // The default device.
    if (isDefault) {
        result = true;
        mainCardName_ = name;
        g_.SoundCardInPin.reset();
        g_.SurroundRenderName_.clear();
    }

    // Playing now (a host that started playback from one of our events): next item.
    if (transport_.get_Playstate() == MpPlaying) {
        pendingMainCard_ = name;
        platform_.operatorServices().messageBox(std::string(kNextCut) + "\r\n" + "----Main Graph Manager----",
                                                g_.ThisCartName_ + " is currently playing",
                                                platform::MessageIcon::None);
        return result;
    }

    // Default device: the next load builds a graph around the default renderer.
    if (isDefault) {
        session_.DestroyGraph(false);
        return result;
    }

    // Another device: its renderer goes into the graph now.
    if (!DeviceExists(name)) {
        platform_.operatorServices().messageBox(name + kNotValidDevice, "Orvo DirectX Player",
                                                platform::MessageIcon::None);
        return false;
    }
    result = AddSoundCard(name, false);
    if (routing::BaseDeviceName(name) != name) {
        // A speaker pair: a new graph is stocked with the pair's surround filter, and the
        // renderer goes in again there.
        g_.SurroundRenderName_ = name;
        session_.CreateNewGraph(false);
        result = AddSoundCard(GetMainSoundcard(), false);
    } else {
        g_.SurroundRenderName_.clear();
    }
    return result;
}

std::string DeviceRouting::GetMainSoundcard() {
    std::string result = g_.SurroundRenderName_.empty() ? mainCardName_ : g_.SurroundRenderName_;
    // An empty main card name always reads as the default, whatever else is set.
    if (mainCardName_.empty()) result = kDefaultDevice;
    return result;
}

// ---- PFL output ------------------------------------------------------------------------------

bool DeviceRouting::SetPFLSoundcard(std::string& NewPFLCard) {
    try {
        // Paused counts as busy here too.
        if (transport_.get_Playstate() != mpstopped) {
            platform_.operatorServices().messageBox(kCantChange, g_.ThisCartName_, platform::MessageIcon::None);
            return true;
        }
        if (NewPFLCard.empty()) NewPFLCard = kDefaultDevice;
        NewPFLCard = ListedName(NewPFLCard);
        return RoutePflOutput(NewPFLCard);
    } catch (const std::exception& e) {
        events_.Log(std::string("SetPFLSoundcard: ") + e.what());
        return false;
    }
}

bool DeviceRouting::RoutePflOutput(const std::string& name) {
    const bool isDefault = routing::IsDefaultDevice(name);

    // Already there?
    if (g_.fPFLSoundCard && text::equalsNoCase(g_.fPFLSoundCard->name(), name)) return true;
    if (!g_.fPFLSoundCard && isDefault) return true;

    // The PFL device follows a main device.
    if (g_.fSoundCard) {
        if (isDefault) {
            pflCardName_ = name;
            RaiseIsPFLButtonRequired(false);
            return true;
        }
        if (transport_.get_Playstate() == MpPlaying) {
            pendingPflCard_ = name;
            platform_.operatorServices().messageBox(std::string(kNextCut) + "\r\n" + "----PFL Graph Manager----",
                                                    g_.ThisCartName_ + " is currently playing",
                                                    platform::MessageIcon::None);
        }
        if (!DeviceExists(name)) return false;
        AddSoundCard(name, true);
        pflCardName_ = name;
        return true;
    }

    // No main device yet.
    platform_.operatorServices().messageBox(
        "You Must Set a specific playback device for this player before setting the PFL device!",
        "Set the Main output device first! - " + g_.ThisCartName_, platform::MessageIcon::Exclamation);
    return true;
}

std::string DeviceRouting::GetPFLSoundcard() { return pflCardName_.empty() ? kDefaultDevice : pflCardName_; }

bool DeviceRouting::PFLButtonRequired() const {
    return g_.fPFLSoundCard && !pflCardName_.empty() && !routing::IsDefaultDevice(pflCardName_);
}

void DeviceRouting::RaiseIsPFLButtonRequired(bool required) {
    events_.raiseEvent([&](PlayerEvents& e) { e.IsPFLButtonRequired(required); });
}

// ---- Dummy output ----------------------------------------------------------------------------

void DeviceRouting::SoundCardNullSet() {
    // The dummy device is not remembered as the main device: SoundCardRouterSet returns to it.
    if (!AddSoundCard(kDummyDevice, false, false))
        raise(kNullRenderFailed, "SoundCardRouterSet: Unexpected: Should ALWAYS be able to render to NULL (Dummy)!");
}

void DeviceRouting::SoundCardRouterSet() {
    try {
        AddSoundCard(GetMainSoundcard(), false);
    } catch (const std::exception& e) {
        events_.Log(std::string("SoundCardRouterSet: ") + e.what());
    }
}

// ---- Pending devices -------------------------------------------------------------------------

void DeviceRouting::ApplyPendingSoundCards() {
    try {
        if (!pendingMainCard_.empty()) {
            const std::string name = std::exchange(pendingMainCard_, std::string());
            events_.Log("Applying the main output device asked for while playing: " + name);
            if (!RouteMainOutput(name)) events_.Log("WARNING: PLAYER CANNOT ADD SOUND CARD: " + name);
        }
        if (!pendingPflCard_.empty()) {
            const std::string name = std::exchange(pendingPflCard_, std::string());
            const bool inPlace = g_.fPFLSoundCard && text::equalsNoCase(g_.fPFLSoundCard->name(), name) &&
                                 text::equalsNoCase(pflCardName_, name);
            if (!inPlace) {
                events_.Log("Applying the PFL output device asked for while playing: " + name);
                RoutePflOutput(name);
            }
        }
    } catch (const std::exception& e) {
        events_.Log(std::string("ApplyPendingSoundCards: ") + e.what());
    }
}

// ---- The renderer in the graph ---------------------------------------------------------------

namespace {
// The renderer's input: the first pin whose name holds "in", else one that holds "input".
platform::PinPtr rendererInputPin(const platform::FilterPtr& renderer) {
    const auto pins = renderer->pins();
    for (const char* part : {"in", "input"})
        for (const auto& pin : pins)
            if (pin && text::containsNoCase(pin->name(), part)) return pin;
    return nullptr;
}
} // namespace

bool DeviceRouting::AddSoundCard(const std::string& name, bool forPFL, bool remember) {
    // The default device under any of its spellings.
    const std::string device =
        name.empty() || text::containsNoCase(name, kDefaultDevice) ? std::string(kDefaultDevice) : name;
    const auto cannotAdd = [&] {
        events_.Log("WARNING: PLAYER CANNOT ADD SOUND CARD: " + name);
        return false;
    };
    try {
        // The device's renderer, made in the graph it is for (made first if need be).
        const std::optional<clsDShowRender> found = FindDevice(device);
        if (!found || !found->entry()) return cannotAdd();
        if (!(forPFL ? g_.PFLGraphMan : g_.MainGraphMan)) session_.CreateNewGraph(forPFL);
        // Held for the whole change: the host may replace the player's graph from inside an event.
        const platform::GraphPtr graph = forPFL ? g_.PFLGraphMan : g_.MainGraphMan;
        if (!graph) return cannotAdd();

        platform::FilterPtr renderer;
        if (!g_.trap(found->entry()->createIn(*graph, renderer)) || !renderer) return cannotAdd();
        const platform::PinPtr inPin = rendererInputPin(renderer);
        if (!inPin) {
            graph->removeFilter(renderer);
            return cannotAdd();
        }

        // The new renderer takes the old one's place, and its feed when it had one.
        platform::FilterPtr& current = forPFL ? g_.fPFLSoundCard : g_.fSoundCard;
        platform::PinPtr feed;
        if (current) {
            const platform::PinPtr oldIn = forPFL ? rendererInputPin(current) : g_.SoundCardInPin;
            if (oldIn) feed = oldIn->connectedTo();
            graph->removeFilter(current);
        }
        if (feed && !feed->connectDirect(inPin).ok()) g_.trap(feed->connect(inPin));

        // Keep it.
        current = renderer;
        if (!forPFL) {
            g_.SoundCardInPin = inPin;
            if (remember) mainCardName_ = device;
        } else {
            RaiseIsPFLButtonRequired(!routing::IsDefaultDevice(device));
        }
        return true;
    } catch (const std::exception&) {
        return cannotAdd();
    }
}

} // namespace corvid
