#pragma once
// The abstract media graph: filters with pins, joined pin to pin, inside a graph that runs,
// pauses, stops, seeks and reports its end. Both platforms implement these interfaces; the
// player above never sees what is behind them.
//
// Threads: every member is called on the control thread. A native graph streams on its
// own threads and hands its events to the control thread through the event loop.

#include "platform/Status.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace corvid::platform {

class Filter;
class Graph;
class ShoutcastCallback;

enum class PinDirection : int32_t { Input = 0, Output = 1 };

class Pin {
public:
    virtual ~Pin() = default;

    virtual std::string name() const = 0;
    virtual PinDirection direction() const = 0;

    // The filter that owns this pin (FilterInfo); empty once the filter is gone.
    virtual std::shared_ptr<Filter> filter() const = 0;

    // The pin at the other end of this pin's connection, or empty.
    virtual std::shared_ptr<Pin> connectedTo() const = 0;
    bool isConnected() const { return connectedTo() != nullptr; }

    // Joins this pin to `other` with no filter in between. Fails when either is already
    // connected, when both have the same direction, or when the media types do not agree
    // (a parser reads its stream header here, so a file of the wrong kind fails now).
    virtual Status connectDirect(const std::shared_ptr<Pin>& other) = 0;

    // Intelligent connect: like connectDirect, but the graph may add registered
    // transforms (converters, decoders) between the two pins.
    virtual Status connect(const std::shared_ptr<Pin>& other) = 0;

    // Breaks this pin's connection at both ends. Not connected: succeeds, does nothing.
    virtual Status disconnect() = 0;

    // Lets the graph build a chain from this output pin to a renderer by itself.
    virtual Status render() = 0;
};

using PinPtr = std::shared_ptr<Pin>;

// Controls that only some filters carry. A filter answers the ones it implements.
class PitchShifterControl {
public:
    virtual ~PitchShifterControl() = default;
    // Playback rate as a factor, applied by time-stretching with the pitch kept.
    virtual Status setRate(double rate) = 0;
    virtual double rate() const = 0;
    // Pitch change in semitones (0 = unchanged).
    virtual Status setPitchSemitones(double semitones) = 0;
    virtual double pitchSemitones() const = 0;
    // Pass-through: audio passes untouched whatever rate and pitch say.
    virtual Status setPassThrough(bool passThrough) = 0;
    virtual bool passThrough() const = 0;
};

class PipeSenderControl {
public:
    virtual ~PipeSenderControl() = default;
    // The pipe always receives the audio; a muted downstream sends silence onwards.
    virtual Status setDownstreamMute(bool mute) = 0;
    virtual bool downstreamMute() const = 0;
    virtual std::string pipePath() const = 0;
};

// The control side of the network stream source ("_DShowShoutCast").
class StreamSourceControl {
public:
    virtual ~StreamSourceControl() = default;

    enum class OpenState { Idle, Opening, Open, Failed };

    // Registers the receiver of buffering, metadata and segment callbacks (or clears it).
    virtual void registerCallback(ShoutcastCallback* callback) = 0;
    // Starts opening the address. The outcome arrives later: poll openState().
    virtual Status open(const std::string& address) = 0;
    virtual OpenState openState() const = 0;
    // The failure of a Failed open, with the source's own number and text.
    virtual Status openFailure() const = 0;
    // Whether a Failed open is the last word on the address: the host cancelled it, or the
    // server answered with what asking again would only repeat (refused, not found, not
    // audio, no answer in time, a certificate that fails). Opening the same address again,
    // through this source or another, would reach the same server.
    virtual bool failureIsFinal() const { return false; }
    // Only while the open is under way: an open stream is stopped with its graph.
    virtual bool canCancel() const = 0;
    virtual Status cancel() = 0;
    // Blocks the control thread until the open may have moved on (work arrived for the event
    // loop, or the platform's clock reached the source's next step), at most timeoutMs; at once
    // when no open is under way. The caller then pumps the loop and reads openState() again.
    virtual void waitForChange(int32_t timeoutMs) = 0;
};

class Filter {
public:
    virtual ~Filter() = default;

    // The name under which the filter stands in its graph.
    virtual std::string name() const = 0;
    // Pins in the filter's own order. Some output pins appear only once an input connects.
    virtual std::vector<PinPtr> pins() = 0;

    // Sources that read a file: whether the filter has a file-name property at all, and
    // its value. setFileName loads the item; fileName reads back what was loaded.
    virtual bool isFileSource() const { return false; }
    virtual Status setFileName(const std::string& /*fileName*/) {
        return Status::failure(hr::NotImplemented, "The filter does not take a file name.");
    }
    virtual std::string fileName() const { return {}; }

    virtual bool hasPropertyPage() const { return false; }
    virtual Status showPropertyPage(int32_t /*ownerWindow*/) {
        return Status::failure(hr::NotImplemented, "The filter has no property page.");
    }

    virtual PitchShifterControl* pitchShifter() { return nullptr; }
    virtual PipeSenderControl* pipeSender() { return nullptr; }
    virtual StreamSourceControl* streamSource() { return nullptr; }
};

using FilterPtr = std::shared_ptr<Filter>;

enum class GraphState { Stopped, Paused, Running };

// What a graph reports on its own. Delivered on the control thread.
enum class GraphEvent { EndOfStream, ErrorAbort, DeviceLost };

class Graph {
public:
    virtual ~Graph() = default;

    // Media control.
    virtual Status run() = 0;
    virtual Status pause() = 0;
    virtual Status stop() = 0;
    virtual GraphState state() const = 0;

    // The platform's own choice of source filter for a file ("system source"); the filter
    // is added to the graph and returned.
    virtual Status addSourceFilter(const std::string& fileName, FilterPtr& source) = 0;

    // Filters in the graph's enumeration order (FilterCollection).
    virtual std::vector<FilterPtr> filters() = 0;
    // Adds a filter that was taken out of this graph earlier (or made for it) under a name.
    virtual Status addFilter(const FilterPtr& filter, const std::string& name) = 0;
    // Takes a filter out; its connections are broken first.
    virtual Status removeFilter(const FilterPtr& filter) = 0;

    // Position, in seconds, and rate as a factor (IMediaPosition).
    virtual Status duration(double& seconds) = 0;
    virtual Status currentPosition(double& seconds) = 0;
    virtual Status setCurrentPosition(double seconds) = 0;
    virtual Status rate(double& rate) = 0;
    virtual Status setRate(double rate) = 0;

    // Output level in hundredths of a decibel, 0 = full, -10000 = silent (IBasicAudio).
    virtual Status volume(int32_t& hundredthsDb) = 0;
    virtual Status setVolume(int32_t hundredthsDb) = 0;

    // Receiver of the graph's own events; one receiver per graph.
    virtual void setEventHandler(std::function<void(GraphEvent)> handler) = 0;
};

using GraphPtr = std::shared_ptr<Graph>;

} // namespace corvid::platform
