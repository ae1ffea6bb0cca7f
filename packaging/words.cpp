// Prints the command tree for packaging/fill-templates, one line for each command and option:
//   command|PATH|NAME|DESCRIPTION|the command of which NAME is an alias
//   option|PATH|LONG FORM|SHORT FORM|VALUE NAME|DESCRIPTION|"required" or the default
// PATH is that of the command before it, "*" stands for every one.  The machine that builds runs
// this, so that nothing but the tree is compiled into it.
#include <iostream>
#include <string>

#include "main/command_tree.h"

namespace quorvane {
namespace {

void print_option(std::string_view path, const OptionSpec& option) {
    std::cout << "option|" << path << '|' << option.long_form << '|' << option.short_form << '|'
              << option.value_name << '|' << option.description << '|';
    if (option.required) std::cout << "required";
    if (option.takes_value() && !option.default_value.empty()) {
        std::cout << "default: " << option.default_value;
    }
    std::cout << '\n';
}

void print_subcommands(const std::string& path, const CommandSpec& command) {
    const auto print = [&path](std::string_view name, const CommandSpec& subcommand,
                               std::string_view alias_of) {
        std::cout << "command|" << path << '|' << name << '|' << subcommand.description << '|'
                  << alias_of << '\n';
        const std::string own_path = (path.empty() ? "" : path + " ") + std::string(name);
        for (const OptionSpec& option : subcommand.options) print_option(own_path, option);
        print_subcommands(own_path, subcommand);
    };
    for (const CommandSpec& subcommand : command.subcommands) {
        print(subcommand.name, subcommand, "");
        for (const std::string_view alias : subcommand.aliases) {
            print(alias, subcommand, subcommand.name);
        }
    }
}

}  // namespace
}  // namespace quorvane

int main() {
    using namespace quorvane;
    for (const OptionSpec& option : kProgram.options) {
        print_option(option.inherited ? "*" : "", option);
    }
    // The parser's own.
    print_option("*", flag_option("help", "--help", "-h", "Show help"));
    print_option("*", flag_option("version", "--version", "-V", "Show version"));
    print_subcommands("", root_command(kProgram));
}
