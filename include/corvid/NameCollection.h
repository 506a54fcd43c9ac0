#pragma once
// An ordered list of names exchanged with the host: filter names, device names, plug-ins.
// Lookups by name ignore case, as every name comparison of the player does.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace corvid {

class NameCollection {
public:
    NameCollection() = default;
    NameCollection(std::initializer_list<std::string> names) : names_(names) {}

    std::size_t Count() const { return names_.size(); }
    bool empty() const { return names_.empty(); }
    // Zero-based.
    const std::string& Item(std::size_t index) const { return names_.at(index); }

    void Add(std::string name) { names_.push_back(std::move(name)); }
    void Remove(std::size_t index);
    void Clear() { names_.clear(); }

    bool Contains(const std::string& name) const { return IndexOf(name).has_value(); }
    std::optional<std::size_t> IndexOf(const std::string& name) const;

    const std::vector<std::string>& names() const { return names_; }
    auto begin() const { return names_.begin(); }
    auto end() const { return names_.end(); }

    bool operator==(const NameCollection&) const = default;

private:
    std::vector<std::string> names_;
};

} // namespace corvid
