#pragma once
// The errors that the player raises: to the host where the behaviour says so, and inside
// the graph code as numbered errors that the caller traps and keeps as its pending error.

#include <cstdint>
#include <stdexcept>
#include <string>

namespace corvid {

class AutomationError : public std::runtime_error {
public:
    AutomationError(int32_t number, std::string description)
        : std::runtime_error(description), number_(number), description_(std::move(description)) {}

    int32_t number() const { return number_; }
    const std::string& description() const { return description_; }

private:
    int32_t number_;
    std::string description_;
};

// The runtime's own error numbers, as the host's scripts know them.
namespace errnum {
constexpr int32_t InvalidProcedureCall = 5;
constexpr int32_t Overflow = 6;
} // namespace errnum

inline AutomationError overflowError() { return AutomationError(errnum::Overflow, "Overflow"); }

} // namespace corvid
