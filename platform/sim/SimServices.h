#pragma once
// The simulated services outside the media graph: the virtual tick counter, an in-memory
// settings store, an operator that records what it was asked, a tag reader over the
// simulated files, the catalogue of registered filters, and an event loop that a test pumps.
//
// Threads: control thread only, except SimEventLoop::post, quit and pendingCount.

#include "platform/Catalogue.h"
#include "platform/QueuedEventLoop.h"
#include "platform/Services.h"
#include "platform/sim/SimTypes.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace corvid::sim {

namespace detail {
class World;
struct Registration;
} // namespace detail

// Reads the virtual clock; a sleep moves the whole simulated machine on by that long.
class SimTickCounter : public platform::TickCounter {
public:
    explicit SimTickCounter(detail::World& world) : world_(world) {}
    int32_t nowMs() override;
    void sleepMs(int32_t ms) override;
    double secondsSinceMidnight() override;

private:
    detail::World& world_;
};

class SimSettingsStore : public platform::SettingsStore {
public:
    explicit SimSettingsStore(detail::World& world) : world_(world) {}
    std::string read(const std::string& application, const std::string& section,
                     const std::string& key, const std::string& defaultValue) override;
    Status write(const std::string& application, const std::string& section,
                 const std::string& key, const std::string& value) override;

    // Sets a value as if an earlier run had stored it.
    void preset(const std::string& application, const std::string& section,
                const std::string& key, const std::string& value);
    // The stored value, or nothing.
    std::optional<std::string> value(const std::string& application, const std::string& section,
                                     const std::string& key) const;
    std::size_t size() const { return values_.size(); }
    int writeCount() const { return writes_; }
    void clear() { values_.clear(); }

private:
    static std::string keyOf(const std::string& a, const std::string& s, const std::string& k);
    detail::World& world_;
    std::map<std::string, std::string> values_;
    int writes_ = 0;
};

struct MessageBoxRecord {
    std::string text;
    std::string title;
    platform::MessageIcon icon = platform::MessageIcon::None;
};

struct StartedProcess {
    std::string commandLine;
    platform::WindowStyle style = platform::WindowStyle::Normal;
};

class SimOperatorServices : public platform::OperatorServices {
public:
    explicit SimOperatorServices(detail::World& world) : world_(world) {}
    void messageBox(const std::string& text, const std::string& title,
                    platform::MessageIcon icon) override;
    Status startProcess(const std::string& commandLine, platform::WindowStyle style) override;
    bool fileExists(const std::string& path) override;
    Status testOpen(const std::string& path) override;
    Status writeTextFile(const std::string& path, const std::string& text) override;
    std::string detectionReportPath() override { return DetectionReportPath; }
    std::string markerFilePath() override { return MarkerFilePath; }

    static constexpr const char* DetectionReportPath = "/sim/corvid/DetectionInfo.txt";
    static constexpr const char* MarkerFilePath = "/sim/marlodev.txt";

    // A file that exists outside the media files (the marker file, a log).
    void addExistingFile(const std::string& path) { existing_.insert(path); }
    void removeExistingFile(const std::string& path);

    const std::vector<MessageBoxRecord>& messageBoxes() const { return boxes_; }
    const std::vector<StartedProcess>& processes() const { return processes_; }
    // Text written by writeTextFile, by path; nothing when never written.
    std::optional<std::string> writtenFile(const std::string& path) const;
    void clearRecords();

    // Called with each message box (a host shows it now) and each started process (a test
    // may "repair" the machine when it sees a registration command).
    void onMessageBox(std::function<void(const MessageBoxRecord&)> hook) { boxHook_ = std::move(hook); }
    void onProcess(std::function<void(const StartedProcess&)> hook) { processHook_ = std::move(hook); }

private:
    detail::World& world_;
    std::vector<MessageBoxRecord> boxes_;
    std::vector<StartedProcess> processes_;
    std::set<std::string> existing_;
    std::map<std::string, std::string> written_;
    std::function<void(const MessageBoxRecord&)> boxHook_;
    std::function<void(const StartedProcess&)> processHook_;
};

class SimTagReader : public platform::TagReader {
public:
    explicit SimTagReader(std::shared_ptr<detail::World> world) : world_(std::move(world)) {}
    Status open(const std::string& path) override;
    void close() override { tags_.reset(); }
    Status artist(std::string& value) override { return attribute("Artist", value); }
    Status title(std::string& value) override { return attribute("Title", value); }
    Status attribute(const std::string& name, std::string& value) override;

private:
    std::shared_ptr<detail::World> world_;
    std::optional<std::map<std::string, std::string>> tags_;
};

class SimEventLoop : public platform::QueuedEventLoop {
public:
    // Runs tasks until none is left, also those that tasks post; at most `limit` of them.
    int drain(int limit = 100000);
};

class SimCatalogueEntry : public platform::CatalogueEntry {
public:
    SimCatalogueEntry(std::shared_ptr<detail::World> world,
                      std::shared_ptr<detail::Registration> reg, std::string name);
    std::string name() const override { return name_; }
    int32_t numSpeakers() const override;
    Status createIn(platform::Graph& graph, platform::FilterPtr& filter) override;

private:
    std::shared_ptr<detail::World> world_;
    std::shared_ptr<detail::Registration> reg_;
    std::string name_;
};

class SimCatalogue : public platform::Catalogue {
public:
    explicit SimCatalogue(detail::World& world) : world_(world) {}
    Status enumerate(const std::string& categoryId,
                     std::vector<platform::CatalogueEntryPtr>& entries) override;
    Status enumerateRenderersWithPairs(std::vector<platform::CatalogueEntryPtr>& entries) override;
    void refresh() override { ++refreshes_; }

    int refreshCount() const { return refreshes_; }
    int enumerationCount() const { return enumerations_; }

private:
    detail::World& world_;
    int refreshes_ = 0;
    int enumerations_ = 0;
};

} // namespace corvid::sim
