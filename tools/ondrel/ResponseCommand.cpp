#include "ResponseCommand.h"

#include "ResponsePlot.h"

#include "eq/EQBandDesign.h"
#include "eq/EQBiquadResponse.h"
#include "eq/EQResponses.h"
#include "foundation/Numbers.h"
#include "plugin/eq/ParameterMappings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <ostream>
#include <string_view>

namespace {

constexpr double kLowestFrequency = 10.0;
// The grid stops this fraction of Nyquist short of it, where a cut's response is exactly zero.
constexpr double kTopOfNyquist = 0.999;
constexpr double kMaximumGainDb = 30.0;
constexpr double kMaximumDbPerOctave = 96.0;
constexpr int32_t kDefaultPoints = 512;
constexpr int32_t kMaximumPoints = 1000000;

struct ShapeName {
    const char* name;
    FilterShape shape;
};

constexpr std::array<ShapeName, 10> kShapeNames{{
    {"bell", FilterShape::Bell},
    {"low-shelf", FilterShape::LowShelf},
    {"low-cut", FilterShape::LowCut},
    {"high-shelf", FilterShape::HighShelf},
    {"high-cut", FilterShape::HighCut},
    {"notch", FilterShape::Notch},
    {"band-pass", FilterShape::BandPass},
    {"tilt-shelf", FilterShape::TiltShelf},
    {"flat-tilt", FilterShape::FlatTilt},
    {"all-pass", FilterShape::AllPass},
}};

struct ResponseOptions {
    EQBandSettings band;
    std::string shapeName = "bell";
    std::string slopeText = "12";
    double sampleRate = 48000.0;
    int32_t points = kDefaultPoints;
    std::string pngFile;
};

// Thrown for any unusable option; its text is the message after "ondrel response: ".
struct OptionError {
    std::string message;
};

double parseNumber(const std::string& option, const std::string& text) {
    double value = 0.0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end || !std::isfinite(value))
        throw OptionError{option + " needs a number, got '" + text + "'"};
    return value;
}

double parseInRange(const std::string& option, const std::string& text, double minimum, double maximum) {
    const double value = parseNumber(option, text);
    if (value < minimum || value > maximum) {
        char range[96];
        std::snprintf(range, sizeof range, " must be between %g and %g, got '", minimum, maximum);
        throw OptionError{option + range + text + "'"};
    }
    return value;
}

int32_t parseCount(const std::string& option, const std::string& text, int32_t minimum, int32_t maximum) {
    const double value = parseInRange(option, text, minimum, maximum);
    if (std::floor(value) != value)
        throw OptionError{option + " needs a whole number, got '" + text + "'"};
    return static_cast<int32_t>(value);
}

double parsePositive(const std::string& option, const std::string& text) {
    const double value = parseNumber(option, text);
    if (value <= 0.0)
        throw OptionError{option + " must be above 0, got '" + text + "'"};
    return value;
}

FilterShape parseShape(const std::string& text) {
    for (const ShapeName& entry : kShapeNames)
        if (text == entry.name)
            return entry.shape;
    std::string names;
    for (const ShapeName& entry : kShapeNames)
        names += (names.empty() ? "" : ", ") + std::string(entry.name);
    throw OptionError{"unknown shape '" + text + "' (one of " + names + ")"};
}

float parseSlope(const std::string& text, FilterShape shape) {
    constexpr float kBrickwallSlope = 9.0f;
    if (text == "brickwall") {
        if (!isCut(shape))
            throw OptionError{"--slope brickwall applies to low-cut and high-cut only"};
        return kBrickwallSlope;
    }
    return dbPerOctaveToSlope(parseInRange("--slope", text, 0.0, kMaximumDbPerOctave));
}

ResponseOptions parseOptions(const std::vector<std::string>& arguments) {
    ResponseOptions options;
    for (size_t i = 0; i < arguments.size(); i += 2) {
        const std::string& option = arguments[i];
        static constexpr std::array<std::string_view, 8> kOptions{"--shape", "--freq", "--gain",   "--q",
                                                                  "--slope", "--rate", "--points", "--png"};
        if (std::find(kOptions.begin(), kOptions.end(), option) == kOptions.end())
            throw OptionError{"unknown option '" + option + "'"};
        if (i + 1 >= arguments.size())
            throw OptionError{option + " needs a value"};
        const std::string& value = arguments[i + 1];
        if (option == "--shape")
            options.shapeName = value;
        else if (option == "--freq")
            options.band.frequency = parsePositive(option, value);
        else if (option == "--gain")
            options.band.gain =
                static_cast<float>(parseInRange(option, value, -kMaximumGainDb, kMaximumGainDb));
        else if (option == "--q")
            options.band.q =
                static_cast<float>(parseInRange(option, value, qFromNormalized(0.0), qFromNormalized(1.0)));
        else if (option == "--slope")
            options.slopeText = value;
        else if (option == "--rate")
            options.sampleRate = parsePositive(option, value);
        else if (option == "--points")
            options.points = parseCount(option, value, 2, kMaximumPoints);
        else
            options.pngFile = value;
    }
    options.band.shape = parseShape(options.shapeName);
    options.band.slope = parseSlope(options.slopeText, options.band.shape);
    if (kTopOfNyquist * options.sampleRate / 2.0 <= kLowestFrequency)
        throw OptionError{"--rate must be above 20 Hz so that the grid from 10 Hz fits below Nyquist"};
    return options;
}

struct Row {
    double frequency;
    double analogDb, analogDegrees;
    double digitalDb, digitalDegrees;
};

void splitResponse(std::complex<float> value, double& db, double& degrees) {
    db = gainToDb(std::abs(value));
    degrees = std::arg(value) * 180.0 / std::numbers::pi;
}

std::vector<Row> computeRows(const ResponseOptions& options) {
    DiscreteFrequencyResponseSource::Mapping grid(
        true, static_cast<float>(kLowestFrequency),
        static_cast<float>(kTopOfNyquist * options.sampleRate / 2.0), options.points - 1);
    AnalogFilterPrototype analog;
    designBand(analog, options.band);

    // The biquads are designed at the band's angular frequency in radians per sample.
    const double radiansPerHz = 2.0 * std::numbers::pi / options.sampleRate;
    EQBandSettings digitalBand = options.band;
    digitalBand.frequency *= radiansPerHz;
    digitalBand.secondFrequency *= radiansPerHz;
    AnalogFilterPrototype digital;
    designBand(digital, digitalBand);

    EQAnalogResponse analogResponse(analog, grid);
    EQBiquadResponse digitalResponse(digital, grid, options.sampleRate);
    std::vector<Row> rows(static_cast<size_t>(grid.getNumPoints()));
    for (int32_t i = 0; i < grid.getNumPoints(); ++i) {
        Row& row = rows[static_cast<size_t>(i)];
        row.frequency = grid.getFrequencies()[static_cast<size_t>(i)];
        splitResponse(analogResponse.responseAt(i), row.analogDb, row.analogDegrees);
        splitResponse(digitalResponse.responseAt(i), row.digitalDb, row.digitalDegrees);
    }
    return rows;
}

void writeCsv(const std::vector<Row>& rows, std::ostream& out) {
    out << "hz,analog_db,analog_deg,digital_db,digital_deg\n";
    char line[160];
    for (const Row& row : rows) {
        std::snprintf(line, sizeof line, "%.6g,%.4f,%.3f,%.4f,%.3f\n", row.frequency, row.analogDb,
                      row.analogDegrees, row.digitalDb, row.digitalDegrees);
        out << line;
    }
}

ResponsePlotData plotData(const ResponseOptions& options, const std::vector<Row>& rows) {
    const EQBandSettings& band = options.band;
    char text[64];
    std::snprintf(text, sizeof text, "%g Hz", band.frequency);
    std::string title = options.shapeName + "  " + text;
    if (hasGain(band.shape)) {
        std::snprintf(text, sizeof text, "%+g dB", band.gain);
        title += std::string("  ") + text;
    }
    const bool brickwall = isBrickwall(band.shape, band.slope);
    if (!brickwall) {
        std::snprintf(text, sizeof text, "Q %g", band.q);
        title += std::string("  ") + text;
    }
    title += "  " + (brickwall ? std::string("brickwall") : options.slopeText + " dB/oct");
    std::snprintf(text, sizeof text, "at %g Hz", options.sampleRate);
    ResponsePlotData data;
    data.title = title + "  " + text;
    for (const Row& row : rows) {
        data.frequencies.push_back(row.frequency);
        data.analogDb.push_back(row.analogDb);
        data.digitalDb.push_back(row.digitalDb);
    }
    return data;
}

} // namespace

int runResponseCommand(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
    ResponseOptions options;
    try {
        options = parseOptions(arguments);
    } catch (const OptionError& error) {
        err << "ondrel response: " << error.message << '\n';
        return 2;
    }
    const std::vector<Row> rows = computeRows(options);
    writeCsv(rows, out);
    if (options.pngFile.empty())
        return 0;
    std::string error;
    if (!writeResponsePlot(plotData(options, rows), options.pngFile, error)) {
        err << "ondrel response: " << error << '\n';
        return 1;
    }
    return 0;
}
