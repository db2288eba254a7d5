#pragma once

#include <iosfwd>
#include <string>
#include <vector>

// "ondrel response --shape bell --freq 1000 --gain 6 --q 1 --slope 12 --rate 48000 [--points N]
// [--png FILE]": one band's analog response and its Zero Latency biquads as run, as CSV on a log
// grid from 10 Hz to just below Nyquist, and optionally as a plot.
int runResponseCommand(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);
