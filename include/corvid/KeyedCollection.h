#pragma once
// An ordered collection whose entries carry a key, looked up without regard to case: the
// catalogue's filters and devices, keyed by display name. Adding a key that is already there
// fails, so that callers decide what a duplicate means.


#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvid {

// Whether two keys name the same entry: equal without regard to case.
bool sameKey(std::string_view a, std::string_view b);

template <class T> class KeyedCollection {
public:
    struct Entry {
        std::string key;
        T value;
    };

    std::size_t Count() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }
    const Entry& at(std::size_t index) const { return entries_.at(index); }

    bool Add(std::string key, T value) {
        if (find(key)) return false;
        entries_.push_back(Entry{std::move(key), std::move(value)});
        return true;
    }
    bool Contains(const std::string& key) const { return find(key) != nullptr; }
    const T* find(const std::string& key) const {
        for (const auto& e : entries_)
            if (sameKey(e.key, key)) return &e.value;
        return nullptr;
    }
    void Clear() { entries_.clear(); }

    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }

private:
    std::vector<Entry> entries_;
};

} // namespace corvid
