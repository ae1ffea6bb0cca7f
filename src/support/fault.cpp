// The standard library calls these functions when one of its preconditions is broken.  The
// definitions here end the process silently, as every internal fault does.  Nothing in the program
// can then throw, so the exception machinery and the pool that it allocates at start are not
// linked.

namespace {

// Ends the process at once and without a message, because an invariant of this program does not
// hold.  Input from outside never leads here: it fails as a value.
[[noreturn]] void internal_fault() { __builtin_trap(); }

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): these are the names that the library calls.
namespace std {

[[noreturn]] void __glibcxx_assert_fail(const char*, int, const char*, const char*) noexcept {
    internal_fault();
}
[[noreturn]] void __throw_bad_alloc() { internal_fault(); }
[[noreturn]] void __throw_bad_array_new_length() { internal_fault(); }
[[noreturn]] void __throw_length_error(const char*) { internal_fault(); }
[[noreturn]] void __throw_logic_error(const char*) { internal_fault(); }
[[noreturn]] void __throw_out_of_range(const char*) { internal_fault(); }
[[noreturn]] void __throw_out_of_range_fmt(const char*, ...) { internal_fault(); }

}  // namespace std
// NOLINTEND(bugprone-reserved-identifier)
