#include "eq/FFTPlan.h"
#include "eq/FFTStepper.h"
#include "eq/FFTWindow.h"

#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <numbers>
#include <random>
#include <vector>

namespace {

template <class T>
std::vector<T> randomSignal(int32_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> distribution(-1.0, 1.0);
    std::vector<T> signal(static_cast<size_t>(size));
    for (T& value : signal)
        value = static_cast<T>(distribution(generator));
    return signal;
}

template <class T>
double relativeError(const std::vector<T>& actual, const std::vector<T>& expected) {
    double error = 0.0, norm = 0.0;
    for (size_t i = 0; i < expected.size(); ++i) {
        error += std::pow(static_cast<double>(actual[i]) - expected[i], 2.0);
        norm += std::pow(static_cast<double>(expected[i]), 2.0);
    }
    return std::sqrt(error / norm);
}

// The N/2 + 1 bins of a direct DFT in long double, packed as FFTPlan documents.
std::vector<long double> directPackedDft(const std::vector<double>& x) {
    const auto size = static_cast<int64_t>(x.size());
    std::vector<long double> packed(x.size());
    for (int64_t k = 0; k <= size / 2; ++k) {
        std::complex<long double> sum = 0.0L;
        for (int64_t i = 0; i < size; ++i) {
            const long double angle = -2.0L * std::numbers::pi_v<long double> * ((k * i) % size) / size;
            sum +=
                std::complex<long double>(std::cos(angle), std::sin(angle)) * static_cast<long double>(x[i]);
        }
        if (k == 0)
            packed[0] = sum.real();
        else if (k == size / 2)
            packed[1] = sum.real();
        else {
            packed[2 * k] = sum.real();
            packed[2 * k + 1] = sum.imag();
        }
    }
    return packed;
}

std::vector<std::complex<double>> unpack(const std::vector<double>& packed) {
    const size_t half = packed.size() / 2;
    std::vector<std::complex<double>> bins(half + 1);
    bins[0] = packed[0];
    bins[half] = packed[1];
    for (size_t k = 1; k < half; ++k)
        bins[k] = {packed[2 * k], packed[2 * k + 1]};
    return bins;
}

enum class Budgets { kAllAtOnce, kSingleUnits, kRandom };

template <class T>
std::vector<T> transformInSteps(typename FFTStepper<T>::Direction direction, const std::vector<T>& input,
                                Budgets budgets, int32_t* calls) {
    const FFTPlan<T> plan(static_cast<int32_t>(input.size()));
    FFTStepper<T> stepper(plan);
    std::vector<T> output(input.size(), T(-7));
    std::mt19937 generator(99);
    std::uniform_int_distribution<int32_t> randomBudget(1, std::max(1, plan.getTotalCost() / 8));
    stepper.start(direction, input.data(), output.data());
    *calls = 0;
    while (!stepper.isFinished()) {
        int32_t budget = budgets == Budgets::kAllAtOnce     ? plan.getTotalCost()
                         : budgets == Budgets::kSingleUnits ? 1
                                                            : randomBudget(generator);
        stepper.step(budget);
        ++*calls;
    }
    return output;
}

template <class T>
class FFTTransform : public testing::Test {};
using Precisions = testing::Types<float, double>;
TYPED_TEST_SUITE(FFTTransform, Precisions);

} // namespace

TEST(FFTPlan, SizeIsTheNextPowerOfTwo) {
    const struct {
        int32_t requested, size, order;
    } cases[] = {{1000, 1024, 10}, {1024, 1024, 10}, {1025, 2048, 11}, {1, 1, 0},
                 {0, 1, 0},        {-3, 1, 0},       {3, 4, 2},        {131072, 131072, 17}};
    for (const auto& c : cases) {
        const FFTPlan<double> plan(c.requested);
        EXPECT_EQ(plan.getSize(), c.size) << c.requested;
        EXPECT_EQ(plan.getOrder(), c.order) << c.requested;
        EXPECT_EQ(plan.getRequestedLength(), c.requested);
        EXPECT_DOUBLE_EQ(plan.getScale(), 1.0 / c.size);
    }
}

TEST(FFTPlan, BitReversalTableReversesTheIndexBits) {
    for (int32_t size : {1, 2, 8, 1024}) {
        const FFTPlan<float> plan(size);
        for (int32_t i = 0; i < size; ++i) {
            int32_t reversed = 0;
            for (int32_t bit = 0; bit < plan.getOrder(); ++bit)
                reversed |= ((i >> bit) & 1) << (plan.getOrder() - 1 - bit);
            EXPECT_EQ(plan.getBitReversal()[i], reversed) << size << " at " << i;
        }
    }
}

TEST(FFTPlan, StageCostsFollowTheCostModel) {
    const FFTPlan<double> large(2048);
    const std::vector<int32_t> expected{2048, 3 * 2048, 2048, 2048, 2048,    2048,
                                        2048, 2048,     2048, 2048, 2 * 2048};
    ASSERT_EQ(large.getStageCount(), 11);
    for (int32_t stage = 0; stage < 11; ++stage)
        EXPECT_EQ(large.getStageCost(stage), expected[static_cast<size_t>(stage)]) << stage;
    EXPECT_EQ(large.getTotalCost(), 14 * 2048);
    EXPECT_EQ(FFTPlan<double>(8).getTotalCost(), 8 + 24 + 8);
    EXPECT_EQ(FFTPlan<double>(2).getTotalCost(), 2);
    EXPECT_EQ(FFTPlan<double>(1).getStageCount(), 0);
    EXPECT_EQ(FFTPlan<double>(1).getTotalCost(), 0);
}

TEST(FFTPlan, DefaultHammingWindowIsPeriodicAndNormalised) {
    FFTPlan<float> plan(256);
    EXPECT_EQ(plan.getWindowType(), FFTWindow::kHamming);
    EXPECT_DOUBLE_EQ(plan.getWindowParameter(), 60.0);
    EXPECT_NEAR(plan.getWindowNormalisation(), 2.0 / (256 * 0.54 + 0.08), 1e-15);
    for (int32_t i = 0; i < 256; i += 17)
        EXPECT_NEAR(plan.getWindow()[i], 0.54 - 0.46 * std::cos(2.0 * std::numbers::pi * i / 256), 1e-14);

    plan.setWindow(FFTWindow::kHann, 0.0);
    EXPECT_NEAR(plan.getWindowNormalisation(), 2.0 / 128.0, 1e-15);
    std::vector<float> samples(256, 2.0f);
    plan.applyWindow(samples.data());
    EXPECT_NEAR(samples[0], 0.0f, 1e-6);
    EXPECT_NEAR(samples[64], 1.0f, 1e-6);
    EXPECT_NEAR(samples[128], 2.0f, 1e-6);

    plan.create(512); // a new size keeps the chosen window
    EXPECT_EQ(plan.getWindowType(), FFTWindow::kHann);
    EXPECT_NEAR(plan.getWindow()[128], 0.5, 1e-12);
}

TYPED_TEST(FFTTransform, InverseOfForwardReproducesTheInput) {
    using T = TypeParam;
    const double tolerance = std::is_same_v<T, float> ? 1e-6 : 1e-12;
    for (int32_t size : {1, 2, 4, 8, 16, 64, 1000, 4096, 32768, 131072}) {
        const FFTPlan<T> plan(size);
        FFTStepper<T> stepper(plan);
        const std::vector<T> input = randomSignal<T>(plan.getSize(), static_cast<unsigned>(size));
        std::vector<T> spectrum(input.size()), output(input.size());
        stepper.forward(input.data(), spectrum.data());
        stepper.inverse(spectrum.data(), output.data());
        EXPECT_LT(relativeError(output, input), tolerance) << size;
    }
}

TYPED_TEST(FFTTransform, ForwardAgreesWithADirectDft) {
    using T = TypeParam;
    const double tolerance = std::is_same_v<T, float> ? 2e-6 : 1e-14;
    for (int32_t size : {1, 2, 4, 8, 16, 32, 128, 1024}) {
        const std::vector<double> signal = randomSignal<double>(size, 7u + static_cast<unsigned>(size));
        const std::vector<T> input(signal.begin(), signal.end());
        const FFTPlan<T> plan(size);
        FFTStepper<T> stepper(plan);
        std::vector<T> spectrum(input.size());
        stepper.forward(input.data(), spectrum.data());
        const std::vector<long double> expected = directPackedDft(signal);
        double error = 0.0, norm = 0.0;
        for (size_t i = 0; i < expected.size(); ++i) {
            error += static_cast<double>(std::pow(spectrum[i] - expected[i], 2.0L));
            norm += static_cast<double>(expected[i] * expected[i]);
        }
        EXPECT_LT(std::sqrt(error / norm), tolerance) << size;
    }
}

TYPED_TEST(FFTTransform, InPlaceTransformsMatchOutOfPlace) {
    using T = TypeParam;
    const FFTPlan<T> plan(512);
    FFTStepper<T> stepper(plan);
    const std::vector<T> input = randomSignal<T>(512, 3u);
    std::vector<T> spectrum(512);
    stepper.forward(input.data(), spectrum.data());
    std::vector<T> data = input;
    stepper.forward(data.data(), data.data());
    EXPECT_EQ(data, spectrum);
    stepper.inverse(data.data(), data.data());
    EXPECT_LT(relativeError(data, input), 1e-6);
}

TYPED_TEST(FFTTransform, SteppedTransformsAreBitIdenticalWhateverTheBudgets) {
    using T = TypeParam;
    using Direction = typename FFTStepper<T>::Direction;
    for (int32_t size : {2, 8, 64, 2048, 16384}) {
        const FFTPlan<T> plan(size);
        const std::vector<T> input = randomSignal<T>(size, 11u);
        for (Direction direction : {Direction::kForward, Direction::kInverse}) {
            SCOPED_TRACE(testing::Message()
                         << size << (direction == Direction::kForward ? " forward" : " inverse"));
            int32_t wholeCalls = 0, unitCalls = 0, randomCalls = 0;
            const std::vector<T> whole =
                transformInSteps<T>(direction, input, Budgets::kAllAtOnce, &wholeCalls);
            const std::vector<T> units =
                transformInSteps<T>(direction, input, Budgets::kSingleUnits, &unitCalls);
            const std::vector<T> random =
                transformInSteps<T>(direction, input, Budgets::kRandom, &randomCalls);
            EXPECT_EQ(std::memcmp(whole.data(), units.data(), sizeof(T) * whole.size()), 0);
            EXPECT_EQ(std::memcmp(whole.data(), random.data(), sizeof(T) * whole.size()), 0);
            EXPECT_EQ(wholeCalls, 1);
            EXPECT_EQ(unitCalls, plan.getTotalCost()); // every unit is spent, none is lost
            EXPECT_GT(randomCalls, 1);
        }
    }
}

TYPED_TEST(FFTTransform, FastestCodeMatchesTheBaselineBitForBit) {
    using T = TypeParam;
    using Direction = typename FFTStepper<T>::Direction;
    const FFTPlan<T> plan(8192);
    FFTStepper<T> fastest(plan), baseline(plan);
    baseline.selectCode(FFTCode::kBaseline);
    const std::vector<T> input = randomSignal<T>(8192, 12u);
    for (Direction direction : {Direction::kForward, Direction::kInverse}) {
        std::vector<T> fastOutput(input.size()), baselineOutput(input.size());
        fastest.start(direction, input.data(), fastOutput.data());
        baseline.start(direction, input.data(), baselineOutput.data());
        // Odd budgets make pieces that start and end inside vector blocks.
        for (int32_t budget = 1; !fastest.isFinished() || !baseline.isFinished();
             budget = budget % 997 + 13) {
            int32_t fastBudget = budget, baselineBudget = budget;
            fastest.step(fastBudget);
            baseline.step(baselineBudget);
        }
        EXPECT_EQ(std::memcmp(fastOutput.data(), baselineOutput.data(), sizeof(T) * input.size()), 0);
    }
}

TEST(FFTMultiply, PackedProductsMatchComplexProducts) {
    const int32_t size = 64;
    const std::vector<double> a = randomSignal<double>(size, 1u), b = randomSignal<double>(size, 2u);
    const std::vector<double> previous = randomSignal<double>(size, 3u);
    std::vector<double> product(size, 5.0), sum = previous;
    FFTPlan<double>::multiplySpectra(a.data(), b.data(), product.data(), size, false);
    FFTPlan<double>::multiplySpectra(a.data(), b.data(), sum.data(), size, true);
    const auto binsA = unpack(a), binsB = unpack(b), binsProduct = unpack(product), binsSum = unpack(sum);
    const auto binsPrevious = unpack(previous);
    for (size_t k = 0; k < binsA.size(); ++k) {
        // DC and Nyquist are real bins: their imaginary parts are not stored, and they are not
        // mixed with each other.
        const std::complex<double> expected = binsA[k] * binsB[k];
        EXPECT_NEAR(std::abs(binsProduct[k] - expected), 0.0, 1e-15) << k;
        EXPECT_NEAR(std::abs(binsSum[k] - (binsPrevious[k] + expected)), 0.0, 1e-15) << k;
    }
}

TYPED_TEST(FFTTransform, SpectrumProductIsCircularConvolution) {
    using T = TypeParam;
    const int32_t size = 256;
    const FFTPlan<T> plan(size);
    FFTStepper<T> stepper(plan);
    const std::vector<T> x = randomSignal<T>(size, 4u), h = randomSignal<T>(size, 5u);
    std::vector<T> spectrumX(size), spectrumH(size), product(size), result(size);
    stepper.forward(x.data(), spectrumX.data());
    stepper.forward(h.data(), spectrumH.data());
    FFTPlan<T>::multiplySpectra(spectrumX.data(), spectrumH.data(), product.data(), size, false);
    stepper.inverse(product.data(), result.data());
    std::vector<T> expected(size);
    for (int32_t n = 0; n < size; ++n) {
        double sum = 0.0;
        for (int32_t m = 0; m < size; ++m)
            sum += static_cast<double>(x[static_cast<size_t>(m)]) *
                   h[static_cast<size_t>((n - m + size) % size)];
        expected[static_cast<size_t>(n)] = static_cast<T>(sum);
    }
    const double tolerance = std::is_same_v<T, float> ? 1e-6 : 1e-13;
    EXPECT_LT(relativeError(result, expected), tolerance);
}

TYPED_TEST(FFTTransform, NothingAllocatesDuringATransform) {
    using T = TypeParam;
    FFTPlan<T> plan(4096);
    FFTStepper<T> stepper(plan);
    std::vector<T> data = randomSignal<T>(4096, 6u), spectrum(4096), accumulator(4096);
    testing_support::AllocationCounter counter;
    plan.applyWindow(data.data());
    stepper.forward(data.data(), spectrum.data());
    FFTPlan<T>::multiplySpectra(spectrum.data(), spectrum.data(), accumulator.data(), 4096, true);
    stepper.start(FFTStepper<T>::Direction::kInverse, accumulator.data(), data.data());
    while (!stepper.isFinished()) {
        int32_t budget = 1000;
        stepper.step(budget);
    }
    plan.create(4096); // the same size again keeps every table
    EXPECT_EQ(counter.count(), 0u);
}
