#include "RunOndrel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

namespace {

using tool_test::readFile;
using tool_test::ToolRun;

ToolRun runResponse(const std::string& arguments) {
    return tool_test::runOndrel("response " + arguments);
}

struct Row {
    double hz, analogDb, analogDeg, digitalDb, digitalDeg;
};

struct Csv {
    std::string header;
    std::vector<Row> rows;

    // The row whose frequency lies nearest (in log frequency) to hz.
    const Row& nearest(double hz) const {
        const Row* best = &rows.front();
        for (const Row& row : rows)
            if (std::fabs(std::log(row.hz / hz)) < std::fabs(std::log(best->hz / hz)))
                best = &row;
        return *best;
    }
};

Csv parseCsv(const std::string& text) {
    Csv csv;
    std::istringstream lines(text);
    std::getline(lines, csv.header);
    for (std::string line; std::getline(lines, line);) {
        Row row{};
        char tail = 0;
        EXPECT_EQ(std::sscanf(line.c_str(), "%lf,%lf,%lf,%lf,%lf%c", &row.hz, &row.analogDb, &row.analogDeg,
                              &row.digitalDb, &row.digitalDeg, &tail),
                  5)
            << line;
        csv.rows.push_back(row);
    }
    return csv;
}

// |H|^2 of an n-th order Butterworth high-pass at f / f0 = x, in dB.
double butterworthHighPassDb(int order, double x) {
    const double power = std::pow(x, 2 * order);
    return 10.0 * std::log10(power / (1.0 + power));
}

TEST(ResponseCommand, PrintsTheRequestedLogGridBelowNyquist) {
    const ToolRun run =
        runResponse("--shape bell --freq 1000 --gain 6 --q 1 --slope 12 --rate 48000 --points 101");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.err.empty());
    const Csv csv = parseCsv(run.out);
    EXPECT_EQ(csv.header, "hz,analog_db,analog_deg,digital_db,digital_deg");
    ASSERT_EQ(csv.rows.size(), 101u);
    EXPECT_DOUBLE_EQ(csv.rows.front().hz, 10.0);
    EXPECT_LT(csv.rows.back().hz, 24000.0);
    EXPECT_GT(csv.rows.back().hz, 23900.0);
    const double ratio = std::pow(csv.rows.back().hz / 10.0, 0.01);
    for (size_t i = 1; i < csv.rows.size(); ++i)
        EXPECT_NEAR(csv.rows[i].hz / csv.rows[i - 1].hz, ratio, 1e-4);

    // Default points, other rate: still from 10 Hz to just below its Nyquist.
    const Csv other = parseCsv(runResponse("--shape low-cut --freq 100 --rate 44100").out);
    ASSERT_GT(other.rows.size(), 100u);
    EXPECT_LT(other.rows.back().hz, 22050.0);
    EXPECT_GT(other.rows.back().hz, 21950.0);
}

TEST(ResponseCommand, BellReachesItsGainAtItsFrequency) {
    const Csv csv = parseCsv(
        runResponse("--shape bell --freq 1000 --gain 6 --q 1 --slope 12 --rate 48000 --points 401").out);
    ASSERT_EQ(csv.rows.size(), 401u);
    const Row& peak = csv.nearest(1000.0);
    EXPECT_NEAR(peak.hz, 1000.0, 10.0);
    EXPECT_NEAR(peak.analogDb, 6.0, 0.01);
    EXPECT_NEAR(peak.analogDeg, 0.0, 1.5);
    EXPECT_NEAR(peak.digitalDb, 6.0, 0.05);
    for (const Row& row : csv.rows) {
        EXPECT_LE(row.analogDb, 6.001);
        EXPECT_GE(row.analogDb, -0.001);
    }
    EXPECT_NEAR(csv.rows.front().analogDb, 0.0, 0.01);
    EXPECT_NEAR(csv.rows.front().digitalDb, 0.0, 0.01);
}

TEST(ResponseCommand, SlopeInDbPerOctaveSetsTheOrderOfACut) {
    for (const int dbPerOctave : {12, 24, 48}) {
        const Csv csv =
            parseCsv(runResponse("--shape low-cut --freq 1000 --q 1 --rate 48000 --points 301 --slope " +
                                 std::to_string(dbPerOctave))
                         .out);
        ASSERT_EQ(csv.rows.size(), 301u);
        const int order = dbPerOctave / 6;
        for (const double hz : {100.0, 500.0, 1000.0, 4000.0}) {
            const Row& row = csv.nearest(hz);
            EXPECT_NEAR(row.analogDb, butterworthHighPassDb(order, row.hz / 1000.0), 0.02)
                << dbPerOctave << " dB/oct at " << row.hz;
            EXPECT_NEAR(row.digitalDb, row.analogDb, 0.1) << dbPerOctave << " dB/oct at " << row.hz;
        }
    }
    // Fractional slopes and the brickwall are accepted; a brickwall falls much faster than 96 dB/oct.
    EXPECT_EQ(runResponse("--shape high-cut --freq 1000 --slope 7.5").status, 0);
    const Csv brickwall =
        parseCsv(runResponse("--shape high-cut --freq 1000 --slope brickwall --points 301").out);
    EXPECT_LT(brickwall.nearest(1400.0).analogDb, -60.0);
    EXPECT_GT(brickwall.nearest(700.0).analogDb, -1.0);
}

TEST(ResponseCommand, RejectsBadOptionsWithOneLineAndStatus2) {
    for (const char* arguments :
         {"--shape wobble", "--freq -100", "--freq 0", "--rate 0", "--rate -48000", "--gain abc",
          "--gain 6dB", "--freq", "--shape bell --q", "--bogus 1", "--points 1", "--points 2.5", "--q 0",
          "--slope -6", "--slope 200", "--shape bell --slope brickwall", "--gain 40", "extra"}) {
        const ToolRun run = runResponse(arguments);
        EXPECT_EQ(run.status, 2) << arguments;
        EXPECT_TRUE(run.out.empty()) << arguments;
        ASSERT_FALSE(run.err.empty()) << arguments;
        EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << arguments << ": " << run.err;
        EXPECT_EQ(run.err.rfind("ondrel response: ", 0), 0u) << run.err;
    }
    EXPECT_NE(runResponse("--shape wobble").err.find("wobble"), std::string::npos);
    EXPECT_NE(runResponse("--gain abc").err.find("--gain"), std::string::npos);
}

TEST(ResponseCommand, WritesAPlotAsPng) {
    const std::string folder = testing_support::makeTempFolder("response-plot").string();
    const std::string file = folder + "/bell.png";
    const ToolRun run = runResponse("--shape bell --freq 1000 --gain 6 --png '" + file + "'");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(parseCsv(run.out).header, "hz,analog_db,analog_deg,digital_db,digital_deg");
    const std::string png = readFile(file);
    ASSERT_GT(png.size(), 10000u); // a drawn plot, not an empty image
    EXPECT_EQ(png.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
    // IHDR: big-endian width and height.
    const auto word = [&](size_t at) {
        uint32_t value = 0;
        for (size_t i = 0; i < 4; ++i)
            value = (value << 8) | static_cast<unsigned char>(png[at + i]);
        return value;
    };
    EXPECT_EQ(png.substr(12, 4), "IHDR");
    EXPECT_GE(word(16), 800u);
    EXPECT_GE(word(20), 400u);

    const ToolRun unwritable = runResponse("--png '" + folder + "/missing/plot.png'");
    EXPECT_NE(unwritable.status, 0);
    EXPECT_NE(unwritable.err.find("cannot write"), std::string::npos);
}

} // namespace
