#pragma once

#include <iosfwd>
#include <string>
#include <vector>

// "ondrel params [--json]": the equaliser's host parameter table as aligned text or as JSON.
int runParamsCommand(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);
