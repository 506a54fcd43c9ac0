#include "platform/native/graph/Graph.h"

#include "platform/ItemName.h"
#include "platform/Text.h"
#include "platform/native/Registry.h"
#include "platform/native/renderers/AudioRenderer.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

// The graph: its filters, its source filters by file name, and its events.

namespace corvid::native {

using platform::GraphEvent;

NativeGraph::NativeGraph(GraphContext context) : context_(std::move(context)) {}

NativeGraph::~NativeGraph() {
    stopStreaming();
    for (auto& f : filters_) {
        for (auto& pin : f->nativePins()) {
            if (auto p = pin->peer()) p->peer_.reset();
            pin->peer_.reset();
        }
        f->graph_ = nullptr;
    }
}

std::vector<AudioRenderer*> NativeGraph::activeRenderers() const {
    std::vector<AudioRenderer*> out;
    for (auto& f : filters_)
        if (auto* r = f->asRenderer(); r && r->inputConnected()) out.push_back(r);
    return out;
}

Status NativeGraph::addSourceFilter(const std::string& fileName, platform::FilterPtr& source) {
    source.reset();
    const std::string ext = item::extension(fileName);
    const char* which = "File Source (Async.)";
    if (ext == "flac") which = "Native FLAC Decoder";
    else if (ext == "wma" || ext == "asf") which = "WM ASF READER";
    auto filter = makeRegisteredFilter(which);
    if (!filter) return Status::failure(hr::UnknownFileType, "No source filter for " + fileName);
    Status s = filter->setFileName(fileName);
    if (!s) return s;
    s = addFilter(filter, fileName);
    if (!s) return s;
    source = filter;
    return Status::success();
}

std::vector<platform::FilterPtr> NativeGraph::filters() {
    return std::vector<platform::FilterPtr>(filters_.begin(), filters_.end());
}

std::string NativeGraph::uniqueName(const std::string& name) const {
    auto taken = [&](const std::string& n) {
        return std::any_of(filters_.begin(), filters_.end(),
                           [&](const NativeFilterPtr& f) { return f->name_ == n; });
    };
    if (!taken(name)) return name;
    for (int i = 1;; ++i) {
        char suffix[16];
        std::snprintf(suffix, sizeof suffix, " %04d", i);
        if (!taken(name + suffix)) return name + suffix;
    }
}

Status NativeGraph::addFilter(const platform::FilterPtr& filter, const std::string& name) {
    auto native = std::dynamic_pointer_cast<NativeFilter>(filter);
    if (!native) return Status::failure(hr::Pointer, "No filter to add.");
    if (native->graph_ == this) return Status::failure(hr::InvalidArg, "The filter is already in the graph.");
    if (native->graph_) return Status::failure(hr::InvalidArg, "The filter is in another graph.");
    native->name_ = uniqueName(name.empty() ? native->name_ : name);
    native->graph_ = this;
    filters_.push_back(native);
    ++filtersVersion_;
    return Status::success();
}

Status NativeGraph::removeFilter(const platform::FilterPtr& filter) {
    auto native = std::dynamic_pointer_cast<NativeFilter>(filter);
    auto it = std::find(filters_.begin(), filters_.end(), native);
    if (!native || it == filters_.end())
        return Status::failure(hr::NotInGraph, "The filter is not in this graph.");
    quiesce();
    for (auto& pin : std::vector<NativePinPtr>(native->nativePins()))
        if (pin->peer()) disconnectPin(*pin);
    native->graph_ = nullptr;
    filters_.erase(std::find(filters_.begin(), filters_.end(), native));
    ++filtersVersion_;
    return Status::success();
}

void NativeGraph::setEventHandler(std::function<void(GraphEvent)> handler) {
    handler_ = std::move(handler);
}

int NativeGraph::addObserver(std::function<void(GraphEvent)> observer) {
    observers_.emplace_back(nextObserver_, std::move(observer));
    return nextObserver_++;
}

void NativeGraph::removeObserver(int id) {
    observers_.erase(std::remove_if(observers_.begin(), observers_.end(),
                                    [&](auto& o) { return o.first == id; }),
                     observers_.end());
}

int NativeGraph::addStateObserver(std::function<void(platform::GraphState)> observer) {
    stateObservers_.emplace_back(nextObserver_, std::move(observer));
    return nextObserver_++;
}

void NativeGraph::removeStateObserver(int id) {
    stateObservers_.erase(std::remove_if(stateObservers_.begin(), stateObservers_.end(),
                                         [&](auto& o) { return o.first == id; }),
                          stateObservers_.end());
}

void NativeGraph::setState(platform::GraphState state) {
    if (state_ == state) return;
    state_ = state;
    auto observers = stateObservers_;
    for (auto& [id, o] : observers) o(state);
}

void NativeGraph::raise(GraphEvent event) {
    auto handler = handler_;
    auto observers = observers_;
    if (handler) handler(event);
    for (auto& [id, o] : observers) o(event);
}

void NativeGraph::postRendererEnd(AudioRenderer* renderer, uint64_t generation) {
    if (!context_.loop) return;
    std::weak_ptr<NativeGraph> weak = weak_from_this();
    context_.loop->post([weak, renderer, generation] {
        auto g = weak.lock();
        if (!g || generation != g->generation() || g->endRaised_) return;
        g->endedRenderers_.insert(renderer);
        for (auto* r : g->activeRenderers())
            if (!g->endedRenderers_.count(r)) return;
        g->endRaised_ = true;
        g->raise(GraphEvent::EndOfStream);
    });
}

void NativeGraph::postError(uint64_t generation, const std::string& why) {
    if (!context_.loop) return;
    std::weak_ptr<NativeGraph> weak = weak_from_this();
    context_.loop->post([weak, generation, why] {
        auto g = weak.lock();
        if (!g || generation != g->generation() || g->endRaised_) return;
        g->endRaised_ = true; // the item is over: its end is not raised again
        if (g->context_.report) g->context_.report(why);
        g->raise(GraphEvent::ErrorAbort);
    });
}

void NativeGraph::postReport(const std::string& note) {
    if (!context_.loop) return;
    std::weak_ptr<NativeGraph> weak = weak_from_this();
    context_.loop->post([weak, note] {
        auto g = weak.lock();
        if (g && g->context_.report) g->context_.report(note);
    });
}

void NativeGraph::postDeviceLost() {
    if (!context_.loop) return;
    std::weak_ptr<NativeGraph> weak = weak_from_this();
    const uint64_t generation = this->generation();
    context_.loop->post([weak, generation] {
        auto g = weak.lock();
        if (g && generation == g->generation()) g->raise(GraphEvent::DeviceLost);
    });
}

} // namespace corvid::native
