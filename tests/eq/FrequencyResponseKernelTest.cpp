#include "eq/FrequencyResponseKernel.h"
#include "ConvolverTestUtil.h"
#include "eq/EQBandDesign.h"
#include "eq/EQResponses.h"
#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <functional>
#include <numbers>

namespace {

using Mapping = DiscreteFrequencyResponseSource::Mapping;
using Complex = std::complex<float>;

constexpr double kRate = 48000.0;
constexpr int32_t kLength = 4096;

// Answers grid index i with a given function.
class FunctionSource : public DiscreteFrequencyResponseSource {
public:
    FunctionSource(Mapping& mapping, std::function<Complex(int32_t)> value)
        : DiscreteFrequencyResponseSource(mapping), value(std::move(value)) {}

    Complex responseAt(int32_t index) override { return value(index); }

private:
    std::function<Complex(int32_t)> value;
};

Mapping kernelGrid(int32_t length) {
    return Mapping(false, 0.0f, static_cast<float>(kRate / 2.0), length / 2);
}

TEST(FrequencyResponseKernel, FlatResponseGivesTheCentredUnitImpulseWithoutAllocating) {
    Mapping grid = kernelGrid(kLength);
    FunctionSource flat(grid, [](int32_t) { return Complex(1.0f, 0.0f); });
    FrequencyResponseKernel<double> builder(kLength);
    const Convolver::Layout layout(kLength, 64);
    Convolver::Kernel kernel(layout);
    {
        testing_support::AllocationCounter allocations;
        ASSERT_TRUE(builder.build(flat, kernel));
        EXPECT_EQ(allocations.count(), 0u);
    }
    EXPECT_TRUE(kernel.isFilled());
    for (int32_t i = 0; i < kLength; ++i)
        ASSERT_NEAR(builder.getImpulseResponse()[i], i == kLength / 2 ? 1.0 : 0.0, 1e-12) << "tap " << i;
}

// A pure delay of d samples, e^(-2 pi i k d / N), must land d taps after the centre, weighted by
// the window there: this pins the direction of the turn and the window's alignment. (The source
// answers in float, hence the tolerance.)
TEST(FrequencyResponseKernel, DelayLandsAfterTheCentreWeightedByTheWindow) {
    constexpr int32_t kDelay = 700;
    Mapping grid = kernelGrid(kLength);
    FunctionSource delay(grid, [](int32_t k) {
        return std::polar(1.0f, static_cast<float>(-2.0 * std::numbers::pi * k * kDelay / kLength));
    });
    FrequencyResponseKernel<double> builder(kLength);
    ASSERT_TRUE(builder.build(delay));
    const double hann = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * (kLength / 2 + kDelay) / kLength);
    EXPECT_NEAR(builder.getImpulseResponse()[kLength / 2 + kDelay], hann, 1e-5);

    std::vector<double> ramp(kLength);
    for (int32_t i = 0; i < kLength; ++i)
        ramp[static_cast<size_t>(i)] = static_cast<double>(i) / kLength;
    builder.setWindow(ramp.data());
    ASSERT_TRUE(builder.build(delay));
    for (int32_t i = 0; i < kLength; ++i)
        ASSERT_NEAR(builder.getImpulseResponse()[i],
                    i == kLength / 2 + kDelay ? ramp[static_cast<size_t>(i)] : 0.0, 1e-5)
            << "tap " << i;
}

// A bell's magnitude on the kernel grid: the kernel's own response, measured by a DFT of its taps,
// matches it in magnitude and has the pure delay of the centre as its phase.
TEST(FrequencyResponseKernel, KernelResponseMatchesASmoothMagnitudeResponse) {
    Mapping grid = kernelGrid(kLength);
    AnalogFilterPrototype bell;
    designBand(bell, {FilterShape::Bell, 1.0f, 6.0f, 1.0f, 1000.0});
    EQMagnitudeResponse magnitude(bell, grid);
    FrequencyResponseKernel<double> builder(kLength);
    ASSERT_TRUE(builder.build(magnitude));
    double worstDb = 0.0, worstImaginary = 0.0;
    // Above 200 Hz the response changes little from bin to bin, so the window's smoothing is small.
    for (int32_t k = 18; k < kLength / 2; k += 7) {
        std::complex<double> sum = 0.0;
        for (int32_t n = 0; n < kLength; ++n)
            sum +=
                builder.getImpulseResponse()[n] * std::polar(1.0, -2.0 * std::numbers::pi * k * n / kLength);
        sum *= k % 2 == 0 ? 1.0 : -1.0; // remove the centring delay of N/2: (-1)^k
        const double target = std::sqrt(bell.squaredMagnitude(k * kRate / kLength));
        worstDb = std::max(worstDb, std::abs(20.0 * std::log10(sum.real() / target)));
        worstImaginary = std::max(worstImaginary, std::abs(sum.imag()));
    }
    EXPECT_LT(worstDb, 0.01);
    EXPECT_LT(worstImaginary, 1e-9);
}

TEST(FrequencyResponseKernel, RefusesForeignGridsNonFiniteResponsesAndMismatchedKernels) {
    FrequencyResponseKernel<double> builder(kLength);
    Mapping logarithmic(true, 20.0f, 24000.0f, kLength / 2), tooFine = kernelGrid(2 * kLength),
                                                             grid = kernelGrid(kLength);
    const auto one = [](int32_t) { return Complex(1.0f, 0.0f); };
    FunctionSource onLog(logarithmic, one), onFine(tooFine, one), flat(grid, one);
    EXPECT_FALSE(builder.build(onLog));
    EXPECT_FALSE(builder.build(onFine));
    FunctionSource broken(grid, [](int32_t k) { return Complex(k == 100 ? INFINITY : 1.0f, 0.0f); });
    EXPECT_FALSE(builder.build(broken));

    const Convolver::Layout shorter(kLength / 2, 64);
    Convolver::Kernel kernel(shorter);
    EXPECT_FALSE(builder.build(flat, kernel));
    EXPECT_FALSE(kernel.isFilled());
}

// End to end: a bell kernel in the convolver lifts a 1 kHz sine by the bell's gain there, after the
// reported latency.
TEST(FrequencyResponseKernel, ConvolverWithABellKernelAppliesTheBellsGain) {
    Mapping grid = kernelGrid(kLength);
    AnalogFilterPrototype bell;
    designBand(bell, {FilterShape::Bell, 1.0f, 6.0f, 1.0f, 1000.0});
    EQMagnitudeResponse magnitude(bell, grid);
    wave::Environment environment(256, 0);
    Convolver convolver(&environment, kLength, 64, 256);
    Convolver::Kernel* kernel = convolver.acquireFreeKernel();
    FrequencyResponseKernel<double> builder(kLength);
    ASSERT_TRUE(builder.build(magnitude, *kernel));
    convolver.publishKernel(kernel);

    convolver_test::Floats input(20000);
    for (size_t t = 0; t < input.size(); ++t)
        input[t] = static_cast<float>(
            0.25 * std::sin(2.0 * std::numbers::pi * 1000.0 * static_cast<double>(t) / kRate));
    const convolver_test::Floats output = convolver_test::run(convolver, input, {256});
    const auto latency = static_cast<size_t>(convolver.getLatency());
    const double gain = std::sqrt(bell.squaredMagnitude(1000.0));
    for (size_t t = kLength + latency; t < output.size(); ++t)
        ASSERT_NEAR(output[t], gain * input[t - latency], 2e-4) << "at " << t;
}

} // namespace
