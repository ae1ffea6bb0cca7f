#include "cli/command_line.h"

#include <gtest/gtest.h>

#include <deque>

#include "cli/help.h"
#include "main/command_tree.h"
#include "support/text.h"

namespace quorvane {
namespace {

using Words = std::vector<std::string_view>;

// What the program's own tree says to the words of `line`.
ParseResult parse(std::string_view line) {
    static std::deque<std::string> kept;  // The result points into them.
    std::vector<const char*> words;
    for (const std::string_view word : split(line, ' ')) {
        if (!line.empty()) words.push_back(kept.emplace_back(word).c_str());
    }
    return parse_command_line(words, kProgram);
}

TEST(ParseCommandLine, AnswersOnTheProgramsTree) {
    const auto help = [](const Words& path) { return render_help(kProgram, path); };
    const struct {
        const char* line;
        ParseKind kind;
        std::string text;
    } cases[] = {{"", ParseKind::kHelp, help({})},
                 {"--base-url x --", ParseKind::kHelp, help({})},
                 {"config -h --wrong", ParseKind::kHelp, help({"config"})},
                 {"config pull -V", ParseKind::kVersion, "quorvane 0.1.0"},
                 {"--wrong=1=2", ParseKind::kError, "unknown option --wrong"},
                 {"config pull --file", ParseKind::kError, "--file requires FILE"},
                 {"-- --help", ParseKind::kError, "invalid arguments\n" + help({})},
                 {"whoami now", ParseKind::kError, "invalid arguments\n" + help({"whoami"})}};
    for (const auto& c : cases) {
        const ParseResult got = parse(c.line);
        EXPECT_EQ(got.ok, c.kind != ParseKind::kError) << c.line;
        EXPECT_EQ(got.kind, c.kind) << c.line;
        EXPECT_EQ(got.text, c.text) << c.line;
    }
}

TEST(ParseCommandLine, YieldsCommandsAndValues) {
    constexpr std::string_view kBase = "https://quorvane.example";
    constexpr std::string_view kFile = "quorvane.config.json";
    const struct {
        const char* line;
        std::string_view command, base, project, file;
    } cases[] = {{"config", "config", kBase, "", ""},
                 {"login --no-browser=false", "login", kBase, "", ""},
                 {"config export -p=1 --base-url U", "config pull", "U", "1", kFile},
                 {"config import -p a --project b -f=x=y", "config push", kBase, "b", "x=y"},
                 {"config push --project --help --file=", "config push", kBase, "--help", ""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        const ParseResult result = parse(c.line);
        ASSERT_EQ(result.kind, ParseKind::kCommand) << result.text;
        EXPECT_TRUE(command_is(result, c.command) && !command_is(result, "config pul"));
        EXPECT_EQ(option_value(result, "base"), c.base);
        EXPECT_EQ(option_value(result, "project"), c.project);
        EXPECT_EQ(option_value(result, "file"), c.file);
        EXPECT_EQ(flag_set(result, "no-browser"), c.command == "login");
    }
    EXPECT_EQ(option_value({}, "missing", "fallback"), "fallback");
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
    const auto on = [&](const std::vector<const char*>& words) {
        return parse_command_line(words, program);
    };

    EXPECT_EQ(on({"-V"}).text, "p 9");
    EXPECT_EQ(option_value(on({"--version", "3", "paint", "a"}), "version"), "3");
    EXPECT_EQ(on({"paint", "-l", "a"}).text, "unknown option -l");
    EXPECT_EQ(on({"paint", "-c=green", "a"}).text, "invalid value for -c: green");
    EXPECT_EQ(option_value(on({"paint", "-c", "blue", "a"}), "colour"), "blue");
    EXPECT_TRUE(on({"paint"}).text.starts_with("invalid arguments\np paint\n"));
    EXPECT_EQ(on({"paint", "a", "b", "--", "-c"}).positionals, (Words{"a", "b", "-c"}));
    // An option that has taken a version form takes it out of the version's line.
    EXPECT_EQ(render_help(program, Words{"paint"}),
              "p paint\n\nPaint things\n\nUsage:\n  p paint [options] <from> [to...]"
              "\n\nArguments:\n  from\tSource (required)\n  to...\tTargets"
              "\n\nOptions:\n  -h, --help\tShow help\n  -V\tShow version"
              "\n      --version <N>\tPin\n  -l, --loud\tSpeak up\n  -c, --colour <C>\tPaint");
}

}  // namespace
}  // namespace quorvane
