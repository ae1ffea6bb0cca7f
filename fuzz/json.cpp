#include <cstddef>
#include <cstdint>
#include <string_view>

#include "json_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    quorvane::reference::check_json({reinterpret_cast<const char*>(data), size});
    return 0;
}
