#include "cli/command_line.h"

#include <gtest/gtest.h>

#include "cli/help.h"
#include "main/command_tree.h"
#include "support/text.h"

namespace quorvane {
namespace {

using Words = std::vector<std::string_view>;

std::string help_of(const Words& path) { return render_help(command_tree(), path); }

// What the program's own tree says to the words of `line`.
ParseResult parse(std::string_view line) {
    Words words;
    for (const std::string_view word : split(line, ' ')) {
        if (!line.empty()) words.push_back(word);
    }
    return parse_command_line(words, command_tree());
}

TEST(ParseCommandLine, AnswersOnTheProgramsTree) {
    const std::string help = help_of({});
    const std::string invalid = "invalid arguments\n";
    const std::pair<const char*, std::string> good[] = {
        {"", help},
        {"--", help},
        {"--base-url x", help},
        {"--help", help},
        {"config -h --wrong", help_of({"config"})},
        {"config export --help", help_of({"config", "pull"})}};
    for (const auto& [line, text] : good) {
        EXPECT_TRUE(parse(line).ok && parse(line).kind == ParseKind::kHelp) << line;
        EXPECT_EQ(parse(line).text, text) << line;
    }
    EXPECT_TRUE(parse("config pull -V").ok && parse("--version").kind == ParseKind::kVersion);
    EXPECT_EQ(parse("config pull --version").text, "quorvane 0.1.0");
    const std::pair<const char*, std::string> bad[] = {
        {"--wrong=1=2", "unknown option --wrong"},
        {"-", "unknown option -"},
        {"--help=x", "unknown option --help"},
        {"--base", "unknown option --base"},
        {"=x", invalid + help},
        {"-p x config pull", "unknown option -p"},
        {"config --project x", "unknown option --project"},
        {"config import -p1 x", "unknown option -p1"},
        {"config pull --file", "--file requires FILE"},
        {"config pull -f", "-f requires FILE"},
        {"config -- pull", "missing required option --project"},
        {"config pull stray", "missing required option --project"},
        {"-- --help", invalid + help},
        {"Login", invalid + help},
        {"whoami now", invalid + help_of({"whoami"})},
        {"whoami ", invalid + help_of({"whoami"})}};
    for (const auto& [line, text] : bad) {
        EXPECT_TRUE(!parse(line).ok && parse(line).kind == ParseKind::kError) << line;
        EXPECT_EQ(parse(line).text, text) << line;
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
                 {"--base-url=U config pull -p 1", "config pull", "U", "1", kFile},
                 {"config export -p=1 --base-url U", "config pull", "U", "1", kFile},
                 {"config import -p a --project b -f=x=y", "config push", kBase, "b", "x=y"},
                 {"config push --project --help --file=", "config push", kBase, "--help", ""},
                 {"config push --project --", "config push", kBase, "--", kFile}};
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
    const auto on = [&](const Words& words) { return parse_command_line(words, program); };

    EXPECT_EQ(on({"-V"}).text, "p 9");
    EXPECT_EQ(option_value(on({"--version", "3", "paint", "a"}), "version"), "3");
    EXPECT_EQ(on({"paint", "-l", "a"}).text, "unknown option -l");
    EXPECT_EQ(on({"paint", "-c=green", "a"}).text, "invalid value for -c: green");
    EXPECT_EQ(option_value(on({"paint", "-c", "blue", "a"}), "colour"), "blue");
    EXPECT_TRUE(on({"paint"}).text.starts_with("invalid arguments\np paint\n"));
    EXPECT_EQ(on({"paint", "a", "b", "--", "-c"}).positionals, (Words{"a", "b", "-c"}));
    EXPECT_EQ(render_help(program, Words{"paint"}),
              "p paint\n\nPaint things\n\nUsage:\n  p paint [options] <from> [to...]"
              "\n\nArguments:\n  from\tSource (required)\n  to...\tTargets"
              "\n\nOptions:\n  -h, --help\tShow help\n  -V\tShow version"
              "\n      --version <N>\tPin\n  -l, --loud\tSpeak up\n  -c, --colour <C>\tPaint");
}

// Who takes a version form for himself takes it out of the version line.
TEST(RenderHelp, VersionLineFollowsOwnedForms) {
    const std::pair<OptionSpec, const char*> cases[] = {
        {flag_option("v", "--verbose", "-V", "d"), "\n      --version\tShow version\n"},
        {flag_option("v", "--version", "-x", "d"), "\n  -V\tShow version\n"},
        {flag_option("v", "--version", "-V", "d"), "Show help\n  -V, --version\td"}};
    for (const auto& [option, line] : cases) {
        const OptionSpec options[] = {option};
        const std::string help = render_help({"p", "1", "d", options, {}}, {});
        EXPECT_NE(help.find(line), std::string::npos) << help;
    }
}

}  // namespace
}  // namespace quorvane
