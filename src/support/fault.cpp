#include "support/fault.h"

// The standard library calls these functions when one of its preconditions is broken.  The
// definitions here end the process silently, as every internal fault does.  Nothing in the program
// can then throw, so the exception machinery and the pool that it allocates at start are not
// linked.
// NOLINTBEGIN(bugprone-reserved-identifier): these are the names that the library calls.
namespace std {

[[noreturn]] void __glibcxx_assert_fail(const char*, int, const char*, const char*) noexcept {
    quorvane::internal_fault();
}
[[noreturn]] void __throw_bad_alloc() { quorvane::internal_fault(); }
[[noreturn]] void __throw_bad_array_new_length() { quorvane::internal_fault(); }
[[noreturn]] void __throw_length_error(const char*) { quorvane::internal_fault(); }
[[noreturn]] void __throw_logic_error(const char*) { quorvane::internal_fault(); }
[[noreturn]] void __throw_out_of_range(const char*) { quorvane::internal_fault(); }
[[noreturn]] void __throw_out_of_range_fmt(const char*, ...) { quorvane::internal_fault(); }

}  // namespace std
// NOLINTEND(bugprone-reserved-identifier)
