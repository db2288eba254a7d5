#include "ParamsCommand.h"
#include "ResponseCommand.h"

#include <iostream>
#include <string>
#include <string_view>
#include <vector>

// The command-line host: "ondrel <command> [options]".

namespace {

struct Command {
    const char* name;
    const char* summary;
    int (*run)(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);
};

constexpr Command kCommands[] = {
    {"params", "list the host parameters (--json for a JSON array)", runParamsCommand},
    {"response", "one band's analog and Zero Latency response as CSV (--png FILE to plot)",
     runResponseCommand},
};

void printUsage(std::ostream& out) {
    out << "usage: ondrel <command> [options]\n\ncommands:\n";
    for (const Command& command : kCommands)
        out << "  " << command.name << std::string(10 - std::string_view(command.name).size(), ' ')
            << command.summary << '\n';
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.empty()) {
        std::cerr << "ondrel: no command given (see 'ondrel --help')\n";
        return 2;
    }
    if (arguments[0] == "--help" || arguments[0] == "-h" || arguments[0] == "help") {
        printUsage(std::cout);
        return 0;
    }
    for (const Command& command : kCommands)
        if (arguments[0] == command.name)
            return command.run({arguments.begin() + 1, arguments.end()}, std::cout, std::cerr);
    std::cerr << "ondrel: unknown command '" << arguments[0] << "' (see 'ondrel --help')\n";
    return 2;
}
