#pragma once
// The simulated media graph: filters made from descriptors, pins that join only when their
// media types agree, and a graph whose position moves on the virtual clock. Tests may cast
// the platform's graph, filter and pin pointers to these classes to look inside.
//
// Threads: control thread only, like the interfaces they implement.

#include "platform/ConnectSearch.h"
#include "platform/GraphHelper.h"
#include "platform/MediaGraph.h"
#include "platform/sim/SimTypes.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace corvid::sim {

namespace detail {
class World;
struct Registration;
} // namespace detail

class SimFilter;
class SimGraph;

class SimPin : public platform::Pin, public std::enable_shared_from_this<SimPin> {
public:
    SimPin(const std::shared_ptr<SimFilter>& owner, const PinSpec& desc);

    std::string name() const override { return spec_.name; }
    PinDirection direction() const override { return spec_.direction; }
    std::shared_ptr<platform::Filter> filter() const override;
    platform::PinPtr connectedTo() const override;
    Status connectDirect(const platform::PinPtr& other) override;
    Status connect(const platform::PinPtr& other) override;
    Status disconnect() override;
    Status render() override;

    // The type this pin carries now: an output's produced type, an input's connected type;
    // empty when it has none.
    std::string mediaType() const;
    const PinSpec& desc() const { return spec_; }
    // False once the pin has disappeared from its filter (its input was disconnected); a
    // pin that appears again is a new object.
    bool present() const { return present_; }
    std::shared_ptr<SimFilter> simFilter() const { return owner_.lock(); }
    std::shared_ptr<SimPin> peer() const { return peer_.lock(); }

private:
    friend class SimFilter;
    friend class SimGraph;
    std::weak_ptr<SimFilter> owner_;
    PinSpec spec_;
    std::weak_ptr<SimPin> peer_;
    bool present_ = true;
};

class SimFilter : public platform::Filter,
                  public std::enable_shared_from_this<SimFilter>,
                  private platform::PitchShifterControl,
                  private platform::PipeSenderControl,
                  private platform::StreamSourceControl {
public:
    using OpenState = platform::StreamSourceControl::OpenState;

    SimFilter(std::shared_ptr<detail::World> world, std::shared_ptr<detail::Registration> reg,
              std::string name);
    // Makes the filter's pins; called once by the factory after construction.
    void init();

    std::string name() const override { return name_; }
    std::vector<platform::PinPtr> pins() override;
    bool isFileSource() const override;
    Status setFileName(const std::string& fileName) override;
    std::string fileName() const override { return item_; }
    bool hasPropertyPage() const override;
    Status showPropertyPage(int32_t ownerWindow) override;
    platform::PitchShifterControl* pitchShifter() override;
    platform::PipeSenderControl* pipeSender() override;
    platform::StreamSourceControl* streamSource() override;

    // Simulation surface.
    const FilterSpec& desc() const;
    std::shared_ptr<SimGraph> graph() const { return graph_.lock(); }
    // Sources: whether a file is loaded or the stream is open, and what it holds.
    bool loaded() const;
    const std::string& loadedType() const { return loadedType_; }
    double loadedDuration() const { return loadedDuration_; }
    const std::vector<LevelPoint>& loadedLevels() const { return loadedLevels_; }
    // Renderers: the record of the device this renderer stands for.
    RenderLog* renderLog();
    int propertyPagesShown() const { return propertyPagesShown_; }
    std::shared_ptr<SimPin> pinNamed(const std::string& name) const;
    std::shared_ptr<SimPin> firstInput() const;

    // Stream sources: the callbacks a test fires, delivered at once to the registered
    // receiver; false when none is registered.
    bool fireStreamBuffering(int32_t percent);
    bool fireMetaChange(const std::string& artistTitle, const std::string& url,
                        const std::string& fullMeta);
    bool fireOdStreamSeg(double seg);
    platform::ShoutcastCallback* registeredCallback() const { return callback_; }

    // Pitch shifter and pipe sender state as last set.
    double pitchRate() const { return pitchRate_; }
    bool pitchPassThrough() const { return passThrough_; }
    bool pipeMuted() const { return pipeMute_; }

    // The type that arrives at this filter: a source's file or stream type, otherwise the
    // type of its first connected input; empty when nothing arrives.
    std::string arrivingType() const;

private:
    friend class SimPin;
    friend class SimGraph;
    friend class detail::World;

    // Makes appearing output pins appear or vanish to match the filter's state.
    void refreshPins();
    void load(const std::string& item, const std::string& type, double duration,
              const std::vector<LevelPoint>& levels);
    void streamDue(); // the virtual clock reached the end of the opening time

    // PitchShifterControl
    Status setRate(double rate) override;
    double rate() const override { return pitchRate_; }
    Status setPitchSemitones(double semitones) override;
    double pitchSemitones() const override { return semitones_; }
    Status setPassThrough(bool passThrough) override;
    bool passThrough() const override { return passThrough_; }
    // PipeSenderControl
    Status setDownstreamMute(bool mute) override;
    bool downstreamMute() const override { return pipeMute_; }
    std::string pipePath() const override;
    // StreamSourceControl
    void registerCallback(platform::ShoutcastCallback* callback) override { callback_ = callback; }
    Status open(const std::string& address) override;
    OpenState openState() const override { return openState_; }
    Status openFailure() const override { return openFailure_; }
    bool failureIsFinal() const override {
        return openState_ == OpenState::Failed && (stream_.finalFailure || openFailure_.number == platform::hr::Abort);
    }
    bool canCancel() const override { return openState_ == OpenState::Opening; }
    Status cancel() override;
    void waitForChange(int32_t timeoutMs) override;

    std::shared_ptr<detail::World> world_;
    std::shared_ptr<detail::Registration> reg_;
    std::string name_;
    std::weak_ptr<SimGraph> graph_;
    // One slot per pin of the descriptor; an absent appearing pin is empty.
    std::vector<std::shared_ptr<SimPin>> pins_;

    std::string item_;
    std::string loadedType_;
    double loadedDuration_ = 0;
    std::vector<LevelPoint> loadedLevels_;
    bool loaded_ = false;

    double pitchRate_ = 1.0;
    double semitones_ = 0;
    bool passThrough_ = false;
    bool pipeMute_ = false;
    int propertyPagesShown_ = 0;

    platform::ShoutcastCallback* callback_ = nullptr;
    OpenState openState_ = OpenState::Idle;
    Status openFailure_;
    int64_t openDueAt_ = 0;
    SimStream stream_;
};

class SimGraph : public platform::Graph,
                 private platform::ConnectSpace,
                 public std::enable_shared_from_this<SimGraph> {
public:
    SimGraph(std::shared_ptr<detail::World> world, int id);

    Status run() override;
    Status pause() override;
    Status stop() override;
    platform::GraphState state() const override { return state_; }
    Status addSourceFilter(const std::string& fileName, platform::FilterPtr& source) override;
    std::vector<platform::FilterPtr> filters() override;
    Status addFilter(const platform::FilterPtr& filter, const std::string& name) override;
    Status removeFilter(const platform::FilterPtr& filter) override;
    Status duration(double& seconds) override;
    Status currentPosition(double& seconds) override;
    Status setCurrentPosition(double seconds) override;
    Status rate(double& rate) override;
    Status setRate(double rate) override;
    Status volume(int32_t& hundredthsDb) override;
    Status setVolume(int32_t hundredthsDb) override;
    void setEventHandler(std::function<void(platform::GraphEvent)> handler) override;

    // Simulation surface.
    int id() const { return id_; }
    // The item a renderer of this graph hears, else the first loaded source's; or empty.
    std::string item() const;
    // Whether a chain from a loaded source reaches a renderer.
    bool playable() const;
    double position() const { return position_; }
    std::shared_ptr<SimFilter> filterNamed(const std::string& name) const;
    // The filters in the graph in order, with their connections, one line per filter:
    // "Wave Parser: input pin <- File Source (Async.), output -> Halden Sample Grabber".
    std::string describe() const;
    // Posts an event of the graph's own to the event loop, as the native graph does.
    void postEvent(platform::GraphEvent event);

    // Intelligent connect from an output pin to an input pin, by the platform's one search;
    // the candidates are the transforms whose descriptors say they take what arrives.
    Status connectIntelligently(const std::shared_ptr<SimPin>& out,
                                const std::shared_ptr<SimPin>& in);
    Status renderPin(const std::shared_ptr<SimPin>& out);

private:
    friend class detail::World;
    friend class SimFilter;
    friend class SimPin;
    friend Status createFilterIn(SimGraph&, const std::shared_ptr<detail::Registration>&,
                                 const std::string&, std::shared_ptr<SimFilter>&);

    Status checkPair(const std::shared_ptr<SimPin>& out, const std::shared_ptr<SimPin>& in) const;
    Status join(const std::shared_ptr<SimPin>& out, const std::shared_ptr<SimPin>& in);
    static void unlink(const std::shared_ptr<SimPin>& pin);
    // Takes a filter out without asking the faults: undoing the graph's own work.
    void detach(const std::shared_ptr<SimFilter>& f);

    // ConnectSpace
    std::vector<platform::ConnectCandidate> candidates(const platform::PinPtr& out,
                                                       const platform::PinPtr& in) override;
    Status joinDirect(const platform::PinPtr& out, const platform::PinPtr& in) override;
    void part(const platform::PinPtr& in) override;
    Status place(const platform::ConnectCandidate& candidate, platform::FilterPtr& placed) override;
    void withdraw(const platform::FilterPtr& placed) override;

    void checkEnd();

    struct Route {
        std::shared_ptr<SimFilter> renderer;
        std::shared_ptr<SimFilter> source;
        double rateFactor = 1.0;
        bool muted = false;
        std::string speakerPair;
    };
    std::vector<Route> routes() const;
    void record(RendererEvent::Kind kind, double seconds, int32_t volume = 0);
    double effectiveRate() const;
    // Virtual milliseconds until the position reaches the end, or -1 when it never will.
    int64_t msToEnd() const;
    void advance(int64_t ms);
    double sourceDuration() const;
    Status addInstance(const std::shared_ptr<detail::Registration>& reg, const std::string& name,
                       std::shared_ptr<SimFilter>& made);

    std::shared_ptr<detail::World> world_;
    int id_ = 0;
    std::vector<std::shared_ptr<SimFilter>> filters_;
    platform::GraphState state_ = platform::GraphState::Stopped;
    double position_ = 0;
    double rate_ = 1.0;
    int32_t volume_ = 0;
    bool endPosted_ = false;
    std::function<void(platform::GraphEvent)> handler_;
};

// Makes a filter of a registration and adds it to `graph` under `name`.
Status createFilterIn(SimGraph& graph, const std::shared_ptr<detail::Registration>& reg,
                      const std::string& name, std::shared_ptr<SimFilter>& made);

} // namespace corvid::sim
