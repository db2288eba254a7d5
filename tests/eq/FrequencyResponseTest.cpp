#include "eq/EQBandDesign.h"
#include "eq/EQBiquadResponse.h"
#include "eq/EQResponses.h"
#include "eq/FrequencyResponseSource.h"
#include "eq/NaturalPhaseFrequencyResponseSource.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <complex>
#include <cstdint>
#include <functional>
#include <map>
#include <numbers>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using Mapping = DiscreteFrequencyResponseSource::Mapping;
using Complex = std::complex<float>;

constexpr double kPi = std::numbers::pi;

// A source whose values come from a function of the index; it records its invalidations.
class ScriptedSource : public DiscreteFrequencyResponseSource {
public:
    ScriptedSource(Mapping& mapping, std::function<Complex(int32_t)> values,
                   std::vector<std::string>* log = nullptr, std::string name = {})
        : DiscreteFrequencyResponseSource(mapping), values(std::move(values)), log(log),
          name(std::move(name)) {}

    Complex responseAt(int32_t index) override { return values(index); }
    void invalidate() override {
        if (log != nullptr)
            log->push_back(name);
    }

private:
    std::function<Complex(int32_t)> values;
    std::vector<std::string>* log;
    std::string name;
};

// Answers (index, 0) and counts how often each index was computed.
class CountingCachedSource : public CachedDiscreteFrequencyResponseSource {
public:
    using CachedDiscreteFrequencyResponseSource::CachedDiscreteFrequencyResponseSource;
    std::map<int32_t, int> computed;

protected:
    Complex computeResponse(int32_t index) override {
        ++computed[index];
        return {static_cast<float>(index), 0.0f};
    }
};

// Squared magnitude (index + 1)^2, so the magnitude is index + 1; records every run computed.
class CountingMagnitudeSource : public CachedDiscreteMagnitudeResponseSource {
public:
    struct Run {
        int32_t first;
        int32_t count;
        bool aligned;
    };

    using CachedDiscreteMagnitudeResponseSource::CachedDiscreteMagnitudeResponseSource;
    std::vector<Run> runs;
    std::vector<int32_t> singles;

protected:
    static float value(int32_t index) { return static_cast<float>((index + 1) * (index + 1)); }
    float computeSquaredMagnitude(int32_t index) override {
        singles.push_back(index);
        return value(index);
    }
    void computeSquaredMagnitudes(int32_t first, int32_t count, float* out) override {
        runs.push_back({first, count, reinterpret_cast<std::uintptr_t>(out) % 16 == 0});
        for (int32_t i = 0; i < count; ++i)
            out[i] = value(first + i);
    }
};

TEST(FrequencyGrid, LogarithmicAndLinearGridsHaveStepsPlusOnePoints) {
    Mapping log(true, 20.0f, 20000.0f, 3);
    ASSERT_EQ(log.getNumPoints(), 4);
    EXPECT_NEAR(log.getStep(), std::log(1000.0) / 3.0, 1e-6);
    for (size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(log.getFrequencies()[i], 20.0 * std::pow(10.0, i), 20.0 * std::pow(10.0, i) * 1e-5);

    Mapping linear(false, 0.0f, 24000.0f, 4);
    EXPECT_FLOAT_EQ(linear.getStep(), 6000.0f);
    EXPECT_EQ(linear.getFrequencies(), (std::vector<float>{0.0f, 6000.0f, 12000.0f, 18000.0f, 24000.0f}));

    // Changing any property recomputes the grid.
    linear.setNumSteps(8);
    EXPECT_EQ(linear.getNumPoints(), 9);
    EXPECT_FLOAT_EQ(linear.getFrequencies()[1], 3000.0f);
    linear.setStartFrequency(8000.0f);
    EXPECT_FLOAT_EQ(linear.getStep(), 2000.0f);
    EXPECT_FLOAT_EQ(linear.getFrequencies().back(), 24000.0f);
    linear.setLogarithmic(true);
    EXPECT_NEAR(linear.getFrequencies()[4], std::sqrt(8000.0 * 24000.0), 0.01);
    EXPECT_FLOAT_EQ(linear.frequencyAt(-8), 8000.0f / 3.0f);
}

TEST(FrequencyGrid, TellsThePrimaryListenerFirstThenTheNewestListeners) {
    Mapping mapping(true, 20.0f, 20000.0f, 10);
    std::vector<std::string> log;
    const auto zero = [](int32_t) { return Complex{}; };
    ScriptedSource first(mapping, zero, &log, "first");
    ScriptedSource second(mapping, zero, &log, "second");
    ScriptedSource primary(mapping, zero, &log, "primary");
    mapping.removeListener(&primary);
    mapping.setPrimaryListener(&primary);
    {
        ScriptedSource third(mapping, zero, &log, "third");
        mapping.setEndFrequency(10000.0f);
        EXPECT_EQ(log, (std::vector<std::string>{"primary", "third", "second", "first"}));
    }
    log.clear();
    mapping.setEndFrequency(10000.0f); // unchanged: nobody is told
    EXPECT_TRUE(log.empty());
    mapping.setLogarithmic(false); // a destroyed source is no longer told
    EXPECT_EQ(log, (std::vector<std::string>{"primary", "second", "first"}));
}

TEST(FrequencyGrid, FrequencyLookupRoundsHalvesAwayFromZero) {
    const auto index = [](int32_t i) { return Complex{static_cast<float>(i), 0.0f}; };
    Mapping linear(false, 0.0f, 40.0f, 4), log(true, 100.0f, 1600.0f, 4); // log: an octave per step
    ScriptedSource source(linear, index), logSource(log, index);
    const std::pair<float, float> linearCases[] = {
        {15.0f, 2.0f}, {14.9f, 1.0f}, {-15.0f, -2.0f}, {-14.9f, -1.0f}};
    for (const auto& [hz, expected] : linearCases)
        EXPECT_EQ(source.responseAtFrequency(hz).real(), expected) << hz;
    const std::pair<float, float> logCases[] = {{50.0f, -1.0f}, {390.0f, 2.0f}, {3200.0f, 5.0f}};
    for (const auto& [hz, expected] : logCases)
        EXPECT_EQ(logSource.responseAtFrequency(hz).real(), expected) << hz;
}

TEST(FrequencyResponseSource, RunsAndSquaredMagnitudesComeFromTheIndexedResponse) {
    Mapping mapping(false, 0.0f, 10.0f, 10);
    ScriptedSource source(mapping, [](int32_t index) { return Complex{3.0f, static_cast<float>(index)}; });
    std::array<Complex, 3> run{};
    source.responses(4, 3, run.data());
    EXPECT_EQ(run[2], (Complex{3.0f, 6.0f}));
    std::array<float, 2> powers{};
    source.squaredMagnitudes(4, 2, powers.data());
    EXPECT_FLOAT_EQ(powers[0], 25.0f);
    EXPECT_FLOAT_EQ(powers[1], 34.0f);
}

TEST(CachedFrequencyResponse, CacheGrowsOnlySequentiallyAndEmptiesOnAMappingChange) {
    Mapping mapping(true, 100.0f, 1600.0f, 4);
    CountingCachedSource source(mapping);

    // Index 3 before 0..2: computed each time, never stored.
    EXPECT_EQ(source.responseAt(3).real(), 3.0f);
    EXPECT_EQ(source.responseAt(3).real(), 3.0f);
    EXPECT_EQ(source.computed[3], 2);
    EXPECT_EQ(source.getValidCount(), 0);

    for (int32_t i = 0; i <= 4; ++i)
        EXPECT_EQ(source.responseAt(i).real(), static_cast<float>(i));
    EXPECT_EQ(source.getValidCount(), 5);
    source.computed.clear();
    for (int32_t i = 0; i <= 4; ++i)
        source.responseAt(i);
    EXPECT_TRUE(source.computed.empty());

    // Beyond either end of the grid: computed, never stored.
    EXPECT_EQ(source.responseAtFrequency(30.0f).real(), -2.0f);
    EXPECT_EQ(source.responseAtFrequency(30.0f).real(), -2.0f);
    EXPECT_EQ(source.responseAt(5).real(), 5.0f);
    EXPECT_EQ(source.responseAt(5).real(), 5.0f);
    EXPECT_EQ(source.computed[-2], 2);
    EXPECT_EQ(source.computed[5], 2);
    EXPECT_EQ(source.getValidCount(), 5);

    mapping.setNumSteps(8); // a mapping change empties and resizes the cache
    EXPECT_EQ(source.getValidCount(), 0);
    source.computed.clear();
    for (int32_t i = 0; i <= 8; ++i)
        source.responseAt(i);
    EXPECT_EQ(source.getValidCount(), 9);
    EXPECT_EQ(source.computed.size(), 9u);
}

TEST(CachedMagnitudeResponse, ExtendsTheCacheInAlignedRunsOfFourWithZeroPhase) {
    Mapping mapping(false, 0.0f, 9.0f, 9); // 10 points
    CountingMagnitudeSource source(mapping);
    const auto run = [&](size_t i) {
        const auto& r = source.runs.at(i);
        return std::tuple{r.first, r.count, r.aligned};
    };
    std::array<float, 4> out{};
    source.squaredMagnitudes(5, 2, out.data());
    EXPECT_EQ(out[0], 36.0f);
    EXPECT_EQ(out[1], 49.0f);
    ASSERT_EQ(source.runs.size(), 1u);
    EXPECT_EQ(run(0), std::tuple(0, 8, true));

    // Served from the cache: nothing new computed.
    source.squaredMagnitudes(0, 4, out.data());
    EXPECT_EQ(out[3], 16.0f);
    EXPECT_EQ(source.runs.size(), 1u);

    // The end is rounded up to 12 but stops at the grid's 10 points.
    source.squaredMagnitudes(7, 3, out.data());
    ASSERT_EQ(source.runs.size(), 2u);
    EXPECT_EQ(run(1), std::tuple(8, 2, true));
    EXPECT_EQ(out[2], 100.0f);
    EXPECT_EQ(source.getValidCount(), 10);

    // Outside the grid: computed directly, the cache is left alone.
    source.squaredMagnitudes(-2, 3, out.data());
    EXPECT_EQ(out[0], 1.0f);
    EXPECT_EQ(out[2], 1.0f);
    source.squaredMagnitudes(8, 3, out.data());
    EXPECT_EQ(out[2], 121.0f);
    ASSERT_EQ(source.runs.size(), 4u);
    EXPECT_EQ(source.runs[2].first, -2);
    EXPECT_EQ(source.runs[3].first, 8);
    EXPECT_EQ(source.responseAt(12), (Complex{13.0f, 0.0f}));
    EXPECT_EQ(source.singles, std::vector<int32_t>{12});
    EXPECT_EQ(source.getValidCount(), 10);

    // Single reads: zero phase, the cache filled in runs 0..3, 4..7, 8..9.
    CountingMagnitudeSource fresh(mapping);
    for (int32_t i = 0; i < 10; ++i)
        EXPECT_EQ(fresh.responseAt(i), (Complex{static_cast<float>(i + 1), 0.0f}));
    ASSERT_EQ(fresh.runs.size(), 3u);
    EXPECT_EQ(fresh.runs[2].count, 2);
    mapping.setNumSteps(20); // invalidation
    EXPECT_EQ(fresh.getValidCount(), 0);
    std::array<float, 21> all{};
    fresh.squaredMagnitudes(0, 21, all.data());
    EXPECT_EQ(all[20], 441.0f);
    EXPECT_EQ(fresh.runs.back().count, 21);
}

// A 12 dB/oct Butterworth high-pass: H(s) = s^2 / (s^2 + sqrt2 s + 1) with s = j f / f0.
std::complex<double> butterworthHighPass(double frequency, double f0) {
    const std::complex<double> s{0.0, frequency / f0};
    return s * s / (s * s + std::numbers::sqrt2 * s + 1.0);
}

AnalogFilterPrototype bandPrototype(FilterShape shape, double frequency, float gainDb, float q = 1.0f,
                                    float slope = 1.0f) {
    AnalogFilterPrototype prototype;
    designBand(prototype, {shape, slope, gainDb, q, frequency});
    return prototype;
}

TEST(AnalogBandResponses, FollowTheAnalogDesignInHertz) {
    Mapping mapping(true, 10.0f, 20480.0f, 11); // octaves from 10 Hz
    const AnalogFilterPrototype lowCut = bandPrototype(FilterShape::LowCut, 640.0, 0.0f);
    EQAnalogResponse analog(lowCut, mapping);
    EQMagnitudeResponse magnitude(lowCut, mapping);
    std::array<float, 12> powers{};
    magnitude.squaredMagnitudes(0, 12, powers.data());
    for (int32_t i = 0; i < 12; ++i) {
        const double f = mapping.getFrequencies()[static_cast<size_t>(i)];
        const std::complex<double> expected = butterworthHighPass(f, 640.0);
        EXPECT_LT(std::abs(std::complex<double>(analog.responseAt(i)) - expected), 1e-4) << f;
        EXPECT_NEAR(powers[static_cast<size_t>(i)], std::norm(expected), 1e-4) << f;
        EXPECT_EQ(magnitude.responseAt(i).imag(), 0.0f);
    }
    EXPECT_NEAR(std::abs(analog.responseAt(6)), std::sqrt(0.5), 1e-4); // -3 dB at f0

    // Out-of-grid values are the design's too.
    EXPECT_NEAR(magnitude.squaredMagnitudeAt(-1), std::norm(butterworthHighPass(5.0, 640.0)), 1e-9);

    // The owner re-designs and invalidates: a 6 dB bell peaks at exactly its gain at f0.
    AnalogFilterPrototype bell = bandPrototype(FilterShape::Bell, 640.0, 0.0f);
    EQMagnitudeResponse bellMagnitude(bell, mapping);
    EXPECT_NEAR(bellMagnitude.squaredMagnitudeAt(6), 1.0, 1e-5);
    bell = bandPrototype(FilterShape::Bell, 640.0, 6.0f);
    bellMagnitude.invalidate();
    EXPECT_NEAR(10.0 * std::log10(bellMagnitude.squaredMagnitudeAt(6)), 6.0, 1e-3);
}

// Direct form I, one section after the other: the filter as a sample loop.
std::vector<double> impulseResponse(const EQBiquadResponse& source, int32_t length) {
    std::vector<double> signal(static_cast<size_t>(length), 0.0);
    signal[0] = 1.0;
    for (int32_t s = 0; s < source.getNumSections(); ++s) {
        const auto& [b0, b1, b2, a1, a2] = source.getSection(s);
        double x1 = 0.0, x2 = 0.0, y1 = 0.0, y2 = 0.0;
        for (double& sample : signal) {
            const double y = b0 * sample + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
            x2 = x1;
            x1 = sample;
            y2 = y1;
            y1 = y;
            sample = y;
        }
    }
    return signal;
}

std::complex<double> dft(const std::vector<double>& signal, double w) {
    std::complex<double> sum;
    for (size_t n = 0; n < signal.size(); ++n)
        sum += signal[n] * std::polar(1.0, -w * static_cast<double>(n));
    return sum;
}

TEST(BiquadBandResponse, EqualsTheSpectrumOfTheCascadeAsRun) {
    constexpr double kRate = 48000.0;
    Mapping mapping(true, 20.0f, 23000.0f, 40);
    struct Case {
        FilterShape shape;
        float gain;
        float slope;
    };
    for (const Case& band :
         {Case{FilterShape::Bell, 6.0f, 1.0f}, Case{FilterShape::LowCut, 0.0f, 3.0f},
          Case{FilterShape::HighShelf, -9.0f, 1.0f}, Case{FilterShape::HighCut, 0.0f, 9.0f}}) {
        const AnalogFilterPrototype prototype =
            bandPrototype(band.shape, 2.0 * kPi * 1000.0 / kRate, band.gain, 1.0f, band.slope);
        EQBiquadResponse source(prototype, mapping, kRate);
        ASSERT_GT(source.getNumSections(), 0);
        const std::vector<double> impulse = impulseResponse(source, 16384);
        for (int32_t i = 0; i < mapping.getNumPoints(); ++i) {
            const double w = 2.0 * kPi * mapping.getFrequencies()[static_cast<size_t>(i)] / kRate;
            const std::complex<double> expected = dft(impulse, w);
            const std::complex<double> value = source.responseAt(i);
            EXPECT_LT(std::abs(value - expected), 1e-3 * (1.0 + std::abs(expected)))
                << static_cast<int>(band.shape) << " " << i;
        }
    }
}

TEST(BiquadBandResponse, ConvertsHertzWithTheSampleRateAndRedesignsOnInvalidate) {
    const auto levelDb = [](Complex value) { return 20.0 * std::log10(std::abs(value)); };
    Mapping mapping(true, 125.0f, 8000.0f, 6); // octaves: index 3 is 1000 Hz
    for (const double rate : {44100.0, 96000.0}) {
        AnalogFilterPrototype prototype = bandPrototype(FilterShape::Bell, 2.0 * kPi * 1000.0 / rate, 6.0f);
        EQBiquadResponse source(prototype, mapping, rate);
        EXPECT_NEAR(levelDb(source.responseAt(3)), 6.0, 0.05) << rate;
        const AnalogFilterPrototype analog = bandPrototype(FilterShape::Bell, 1000.0, 6.0f);
        EXPECT_NEAR(levelDb(source.responseAt(0)), 10.0 * std::log10(analog.squaredMagnitude(125.0)), 0.02)
            << rate;

        prototype = bandPrototype(FilterShape::Bell, 2.0 * kPi * 1000.0 / rate, -12.0f);
        EXPECT_NEAR(levelDb(source.responseAt(3)), 6.0, 0.05); // cached until invalidated
        source.invalidate();
        EXPECT_NEAR(levelDb(source.responseAt(3)), -12.0, 0.05) << rate;
    }
}

TEST(NaturalPhaseResponse, DividesTheNumeratorProductByTheDenominatorProduct) {
    Mapping mapping(false, 0.0f, 1000.0f, 100);
    ScriptedSource first(mapping, [](int32_t i) { return Complex{1.0f, static_cast<float>(i)}; });
    ScriptedSource second(mapping, [](int32_t) { return Complex{2.0f, 0.0f}; });
    ScriptedSource denominator(mapping, [](int32_t) { return Complex{0.0f, 2.0f}; });
    NaturalPhaseFrequencyResponseSource correction(mapping);
    correction.addNumeratorSource(first);
    correction.addNumeratorSource(second);
    correction.addDenominatorSource(denominator);
    // (1 + j i) * 2 / 2j = i - j
    std::array<Complex, 4> run{};
    correction.responses(0, 4, run.data());
    for (int32_t i = 0; i < 4; ++i) {
        EXPECT_NEAR(run[static_cast<size_t>(i)].real(), static_cast<float>(i), 1e-6);
        EXPECT_NEAR(run[static_cast<size_t>(i)].imag(), -1.0f, 1e-6);
    }

    correction.clearSources();
    EXPECT_EQ(correction.responseAt(7), (Complex{1.0f, 0.0f}));
    for (int32_t i = 0; i < NaturalPhaseFrequencyResponseSource::kMaximumSources; ++i)
        EXPECT_TRUE(correction.addDenominatorSource(second));
    EXPECT_FALSE(correction.addDenominatorSource(second));
    EXPECT_NEAR(correction.responseAt(0).real(), std::pow(0.5, 24), 1e-12);
}

// A correction over a biquad response with a zero at index `zero`: the numerator is chosen per index.
struct ZeroScenario {
    Mapping mapping{false, 0.0f, 1000.0f, 300};
    std::function<Complex(int32_t)> numeratorValues;
    std::function<Complex(int32_t)> denominatorValues;
    ScriptedSource numerator{mapping, [this](int32_t i) { return numeratorValues(i); }};
    ScriptedSource denominator{mapping, [this](int32_t i) { return denominatorValues(i); }};
    NaturalPhaseFrequencyResponseSource correction{mapping};

    ZeroScenario() {
        correction.addNumeratorSource(numerator);
        correction.addDenominatorSource(denominator);
    }
    std::vector<Complex> run(int32_t first, int32_t count) {
        std::vector<Complex> out(static_cast<size_t>(count));
        correction.responses(first, count, out.data());
        return out;
    }
};

TEST(NaturalPhaseResponse, KeepsThePreviousValueAtZerosOfTheBiquadResponse) {
    ZeroScenario scenario;
    const Complex before = std::polar(1.5f, 0.3f);
    // The biquad response has a zero at index 12 (|D|^2 = 1e-8) and a shallow dip at 13 (|D|^2 = 5e-5).
    scenario.denominatorValues = [](int32_t i) {
        return i == 12 ? Complex{1e-4f, 0.0f}
                       : (i == 13 ? Complex{std::sqrt(5e-5f), 0.0f} : Complex{1.0f, 0.0f});
    };

    // A huge quotient at the zero is rejected; the dip's phase jump is rejected when the next index
    // returns to the previous phase.
    scenario.numeratorValues = [&](int32_t i) {
        if (i == 12)
            return Complex{1e-4f * 50.0f, 0.0f}; // |H|^2 = 2500 > 22.5
        if (i == 13)
            return std::polar(1.5f, 1.3f) * std::sqrt(5e-5f);
        return before;
    };
    std::vector<Complex> out = scenario.run(10, 5);
    for (const Complex& value : out) {
        EXPECT_NEAR(value.real(), before.real(), 1e-5);
        EXPECT_NEAR(value.imag(), before.imag(), 1e-5);
    }

    // A quotient within the allowed range at the zero, and a phase step the next index continues,
    // are accepted.
    scenario.numeratorValues = [&](int32_t i) {
        if (i == 12)
            return Complex{1e-4f * 2.0f, 0.0f}; // |H|^2 = 4 within [0.001, 22.5]
        if (i >= 13)
            return std::polar(1.5f, 1.3f) * (i == 13 ? std::sqrt(5e-5f) : 1.0f);
        return before;
    };
    out = scenario.run(10, 5);
    EXPECT_NEAR(out[2].real(), 2.0f, 1e-4);
    EXPECT_NEAR(std::arg(out[3]), 1.3f, 1e-4);
    EXPECT_NEAR(std::arg(out[4]), 1.3f, 1e-4);

    // At a zero, a quotient above 10000 in power (even with a continuous phase) or below 0.001 x |last|^2
    // is rejected too.
    const std::pair<float, Complex> rejected[] = {{0.009f, std::polar(0.009f * 120.0f, 0.3f)},
                                                  {0.0009f, Complex{0.0009f * 0.01f, 0.0f}}};
    for (const auto& c : rejected) {
        scenario.denominatorValues = [c](int32_t i) { return Complex{i == 12 ? c.first : 1.0f, 0.0f}; };
        scenario.numeratorValues = [c, before](int32_t i) { return i == 12 ? c.second : before; };
        EXPECT_NEAR(scenario.run(11, 2)[1].real(), before.real(), 1e-5);
    }
}

TEST(NaturalPhaseResponse, StartsARunAtAZeroWithoutItsPhase) {
    ZeroScenario scenario;
    scenario.denominatorValues = [](int32_t) { return Complex{0.005f, 0.0f}; };
    scenario.numeratorValues = [](int32_t) { return std::polar(0.005f * 3.0f, 0.05f); };
    EXPECT_NEAR(scenario.correction.responseAt(20).real(), 3.0f, 1e-4);
    EXPECT_EQ(scenario.correction.responseAt(20).imag(), 0.0f);
    scenario.numeratorValues = [](int32_t) { return std::polar(0.005f * 3.0f, 0.5f); };
    EXPECT_EQ(scenario.correction.responseAt(20), (Complex{1.0f, 0.0f}));
    // Away from a zero the first index keeps its phase.
    scenario.denominatorValues = [](int32_t) { return Complex{1.0f, 0.0f}; };
    EXPECT_NEAR(std::arg(scenario.correction.responseAt(20)), 0.5f, 1e-5);
}

TEST(NaturalPhaseResponse, PhaseFadesToZeroOverTheLastEightPointsBelow256) {
    ZeroScenario scenario;
    scenario.denominatorValues = [](int32_t) { return Complex{1.0f, 0.0f}; };
    scenario.numeratorValues = [](int32_t) { return std::polar(2.0f, 1.0f); };
    const std::vector<Complex> out = scenario.run(240, 20);
    const auto at = [&](int32_t index) { return out[static_cast<size_t>(index - 240)]; };
    EXPECT_NEAR(std::arg(at(248)), 1.0, 1e-6);
    EXPECT_NEAR(std::arg(at(250)), 1.0 - 1.0 / 16.0, 1e-6);
    EXPECT_NEAR(std::arg(at(252)), 0.75, 1e-6);
    EXPECT_NEAR(std::arg(at(255)), 1.0 - 49.0 / 64.0, 1e-6);
    EXPECT_NEAR(std::arg(at(256)), 0.0, 1e-7);
    EXPECT_NEAR(std::arg(at(259)), 0.0, 1e-7);
    for (int32_t i = 249; i <= 256; ++i) {
        EXPECT_LT(std::arg(at(i)), std::arg(at(i - 1)));
        EXPECT_NEAR(std::abs(at(i)), 2.0, 1e-6);
    }

    // An infinite magnitude passes through rather than turning into NaN.
    scenario.numeratorValues = [](int32_t) { return Complex{INFINITY, 0.0f}; };
    EXPECT_TRUE(std::isinf(scenario.correction.responseAt(252).real()));
}

} // namespace
