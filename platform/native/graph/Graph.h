#pragma once
// The native media graph. Filters own pins; pins are joined after their media types agree
// (a parser reads its stream header when its input connects). Sources are pulled: a parser
// reads its byte stream itself. Everything downstream is pushed: each stream head (a parser
// or a decoding source) gets a streaming thread that delivers buffers through the transforms
// to the renderers, whose device callbacks drain lock-free ring buffers.
//
// Threads: filters, pins and the graph are driven from the control thread. Topology never
// changes while data flows: a connect, disconnect or removal on an active graph stops it
// first. The streaming threads only call the streaming members (receive, endOfStream, flush,
// produce) and post the graph's events to the event loop.

#include "platform/ConnectSearch.h"
#include "platform/MediaGraph.h"
#include "platform/Services.h"
#include "platform/native/graph/MediaType.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace corvid::native {

using platform::Status;
namespace hr = platform::hr;

class NativeFilter;
class NativeGraph;
class AudioRenderer;

class NativePin final : public platform::Pin, public std::enable_shared_from_this<NativePin> {
public:
    NativePin(NativeFilter& owner, std::string name, platform::PinDirection direction);

    std::string name() const override { return name_; }
    platform::PinDirection direction() const override { return direction_; }
    std::shared_ptr<platform::Filter> filter() const override;
    std::shared_ptr<platform::Pin> connectedTo() const override { return peer_.lock(); }
    Status connectDirect(const std::shared_ptr<platform::Pin>& other) override;
    Status connect(const std::shared_ptr<platform::Pin>& other) override;
    Status disconnect() override;
    Status render() override;

    NativeFilter* owner() const { return owner_; }
    std::shared_ptr<NativePin> peer() const { return peer_.lock(); }
    const MediaType& mediaType() const { return type_; }
    bool isInput() const { return direction_ == platform::PinDirection::Input; }

    // Stream thread: hands a buffer to the connected input (dropped when unconnected).
    void deliver(Buffer& buffer);
    void deliverEndOfStream(uint64_t generation);
    void deliverFlush(double newPosition);

private:
    Status pairWith(const std::shared_ptr<platform::Pin>& other, NativeGraph*& graph, NativePin*& out,
                    NativePin*& in);
    friend class NativeGraph;
    friend class NativeFilter;
    NativeFilter* owner_; // the owner outlives its pins' use: it disconnects them when it goes
    std::string name_;
    platform::PinDirection direction_;
    std::weak_ptr<NativePin> peer_;
    MediaType type_;
};

using NativePinPtr = std::shared_ptr<NativePin>;

// A buffer producer's answer to one call of produce().
enum class Produced { Data, End };

class NativeFilter : public platform::Filter, public std::enable_shared_from_this<NativeFilter> {
public:
    explicit NativeFilter(std::string defaultName);
    ~NativeFilter() override;

    std::string name() const override { return name_; }
    std::vector<platform::PinPtr> pins() override;

    NativeGraph* graph() const { return graph_; }
    const std::vector<NativePinPtr>& nativePins() const { return pins_; }

    // --- negotiation (control thread) ---
    // The types an output pin offers to `to` (when known), most preferred first. Empty: it
    // cannot connect now.
    virtual std::vector<MediaType> outputTypes(NativePin& /*out*/, NativePin* /*to*/) { return {}; }
    // Whether an input pin takes `type`; a parser reads the stream header here.
    virtual Status acceptInput(NativePin& /*in*/, const MediaType& /*type*/) {
        return Status::failure(hr::TypeNotAccepted, name_ + " takes no input.");
    }
    virtual void inputConnected(NativePin& /*in*/) {}
    virtual void inputDisconnected(NativePin& /*in*/) {}
    virtual void outputConnected(NativePin& /*out*/) {}
    virtual void outputDisconnected(NativePin& /*out*/) {}
    // Channels a renderer would like to receive (0: no preference).
    virtual int preferredChannels() const { return 0; }

    // --- streaming ---
    // Control thread, before data flows / after it stopped.
    virtual Status activate() { return Status::success(); }
    virtual void deactivate() {}
    // Stream thread.
    virtual void receive(NativePin& /*in*/, Buffer& /*buffer*/) {}
    virtual void endOfStream(NativePin& in, uint64_t generation);
    virtual void flush(NativePin& in, double newPosition);

    // Stream heads (parsers with a connected input, decoding sources with a file).
    virtual bool isStreamHead() const { return false; }
    virtual Produced produce(uint64_t /*generation*/) { return Produced::End; }
    virtual Status seekTo(double /*seconds*/) { return Status::success(); }
    virtual double durationSeconds() const { return 0; }

    virtual AudioRenderer* asRenderer() { return nullptr; }
    // Control thread, while the streaming threads are being stopped: a producer that may wait
    // for outside data (the network) gives up waiting.
    virtual void unblock() {}

protected:
    NativePinPtr addPin(const std::string& name, platform::PinDirection direction);
    // Drops an output pin (a parser's, when its input goes); its connection is broken first.
    void removePin(const NativePinPtr& pin);
    // Sends to every connected output pin.
    void deliverAll(Buffer& buffer);
    NativePinPtr firstInput() const;
    NativePinPtr firstOutput() const;

private:
    friend class NativeGraph;
    std::string name_;
    NativeGraph* graph_ = nullptr;
    std::vector<NativePinPtr> pins_;
};

using NativeFilterPtr = std::shared_ptr<NativeFilter>;

// What a graph needs from the platform: the event loop and the renderer that Render picks.
struct GraphContext {
    std::shared_ptr<platform::EventLoop> loop;
    std::function<NativeFilterPtr()> makeDefaultRenderer;
    // Control thread: tells the operator (the log) what went wrong in the graph's threads.
    std::function<void(const std::string&)> report;
};

class NativeGraph final : public platform::Graph,
                          private platform::ConnectSpace,
                          public std::enable_shared_from_this<NativeGraph> {
public:
    explicit NativeGraph(GraphContext context);
    ~NativeGraph() override;

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

    // Control thread: told of every change between stopped, paused and running (the helper
    // ticks only while its graph runs). Returns an id.
    int addStateObserver(std::function<void(platform::GraphState)> observer);
    void removeStateObserver(int id);

    // Further receivers of the graph's events (the helper); control thread. Returns an id.
    int addObserver(std::function<void(platform::GraphEvent)> observer);
    void removeObserver(int id);

    // Any thread: the generation that live data carries.
    uint64_t generation() const { return generation_.load(std::memory_order_acquire); }
    // Stream thread: a renderer has played out its end of stream (or a head failed).
    void postRendererEnd(AudioRenderer* renderer, uint64_t generation);
    // Stream thread: the item cannot go on; `why` goes to the operator and the graph raises
    // ErrorAbort (unless it has moved on meanwhile).
    void postError(uint64_t generation, const std::string& why);
    // Any thread: a note for the operator (an underrun the server reported).
    void postReport(const std::string& note);
    // Any thread: a renderer's device went away.
    void postDeviceLost();

    // Pin operations, reached through NativePin.
    Status connectDirect(NativePin& out, NativePin& in);
    // Intelligent connect, by the platform's one search over this graph's candidates.
    Status connectIntelligent(NativePin& out, NativePin& in);
    Status disconnectPin(NativePin& pin);
    // After `filter`'s input changed type, joins each of its connected outputs again with the
    // type it offers now, so that no link downstream keeps a type that no longer flows.
    Status renegotiateOutputs(NativeFilter& filter);
    Status renderPin(NativePin& out);

    // Control thread.
    const std::vector<NativeFilterPtr>& nativeFilters() const { return filters_; }
    // Control thread: changes whenever a filter joins or leaves, so that what is looked up
    // among the filters can be kept until then.
    uint64_t filtersVersion() const { return filtersVersion_; }
    const std::shared_ptr<platform::EventLoop>& loop() const { return context_.loop; }

private:
    // One stream head's streaming thread and what the control thread asks of it. The thread
    // lives only while the head has audio to move: it ends once its stream has ended (and been
    // heard), and, while the graph is paused, once a renderer's ring is full; a seek, a resume
    // or a stop starts or joins it again.
    struct HeadRunner {
        NativeFilter* filter = nullptr;
        std::thread thread;
        std::mutex mutex; // guards the requests and `running`
        std::optional<double> seek;
        bool stop = false;
        bool park = false;    // paused: end once a renderer holds what does not fit
        bool running = false; // the thread has not yet decided to end
        // The head's thread (one at a time, so no guard): where its stream stands.
        bool ended = false;
        uint64_t generation = 0;
    };

    Status startStreaming(platform::GraphState target);
    void stopStreaming();
    // Before a topology change: data must not flow while pins change.
    void quiesce();
    // Into Running or Paused, starting the streaming when stopped.
    Status enter(platform::GraphState target);
    void headLoop(HeadRunner& runner);
    // Control thread: the head's thread takes up what was just asked of it, or a new one starts.
    void startHead(HeadRunner& runner);
    // Stream thread, under the runner's mutex: whether the head has nothing to do now.
    bool headIdle(const HeadRunner& runner) const;
    // Every stream head seeks to `seconds` on its own thread.
    void seekStreaming(double seconds);
    void parkStreaming(bool park);
    std::vector<AudioRenderer*> activeRenderers() const;
    void raise(platform::GraphEvent event);
    std::string uniqueName(const std::string& name) const;

    // ConnectSpace: free filters standing in the graph, then registered transforms whose
    // input takes the kind of media the pin offers, highest merit first.
    std::vector<platform::ConnectCandidate> candidates(const platform::PinPtr& out,
                                                       const platform::PinPtr& in) override;
    Status joinDirect(const platform::PinPtr& out, const platform::PinPtr& in) override;
    void part(const platform::PinPtr& in) override;
    Status place(const platform::ConnectCandidate& candidate, platform::FilterPtr& placed) override;
    void withdraw(const platform::FilterPtr& placed) override;

    GraphContext context_;
    platform::GraphState state_ = platform::GraphState::Stopped;
    std::vector<NativeFilterPtr> filters_;
    uint64_t filtersVersion_ = 0;
    std::atomic<uint64_t> generation_{1};
    std::vector<std::unique_ptr<HeadRunner>> runners_;
    std::vector<AudioRenderer*> streamRenderers_; // while streaming, for the streaming threads
    double stoppedPosition_ = 0;
    double rate_ = 1.0;
    int32_t volume_ = 0;
    bool endRaised_ = false;
    std::set<AudioRenderer*> endedRenderers_;
    std::function<void(platform::GraphEvent)> handler_;
    std::vector<std::pair<int, std::function<void(platform::GraphEvent)>>> observers_;
    std::vector<std::pair<int, std::function<void(platform::GraphState)>>> stateObservers_;
    int nextObserver_ = 1;
    // Control thread: the state changes, and the state observers hear of it.
    void setState(platform::GraphState state);
};

using NativeGraphPtr = std::shared_ptr<NativeGraph>;

} // namespace corvid::native
