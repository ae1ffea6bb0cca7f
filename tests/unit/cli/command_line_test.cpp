#include "cli/command_line.h"

#include <gtest/gtest.h>

#include "cli/help.h"
#include "main/command_tree.h"

namespace quorvane {
namespace {

using Words = std::vector<std::string_view>;

std::string help_of(const Words& path) { return render_help(command_tree(), path); }

TEST(ParseCommandLine, AnswersOnTheProgramsTree) {
    const std::string invalid = "invalid arguments\n";
    const struct {
        Words words;
        ParseKind kind;
        std::string text;
    } cases[] = {
        {{}, ParseKind::kHelp, help_of({})},
        {{"--"}, ParseKind::kHelp, help_of({})},
        {{"--base-url", "x"}, ParseKind::kHelp, help_of({})},
        {{"--help"}, ParseKind::kHelp, help_of({})},
        {{"config", "-h", "--wrong"}, ParseKind::kHelp, help_of({"config"})},
        {{"config", "export", "--help"}, ParseKind::kHelp, help_of({"config", "pull"})},
        {{"-V"}, ParseKind::kVersion, "quorvane 0.1.0"},
        {{"config", "pull", "--version"}, ParseKind::kVersion, "quorvane 0.1.0"},
        {{"--wrong"}, ParseKind::kError, "unknown option --wrong"},
        {{"--wrong=1=2"}, ParseKind::kError, "unknown option --wrong"},
        {{"-"}, ParseKind::kError, "unknown option -"},
        {{"--help=x"}, ParseKind::kError, "unknown option --help"},
        {{"--base"}, ParseKind::kError, "unknown option --base"},
        {{"=x"}, ParseKind::kError, invalid + help_of({})},
        {{"whoami", "-p", "x"}, ParseKind::kError, "unknown option -p"},
        {{"-p", "x", "config", "pull"}, ParseKind::kError, "unknown option -p"},
        {{"config", "--project", "x"}, ParseKind::kError, "unknown option --project"},
        {{"--no-browser", "login"}, ParseKind::kError, "unknown option --no-browser"},
        {{"config", "pull", "--file"}, ParseKind::kError, "--file requires FILE"},
        {{"config", "pull", "-f"}, ParseKind::kError, "-f requires FILE"},
        {{"config", "pull"}, ParseKind::kError, "missing required option --project"},
        {{"config", "--", "pull"}, ParseKind::kError, "missing required option --project"},
        {{"config", "pull", "stray"}, ParseKind::kError, "missing required option --project"},
        {{"stray"}, ParseKind::kError, invalid + help_of({})},
        {{"--", "--help"}, ParseKind::kError, invalid + help_of({})},
        {{"Login"}, ParseKind::kError, invalid + help_of({})},
        {{"whoami", "now"}, ParseKind::kError, invalid + help_of({"whoami"})},
        {{"whoami", ""}, ParseKind::kError, invalid + help_of({"whoami"})},
        {{"config", "import", "-p1", "x"}, ParseKind::kError, "unknown option -p1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.words));
        const ParseResult result = parse_command_line(c.words, command_tree());
        EXPECT_EQ(result.kind, c.kind);
        EXPECT_EQ(result.ok, c.kind != ParseKind::kError);
        EXPECT_EQ(result.text, c.text);
    }
}

TEST(ParseCommandLine, YieldsCommandsAndValues) {
    const struct {
        Words words;
        const char* command;
        const char* base;
        const char* project;
        const char* file;
        bool flag;
    } cases[] = {
        {{"whoami"}, "whoami", "https://quorvane.example", "", "", false},
        {{"config"}, "config", "https://quorvane.example", "", "", false},
        {{"login", "--no-browser=false"}, "login", "https://quorvane.example", "", "", true},
        {{"--base-url=U", "config", "pull", "-p", "1"},
         "config pull",
         "U",
         "1",
         "quorvane.config.json",
         false},
        {{"config", "export", "-p=1", "--base-url", "U"},
         "config pull",
         "U",
         "1",
         "quorvane.config.json",
         false},
        {{"config", "import", "-p", "a", "--project", "b", "-f=x=y"},
         "config push",
         "https://quorvane.example",
         "b",
         "x=y",
         false},
        {{"config", "push", "--project", "--help", "--file="},
         "config push",
         "https://quorvane.example",
         "--help",
         "",
         false},
        {{"config", "push", "--project", "--"},
         "config push",
         "https://quorvane.example",
         "--",
         "quorvane.config.json",
         false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.words));
        const ParseResult result = parse_command_line(c.words, command_tree());
        ASSERT_EQ(result.kind, ParseKind::kCommand) << result.text;
        EXPECT_TRUE(command_is(result, c.command));
        EXPECT_FALSE(command_is(result, "config pul"));
        EXPECT_EQ(option_value(result, "base"), c.base);
        EXPECT_EQ(option_value(result, "project"), c.project);
        EXPECT_EQ(option_value(result, "file"), c.file);
        EXPECT_EQ(flag_set(result, "no-browser"), c.flag);
    }
    EXPECT_EQ(option_value({}, "missing", "fallback"), "fallback");
}

// What the program's own tree does not use, on a tree made for it.
TEST(ParseCommandLine, ServesOtherTrees) {
    static constexpr std::string_view kColours[] = {"red", "blue"};
    static constexpr OptionSpec kRoot[] = {
        value_option("version", "--version", "", "N", "Pin", {.inherited = true}),
        flag_option("loud", "--loud", "-l", "Speak up"),
    };
    static constexpr OptionSpec kPaint[] = {
        value_option("colour", "--colour", "-c", "C", "Paint", {.allowed_values = kColours})};
    static constexpr ArgumentSpec kArguments[] = {{"from", "Source", true, false},
                                                  {"to", "Targets", false, true}};
    static constexpr CommandSpec kCommands[] = {{.name = "paint",
                                                 .description = "Paint things",
                                                 .options = kPaint,
                                                 .arguments = kArguments}};
    const ProgramSpec program = {"p", "9", "Test", kRoot, kCommands};
    const auto parse = [&](const Words& words) { return parse_command_line(words, program); };

    EXPECT_EQ(parse({"-V"}).text, "p 9");
    EXPECT_EQ(option_value(parse({"--version", "3", "paint", "a"}), "version"), "3");
    EXPECT_EQ(parse({"paint", "-l", "a"}).text, "unknown option -l");
    EXPECT_EQ(parse({"paint", "-c=green", "a"}).text, "invalid value for -c: green");
    EXPECT_EQ(option_value(parse({"paint", "-c", "blue", "a"}), "colour"), "blue");
    EXPECT_TRUE(parse({"paint"}).text.starts_with("invalid arguments\np paint\n"));
    EXPECT_EQ(parse({"paint", "a", "b", "--", "-c"}).positionals, (Words{"a", "b", "-c"}));
    EXPECT_EQ(render_help(program, Words{"paint"}),
              "p paint\n\nPaint things\n\nUsage:\n  p paint [options] <from> [to...]"
              "\n\nArguments:\n  from\tSource (required)\n  to...\tTargets"
              "\n\nOptions:\n  -h, --help\tShow help\n  -V\tShow version"
              "\n      --version <N>\tPin\n  -l, --loud\tSpeak up\n  -c, --colour <C>\tPaint");
}

}  // namespace
}  // namespace quorvane
