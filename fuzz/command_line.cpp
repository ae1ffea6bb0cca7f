// Command lines of the program's own tree; the words are the input's lines.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "cli/command_line.h"
#include "main/command_tree.h"
#include "support/text.h"

using quorvane::ParseKind;
using quorvane::ParseResult;

namespace {

void check(bool holds) {
    if (!holds) __builtin_trap();
}

// What the commands' functions rely on.
void check_command(const ParseResult& result) {
    check(result.text.empty() && result.positionals.empty() && !result.command_path.empty());
    check(!quorvane::option_value(result, "base").empty() || flag_set(result, "base"));
    if (result.command_path.size() == 2) check(flag_set(result, "project"));
    for (std::size_t i = 0; i < result.option_values.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            check(result.option_values[i].key != result.option_values[j].key);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string_view> words;
    for (const std::string_view word :
         quorvane::split({reinterpret_cast<const char*>(data), size}, '\n')) {
        words.push_back(word);
    }
    const ParseResult result = parse_command_line(words, quorvane::command_tree());
    check(result.ok == (result.kind != ParseKind::kError));
    if (result.kind == ParseKind::kCommand) check_command(result);
    if (result.kind != ParseKind::kCommand) check(!result.text.empty());

    // Anything behind "--" is no option: with a stray word there, the line is refused.
    if (!result.ok || result.kind != ParseKind::kCommand) return 0;
    words.insert(words.end(), {"--", "--help"});
    check(!parse_command_line(words, quorvane::command_tree()).ok);
    return 0;
}
