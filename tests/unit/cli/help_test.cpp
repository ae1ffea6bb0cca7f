#include "cli/help.h"

#include <gtest/gtest.h>

#include "main/command_tree.h"

namespace quorvane {
namespace {

TEST(RenderHelp, ShowsTheProgramsTree) {
    using Path = std::vector<std::string_view>;
    const std::string options =
        "\n\nOptions:\n  -h, --help\tShow help\n  -V, --version\tShow version\n"
        "      --base-url <URL>\tAlternate Quorvane deployment (default: https://quorvane.example)";
    EXPECT_EQ(render_help(command_tree(), {}),
              "quorvane 0.1.0\n\nManage Quorvane projects and configuration\n\nUsage:\n"
              "  quorvane [options] [command]\n\nCommands:\n"
              "  login\tAuthorize this CLI in your browser\n"
              "  logout\tRevoke this CLI session\n"
              "  whoami\tShow the authenticated account\n"
              "  projects\tList your projects\n"
              "  config\tSync project configuration" +
                  options);
    EXPECT_EQ(render_help(command_tree(), Path{"config"}),
              "quorvane config\n\nSync project configuration\n\nUsage:\n"
              "  quorvane config [options] [command]\n\nCommands:\n"
              "  pull\tExport configuration and its revision\n"
              "  push\tImport configuration with a revision check" +
                  options);
    EXPECT_EQ(render_help(command_tree(), Path{"config", "pull"}),
              "quorvane config pull\n\nExport configuration and its revision\n\nUsage:\n"
              "  quorvane config pull [options]" +
                  options +
                  "\n  -p, --project <ID>\tProject ID (required)\n"
                  "  -f, --file <FILE>\tConfiguration file (default: quorvane.config.json)");
    EXPECT_TRUE(render_help(command_tree(), Path{"login"})
                    .ends_with("\n      --no-browser\tPrint the URL without opening a browser"));
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
