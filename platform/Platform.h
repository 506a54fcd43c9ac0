#pragma once
// One Platform object gives a player everything outside itself. It also holds the state that
// is shared by all players of one "process": a new Platform is a new process, so every test
// can start from first-construction defaults.

#include "platform/Catalogue.h"
#include "platform/GraphHelper.h"
#include "platform/MediaGraph.h"
#include "platform/Services.h"
#include "platform/Status.h"

#include <map>
#include <memory>
#include <typeindex>
#include <typeinfo>

namespace corvid::platform {

class Platform {
public:
    virtual ~Platform() = default;

    virtual Status createGraph(GraphPtr& graph) = 0;
    virtual Status createGraphHelper(GraphHelperKind kind, GraphHelperPtr& helper) = 0;
    virtual std::unique_ptr<TagReader> createTagReader() = 0;

    virtual Catalogue& catalogue() = 0;
    virtual TickCounter& ticks() = 0;
    virtual SettingsStore& settings() = 0;
    virtual OperatorServices& operatorServices() = 0;
    virtual EventLoop& eventLoop() = 0;

    // Process-wide state of the layers above, one object per type, made on first use and
    // kept for the life of this platform instance.
    template <class T> std::shared_ptr<T> processWide() {
        auto& slot = processWide_[std::type_index(typeid(T))];
        if (!slot) slot = std::make_shared<T>();
        return std::static_pointer_cast<T>(slot);
    }
    template <class T> bool hasProcessWide() const {
        return processWide_.count(std::type_index(typeid(T))) != 0;
    }

protected:
    // A derived platform calls this first in its destructor: process-wide objects may use
    // the services (the silence settings are saved when released) while those still stand.
    void releaseProcessWide() { processWide_.clear(); }

private:
    std::map<std::type_index, std::shared_ptr<void>> processWide_;
};

} // namespace corvid::platform
