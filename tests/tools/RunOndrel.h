#pragma once

#include "support/TempHome.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/wait.h>

namespace tool_test {

struct ToolRun {
    std::string out;
    std::string err;
    int status = -1;
};

inline std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Runs the built "ondrel <arguments>" through the shell with both output streams captured.
inline ToolRun runOndrel(const std::string& arguments) {
    static const std::string folder = testing_support::makeTempFolder("ondrel-run").string();
    const std::string outFile = folder + "/out.txt", errFile = folder + "/err.txt";
    const std::string command =
        std::string("'") + ONDREL_EXECUTABLE + "' " + arguments + " >'" + outFile + "' 2>'" + errFile + "'";
    const int status = std::system(command.c_str());
    return {readFile(outFile), readFile(errFile), WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

} // namespace tool_test
