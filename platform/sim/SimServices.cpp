#include "platform/sim/SimServices.h"

#include "platform/Text.h"
#include "platform/sim/World.h"

#include <cmath>

namespace corvid::sim {

namespace hr = platform::hr;

// Tick counter ---------------------------------------------------------------------------------

int32_t SimTickCounter::nowMs() { return world_.nowMs(); }

void SimTickCounter::sleepMs(int32_t ms) {
    world_.advance(ms);
}

double SimTickCounter::secondsSinceMidnight() {
    double s = world_.midnightBaseSeconds + static_cast<double>(world_.elapsedMs) / 1000.0;
    return std::fmod(s, 86400.0);
}

// Settings -------------------------------------------------------------------------------------

std::string SimSettingsStore::keyOf(const std::string& a, const std::string& s,
                                    const std::string& k) {
    // The separator cannot occur in a name the player uses.
    return text::toLower(a) + '\x1f' + text::toLower(s) + '\x1f' + text::toLower(k);
}

std::string SimSettingsStore::read(const std::string& application, const std::string& section,
                                   const std::string& key, const std::string& defaultValue) {
    auto it = values_.find(keyOf(application, section, key));
    return it == values_.end() ? defaultValue : it->second;
}

Status SimSettingsStore::write(const std::string& application, const std::string& section,
                               const std::string& key, const std::string& value) {
    Status failure;
    if (world_.fails(FaultPoint::SettingsWrite, key, failure)) return failure;
    ++writes_;
    values_[keyOf(application, section, key)] = value;
    return Status::success();
}

void SimSettingsStore::preset(const std::string& application, const std::string& section,
                              const std::string& key, const std::string& value) {
    values_[keyOf(application, section, key)] = value;
}

std::optional<std::string> SimSettingsStore::value(const std::string& application,
                                                   const std::string& section,
                                                   const std::string& key) const {
    auto it = values_.find(keyOf(application, section, key));
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

// Operator -------------------------------------------------------------------------------------

void SimOperatorServices::messageBox(const std::string& text, const std::string& title,
                                     platform::MessageIcon icon) {
    boxes_.push_back({text, title, icon});
    if (boxHook_) boxHook_(boxes_.back());
}

Status SimOperatorServices::startProcess(const std::string& commandLine,
                                         platform::WindowStyle style) {
    Status failure;
    if (world_.fails(FaultPoint::StartProcess, commandLine, failure)) return failure;
    processes_.push_back({commandLine, style});
    if (processHook_) processHook_(processes_.back());
    return Status::success();
}

bool SimOperatorServices::fileExists(const std::string& path) {
    return existing_.count(path) || written_.count(path) || world_.file(path);
}

Status SimOperatorServices::testOpen(const std::string& path) {
    Status failure;
    if (world_.fails(FaultPoint::TestOpen, path, failure)) return failure;
    if (const SimFile* file = world_.file(path))
        return file->readable ? Status::success()
                              : Status::failure(hr::AccessDenied, "Access is denied.");
    if (existing_.count(path) || written_.count(path)) return Status::success();
    return Status::failure(hr::FileNotFound, "The system cannot find the file specified.");
}

Status SimOperatorServices::writeTextFile(const std::string& path, const std::string& text) {
    Status failure;
    if (world_.fails(FaultPoint::WriteTextFile, path, failure)) return failure;
    written_[path] = text;
    return Status::success();
}

void SimOperatorServices::removeExistingFile(const std::string& path) {
    existing_.erase(path);
    written_.erase(path);
}

std::optional<std::string> SimOperatorServices::writtenFile(const std::string& path) const {
    auto it = written_.find(path);
    if (it == written_.end()) return std::nullopt;
    return it->second;
}

void SimOperatorServices::clearRecords() {
    boxes_.clear();
    processes_.clear();
}

// Tags -----------------------------------------------------------------------------------------

Status SimTagReader::open(const std::string& path) {
    tags_.reset();
    Status failure;
    if (world_->fails(FaultPoint::TagOpen, path, failure)) return failure;
    const SimFile* file = world_->file(path);
    if (!file) return Status::failure(hr::FileNotFound, "The system cannot find the file specified.");
    if (!file->readable) return Status::failure(hr::AccessDenied, "Access is denied.");
    tags_ = file->tags;
    return Status::success();
}

Status SimTagReader::attribute(const std::string& name, std::string& value) {
    value.clear();
    if (!tags_) return Status::failure(hr::WrongState, "No file is open in the tag reader.");
    for (const auto& [key, text] : *tags_)
        if (text::equalsNoCase(key, name)) {
            value = text;
            break;
        }
    return Status::success();
}

// Event loop -----------------------------------------------------------------------------------

int SimEventLoop::drain(int limit) {
    int ran = 0;
    while (ran < limit) {
        int n = processPending();
        if (n == 0) break;
        ran += n;
    }
    return ran;
}

// Catalogue ------------------------------------------------------------------------------------

SimCatalogueEntry::SimCatalogueEntry(std::shared_ptr<detail::World> world,
                                     std::shared_ptr<detail::Registration> reg, std::string name)
    : world_(std::move(world)), reg_(std::move(reg)), name_(std::move(name)) {}

int32_t SimCatalogueEntry::numSpeakers() const {
    return reg_->desc.kind == FilterKind::Renderer ? reg_->desc.numSpeakers : 0;
}

Status SimCatalogueEntry::createIn(platform::Graph& graph, platform::FilterPtr& filter) {
    auto* sim = dynamic_cast<SimGraph*>(&graph);
    if (!sim) return Status::failure(hr::InvalidArg, "The graph is not a simulated graph.");
    // A renderer entry of a speaker pair makes the device's renderer under the pair's name.
    const std::string name =
        reg_->desc.kind == FilterKind::Renderer ? name_ : reg_->desc.nameInGraph();
    std::shared_ptr<SimFilter> made;
    Status s = createFilterIn(*sim, reg_, name, made);
    if (s) filter = made;
    return s;
}

Status SimCatalogue::enumerate(const std::string& categoryId,
                               std::vector<platform::CatalogueEntryPtr>& entries) {
    entries.clear();
    ++enumerations_;
    Status failure;
    if (world_.fails(FaultPoint::Enumerate, categoryId, failure)) return failure;
    auto world = world_.shared_from_this();
    for (const auto& reg : world_.registrations)
        if (reg->registered && text::equalsNoCase(reg->desc.category, categoryId))
            entries.push_back(std::make_shared<SimCatalogueEntry>(world, reg, reg->desc.displayName));
    return Status::success();
}

Status SimCatalogue::enumerateRenderersWithPairs(std::vector<platform::CatalogueEntryPtr>& entries) {
    entries.clear();
    ++enumerations_;
    Status failure;
    if (world_.fails(FaultPoint::Enumerate, "pairs", failure)) return failure;
    static const char* const suffixes[] = {" [1-2]", " [3-4]", " [5-6]", " [7-8]"};
    auto world = world_.shared_from_this();
    for (const auto& reg : world_.registrations) {
        if (!reg->registered || reg->desc.kind != FilterKind::Renderer) continue;
        const auto& name = reg->desc.displayName;
        entries.push_back(std::make_shared<SimCatalogueEntry>(world, reg, name));
        if (reg->desc.numSpeakers <= 2) continue;
        const int pairs = std::min(4, reg->desc.numSpeakers / 2);
        for (int p = 0; p < pairs; ++p)
            entries.push_back(std::make_shared<SimCatalogueEntry>(world, reg, name + suffixes[p]));
    }
    return Status::success();
}

} // namespace corvid::sim
