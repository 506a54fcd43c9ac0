#pragma once
// Side-by-side timing for the benchmarks: the variants run in turn, round after round, so that
// a noisy, shared machine slows them alike; each reports its median.

#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

namespace corvid::bench {

inline double medianOf(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

// Runs each of `variants` once per round, `rounds` times; the median milliseconds of each.
inline std::vector<double> sideBySide(int rounds, const std::vector<std::function<void()>>& variants) {
    std::vector<std::vector<double>> times(variants.size());
    for (int i = 0; i < rounds; ++i)
        for (size_t v = 0; v < variants.size(); ++v) {
            const auto start = std::chrono::steady_clock::now();
            variants[v]();
            times[v].push_back(
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
        }
    std::vector<double> medians;
    for (auto& t : times) medians.push_back(medianOf(t));
    return medians;
}

} // namespace corvid::bench
