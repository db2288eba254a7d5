#pragma once

#include <string>
#include <vector>

// Two magnitude curves over a log frequency axis.
struct ResponsePlotData {
    std::string title;
    std::vector<double> frequencies; // Hz, increasing
    std::vector<double> analogDb;
    std::vector<double> digitalDb;
};

// Draws the curves on a labelled dB / frequency grid and writes a PNG file. Returns false and sets
// error when the file cannot be written.
bool writeResponsePlot(const ResponsePlotData& data, const std::string& file, std::string& error);
