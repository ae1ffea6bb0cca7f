#include "cli/command_line.h"

#include <gtest/gtest.h>

#include "cli/help.h"
#include "main/command_tree.h"
#include "rows.h"
#include "support/text.h"

namespace quorvane {
namespace {

using Words = std::vector<std::string_view>;

// The kind of the result and its text, or the command, its options (a "*" after those that were
// given) and its positionals.
std::string parse(std::string_view line, const ProgramSpec& program) {
    std::vector<std::string> kept;
    for (const std::string_view word : split(line, ' ')) kept.emplace_back(word);
    std::vector<const char*> words;
    words.reserve(kept.size());
    for (const std::string& word : kept) words.push_back(word.c_str());
    if (line.empty()) words.clear();
    const ParseResult got = parse_command_line(words, program);
    EXPECT_EQ(got.ok, got.kind != ParseKind::kError) << line;
    const char* const kinds[] = {"error ", "help ", "version ", ""};
    std::string shown = kinds[static_cast<int>(got.kind)] + got.text;
    if (got.kind != ParseKind::kCommand) return shown;
    for (const std::string_view name : got.command_path) shown.append(name).append(" ");
    EXPECT_TRUE(command_is(got, shown.substr(0, shown.size() - 1)) && !command_is(got, shown));
    for (const char* key : {"base", "project", "file", "no-browser", "version", "colour"}) {
        const std::string_view value = option_value(got, key, "none");
        if (value == "none") continue;
        shown.append(key).append("=").append(value).append(flag_set(got, key) ? "* " : " ");
    }
    for (const std::string_view word : got.positionals) shown.append(word).append(" ");
    return shown;
}

TEST(ParseCommandLine, AnswersOnTheProgramsTree) {
    const auto help = [](const Words& path) { return render_help(kProgram, path); };
    const std::pair<const char*, std::string> cases[] = {
        {"", "help " + help({})},
        {"--base-url x --", "help " + help({})},
        {"config -h --wrong", "help " + help({"config"})},
        {"config pull -V", "version quorvane 0.1.0"},
        {"--wrong=1=2", "error unknown option --wrong"},
        {"config pull --file", "error --file requires FILE"},
        {"config pull", "error missing required option --project"},
        {"whoami -- --help", "error invalid arguments\n" + help({"whoami"})},
        {"config", "config base=https://quorvane.example "},
        {"login", "login base=https://quorvane.example no-browser=false "},
        {"login --no-browser=false", "login base=https://quorvane.example no-browser=true* "},
        {"config export -p=1 --base-url U",
         "config pull base=U* project=1* file=quorvane.config.json "},
        {"config import -p a --project --help -f=x=y --base-url=",
         "config push base=* project=--help* file=x=y* "}};
    expect_rows(cases, [](std::string_view line) { return parse(line, kProgram); });
}

// What the program's own tree does not use, on a tree made for it.
TEST(ParseCommandLine, ServesOtherTrees) {
    static constexpr std::string_view kColours[] = {"red", "blue"};
    static constexpr OptionSpec kRoot[] = {
        value_option("version", "--version", "", "N", "Pin", {.inherited = true}),
        flag_option("loud", "--loud", "-l", "Speak up")};
    static constexpr OptionSpec kPaint[] = {
        value_option("colour", "--colour", "-c", "C", "Paint", {.allowed_values = kColours})};
    static constexpr ArgumentSpec kArguments[] = {{"from", "Source", true, false},
                                                  {"to", "Targets", false, true}};
    static constexpr CommandSpec kCommands[] = {{.name = "paint",
                                                 .description = "Paint things",
                                                 .options = kPaint,
                                                 .arguments = kArguments}};
    const ProgramSpec program = {"p", "9", "Test", kRoot, kCommands};
    const std::string help = render_help(program, Words{"paint"});
    // An option that has taken a version form takes it out of the version's line.
    EXPECT_EQ(help,
              "p paint\n\nPaint things\n\nUsage:\n  p paint [options] <from> [to...]"
              "\n\nArguments:\n  from\tSource (required)\n  to...\tTargets"
              "\n\nOptions:\n  -h, --help\tShow help\n  -V\tShow version"
              "\n      --version <N>\tPin\n  -l, --loud\tSpeak up\n  -c, --colour <C>\tPaint");
    const std::pair<const char*, std::string> cases[] = {
        {"-V", "version p 9"},
        {"paint -l a", "error unknown option -l"},
        {"paint -c=green a", "error invalid value for -c: green"},
        {"paint", "error invalid arguments\n" + help},
        {"--version 3 paint -c blue a b -- -c", "paint version=3* colour=blue* a b -c "}};
    expect_rows(cases, [&](std::string_view line) { return parse(line, program); });
}

}  // namespace
}  // namespace quorvane
