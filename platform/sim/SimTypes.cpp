#include "platform/sim/SimTypes.h"

namespace corvid::sim {

bool matchesPattern(const std::string& pattern, const std::string& text) {
    // Iterative glob with backtracking to the last '*': linear enough for type names.
    std::size_t p = 0, t = 0, star = std::string::npos, mark = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            mark = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (star != std::string::npos) {
            p = star + 1;
            t = ++mark;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

bool matchesAny(const std::vector<std::string>& patterns, const std::string& text) {
    for (const auto& p : patterns)
        if (matchesPattern(p, text)) return true;
    return false;
}

int32_t levelAt(const std::vector<LevelPoint>& profile, double seconds, bool right) {
    if (profile.empty()) return DefaultLevel;
    const LevelPoint* current = nullptr;
    for (const auto& point : profile) {
        if (point.fromSeconds <= seconds + 1e-9) current = &point;
        else break;
    }
    if (!current) return 0; // before the first point: nothing described, so silence
    return right ? current->right : current->left;
}

PinSpec PinSpec::input(std::string name, std::vector<std::string> accepts) {
    PinSpec p;
    p.name = std::move(name);
    p.direction = PinDirection::Input;
    p.accepts = std::move(accepts);
    return p;
}

PinSpec PinSpec::output(std::string name, std::vector<TypeRule> produces, bool appearsOnConnect) {
    PinSpec p;
    p.name = std::move(name);
    p.direction = PinDirection::Output;
    p.produces = std::move(produces);
    p.appearsOnConnect = appearsOnConnect;
    return p;
}

int64_t RenderLog::playedMs(const std::string& item) const {
    int64_t total = 0;
    for (const auto& span : spans)
        if (!span.muted && (item.empty() || span.item == item)) total += span.playedMs;
    return total;
}

std::string RenderLog::lastItem() const { return spans.empty() ? std::string() : spans.back().item; }

int RenderLog::count(RendererEvent::Kind kind) const {
    int n = 0;
    for (const auto& e : events)
        if (e.kind == kind) ++n;
    return n;
}

} // namespace corvid::sim
