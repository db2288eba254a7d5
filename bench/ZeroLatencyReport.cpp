// Sweeps the Zero Latency accuracy grid and prints, per shape, the worst deviation of the matched
// biquad cascade from the analog magnitude, where it happens, whether any section came out
// unstable or non-minimum-phase, and what a design costs on average (analog design included).
// Where the worst case is a one-section design it also prints what any single biquad reaches there
// and a proven lower bound for it, which tells the matching rule's share of the error from the
// structure's.
// Usage: zero_latency_report [frequencies-per-octave]

#include "eq/EQBandDesign.h"
#include "eq/MatchedSectionDesign.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <vector>

namespace {

using Shape = FilterShape;

constexpr double kPi = std::numbers::pi;
// Below this analog level a deviation in dB says nothing audible; both curves are floored here.
constexpr double kFloorDb = -80.0;
constexpr std::array<double, 3> kSampleRates{44100.0, 48000.0, 96000.0};

struct ShapeFamily {
    const char* name;
    Shape shape;
    std::vector<float> slopes;
    std::vector<float> gains;
    std::vector<float> qs;
};

struct Worst {
    double error = 0.0;
    double sampleRate = 0.0, frequency = 0.0, gain = 0.0, q = 0.0, slope = 0.0, at = 0.0;
};

struct Result {
    Worst sixteenth; // f0 <= fs/16
    Worst eighth;    // f0 <= fs/8
    Worst quarter;   // f0 <= fs/4
    Worst fortyPct;  // f0 <= 0.4 fs
    int64_t designs = 0;
    int64_t badSections = 0;
    double totalMicroseconds = 0.0;
};

double levelDb(double power) {
    return std::max(10.0 * std::log10(std::max(power, 1e-30)), kFloorDb);
}

double digitalPower(const DigitalSectionCoefficients* sections, int32_t count, double w) {
    const std::complex<double> z1 = std::polar(1.0, -w), z2 = z1 * z1;
    double power = 1.0;
    for (int32_t i = 0; i < count; ++i) {
        const auto& c = sections[i];
        power *= std::norm((c[0] + c[1] * z1 + c[2] * z2) / (1.0 + c[3] * z1 + c[4] * z2));
    }
    return power;
}

// Largest root magnitude of c0 z^2 + c1 z + c2 (0 when c0 is zero and the rest too).
double largestRoot(double c0, double c1, double c2) {
    if (c0 == 0.0)
        return c1 == 0.0 ? 0.0 : std::fabs(c2 / c1);
    const std::complex<double> root = std::sqrt(std::complex<double>(c1 * c1 - 4.0 * c0 * c2, 0.0));
    return std::max(std::abs((-c1 + root) / (2.0 * c0)), std::abs((-c1 - root) / (2.0 * c0)));
}

bool wellBehaved(const DigitalSectionCoefficients& c) {
    return largestRoot(1.0, c[3], c[4]) < 1.0 && largestRoot(c[0], c[1], c[2]) <= 1.0 + 1e-9;
}

void record(Worst& worst, double error, double fs, double f0, float gain, float q, float slope, double at) {
    if (error > worst.error)
        worst = {error, fs, f0, gain, q, slope, at};
}

Result sweep(const ShapeFamily& family, int32_t perOctave) {
    Result result;
    std::array<DigitalSectionCoefficients, AnalogFilterPrototype::kMaximumSections> sections{};
    AnalogFilterPrototype prototype;
    for (double fs : kSampleRates) {
        std::vector<double> grid;
        for (double f = 10.0; f < 0.45 * fs; f *= std::exp2(1.0 / (4.0 * perOctave)))
            grid.push_back(f);
        grid.push_back(0.45 * fs);
        for (double f0 = 20.0; f0 <= 0.4 * fs * 1.0000001; f0 *= std::exp2(1.0 / perOctave)) {
            for (float slope : family.slopes) {
                for (float gain : family.gains) {
                    for (float q : family.qs) {
                        const double w0 = 2.0 * kPi * f0 / fs;
                        const auto start = std::chrono::steady_clock::now();
                        designBand(prototype, {family.shape, slope, gain, q, w0, 1.0});
                        const int32_t count = designDigitalSections(
                            prototype, w0, CoefficientCalculation::MatchedMagnitude, DigitalForm::DirectForm,
                            kStaticGainTolerance, sections.data());
                        const double microseconds = std::chrono::duration<double, std::micro>(
                                                        std::chrono::steady_clock::now() - start)
                                                        .count();
                        result.totalMicroseconds += microseconds;
                        ++result.designs;
                        for (int32_t i = 0; i < count; ++i)
                            result.badSections += wellBehaved(sections[static_cast<size_t>(i)]) ? 0 : 1;
                        for (double f : grid) {
                            const double w = 2.0 * kPi * f / fs;
                            const double error = std::fabs(levelDb(digitalPower(sections.data(), count, w)) -
                                                           levelDb(prototype.squaredMagnitude(w)));
                            if (f0 <= fs / 16.0 * 1.0000001)
                                record(result.sixteenth, error, fs, f0, gain, q, slope, f);
                            if (f0 <= fs / 8.0 * 1.0000001)
                                record(result.eighth, error, fs, f0, gain, q, slope, f);
                            if (f0 <= 0.25 * fs * 1.0000001)
                                record(result.quarter, error, fs, f0, gain, q, slope, f);
                            record(result.fortyPct, error, fs, f0, gain, q, slope, f);
                        }
                    }
                }
            }
        }
    }
    return result;
}

// How well any single biquad could match a one-section analog design over 10 Hz .. 0.45 fs: a
// Lawson-weighted iteration of linearised least squares on the power ratio (N(c) - G D(c)) /
// (G D(c)), c = cos w, converges toward the minimax fit; its worst error is what a better rule
// could reach. The lower bound is exact: if the fit's dB errors alternate in sign at six points
// with magnitudes of at least e, no biquad does better than e on those points, because two
// biquads whose errors differ in sign at six points differ by N D' - N' D, a polynomial of degree
// four in c with five sign changes, hence not at all.
struct SingleBiquadBounds {
    double reached = 0.0;
    double lowerBound = 0.0;
};

// The largest e with six points of alternating sign whose errors are at least e in magnitude.
double alternationBound(const std::vector<double>& errors) {
    const auto alternates = [&errors](double threshold) {
        int count = 0;
        int lastSign = 0;
        for (double e : errors) {
            const int sign = e > 0.0 ? 1 : -1;
            if (std::fabs(e) >= threshold && sign != lastSign) {
                lastSign = sign;
                ++count;
            }
        }
        return count >= 6;
    };
    double low = 0.0;
    double high = 100.0;
    for (int i = 0; i < 60; ++i) {
        const double middle = 0.5 * (low + high);
        (alternates(middle) ? low : high) = middle;
    }
    return low;
}

SingleBiquadBounds singleBiquadBounds(const AnalogFilterPrototype& prototype, double fs) {
    std::vector<double> c;
    std::vector<double> g;
    for (double f = 10.0; f <= 0.45 * fs; f *= std::exp2(1.0 / 48.0)) {
        const double w = 2.0 * kPi * f / fs;
        c.push_back(std::cos(w));
        g.push_back(std::max(prototype.squaredMagnitude(w), 1e-8));
    }
    const size_t n = c.size();
    std::vector<double> weights(n, 1.0 / static_cast<double>(n));
    std::vector<double> previousDenominator(n, 1.0);
    std::vector<double> errors(n);
    SingleBiquadBounds bounds{1e9, 0.0};
    for (int iteration = 0; iteration < 300; ++iteration) {
        std::array<std::array<double, 6>, 5> m{};
        for (size_t i = 0; i < n; ++i) {
            const double scale = 1.0 / (g[i] * previousDenominator[i]);
            const double row[5] = {scale, c[i] * scale, c[i] * c[i] * scale, -g[i] * c[i] * scale,
                                   -g[i] * c[i] * c[i] * scale};
            for (int r = 0; r < 5; ++r) {
                for (int k = 0; k < 5; ++k)
                    m[r][k] += weights[i] * row[r] * row[k];
                m[r][5] += weights[i] * row[r] * g[i] * scale;
            }
        }
        for (int col = 0; col < 5; ++col) {
            int pivot = col;
            for (int r = col + 1; r < 5; ++r)
                if (std::fabs(m[r][col]) > std::fabs(m[pivot][col]))
                    pivot = r;
            std::swap(m[col], m[pivot]);
            if (std::fabs(m[col][col]) < 1e-300)
                return bounds;
            for (int r = 0; r < 5; ++r) {
                if (r == col)
                    continue;
                const double f = m[r][col] / m[col][col];
                for (int k = col; k < 6; ++k)
                    m[r][k] -= f * m[col][k];
            }
        }
        double x[5];
        for (int k = 0; k < 5; ++k)
            x[k] = m[k][5] / m[k][k];
        double worst = 0.0;
        bool realisable = true;
        for (size_t i = 0; i < n; ++i) {
            const double numerator = x[0] + x[1] * c[i] + x[2] * c[i] * c[i];
            const double denominator = 1.0 + x[3] * c[i] + x[4] * c[i] * c[i];
            const bool positive = numerator > 0.0 && denominator > 0.0;
            realisable = realisable && positive;
            errors[i] = positive ? 10.0 * std::log10(numerator / denominator / g[i]) : 99.0;
            worst = std::max(worst, std::fabs(errors[i]));
            previousDenominator[i] = std::max(denominator, 1e-12);
        }
        if (realisable && worst < bounds.reached) {
            bounds.reached = worst;
            bounds.lowerBound = std::max(bounds.lowerBound, alternationBound(errors));
        }
        double sum = 0.0;
        for (size_t i = 0; i < n; ++i)
            sum += (weights[i] *= std::fabs(errors[i]) + 1e-12);
        for (double& weight : weights)
            weight /= sum;
    }
    return bounds;
}

void print(const char* label, const Worst& w, Shape shape) {
    std::printf(
        "  %-12s %8.4f dB  (fs %.0f, f0 %.1f Hz, gain %+.1f dB, Q %.2f, slope %.1f dB/oct, at %.1f Hz)",
        label, w.error, w.sampleRate, w.frequency, w.gain, w.q, slopeToDbPerOctave(w.slope), w.at);
    AnalogFilterPrototype prototype;
    designBand(prototype, {shape, static_cast<float>(w.slope), static_cast<float>(w.gain),
                           static_cast<float>(w.q), 2.0 * kPi * w.frequency / w.sampleRate, 1.0});
    if (prototype.getNumSections() == 1) {
        const SingleBiquadBounds bounds = singleBiquadBounds(prototype, w.sampleRate);
        std::printf("  one biquad: %.4f reached, none below %.4f", bounds.reached, bounds.lowerBound);
    }
    std::printf("\n");
}

} // namespace

int main(int argc, char** argv) {
    const int32_t perOctave = argc > 1 ? std::max(1, std::atoi(argv[1])) : 6;
    const std::vector<float> gains{-30.0f, -18.0f, -12.0f, -6.0f, -1.0f, 1.0f, 6.0f, 12.0f, 18.0f, 30.0f};
    const std::vector<float> qs{0.1f, 0.3f, 0.7f, 1.0f, 2.0f, 5.0f, 10.0f};
    const std::vector<ShapeFamily> families{
        {"Bell", Shape::Bell, {1.0f}, gains, qs},
        {"Bell 24", Shape::Bell, {3.0f}, gains, qs},
        {"Low Shelf", Shape::LowShelf, {0.0f, 1.0f, 3.0f}, gains, qs},
        {"High Shelf", Shape::HighShelf, {0.0f, 1.0f, 3.0f}, gains, qs},
        {"Tilt Shelf", Shape::TiltShelf, {0.0f, 1.0f}, gains, qs},
        {"Low Cut", Shape::LowCut, {0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f, 8.0f}, {0.0f}, {1.0f}},
        {"High Cut", Shape::HighCut, {0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f, 8.0f}, {0.0f}, {1.0f}},
        {"Notch", Shape::Notch, {1.0f, 3.0f}, {0.0f}, qs},
        {"Band Pass", Shape::BandPass, {1.0f, 3.0f}, {0.0f}, qs},
    };
    std::printf("Matched biquads against the analog magnitude, 10 Hz .. 0.45 fs, levels floored at %.0f dB\n",
                kFloorDb);
    for (const auto& family : families) {
        const Result result = sweep(family, perOctave);
        std::printf("%s: %lld designs, %lld unstable or non-minimum-phase sections, %.2f us per design\n",
                    family.name, static_cast<long long>(result.designs),
                    static_cast<long long>(result.badSections),
                    result.totalMicroseconds / static_cast<double>(std::max<int64_t>(result.designs, 1)));
        print("f0<=fs/16", result.sixteenth, family.shape);
        print("f0<=fs/8", result.eighth, family.shape);
        print("f0<=fs/4", result.quarter, family.shape);
        print("f0<=0.4fs", result.fortyPct, family.shape);
    }
    return 0;
}
