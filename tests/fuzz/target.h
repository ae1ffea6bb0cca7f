#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Ends the program when a property does not hold, which is how a target reports it.
inline void check(bool holds) {
    if (!holds) __builtin_trap();
}

inline std::string_view as_text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}
