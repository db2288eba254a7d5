#pragma once

#include "eq/Convolver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace convolver_test {

using Floats = std::vector<float>;
using Doubles = std::vector<double>;

inline Floats noise(size_t length, unsigned seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> value(-1.0f, 1.0f);
    Floats samples(length);
    for (float& sample : samples)
        sample = value(generator);
    return samples;
}

// Random taps scaled so that noise through them keeps about its level.
inline Doubles randomKernel(int32_t length, unsigned seed) {
    std::mt19937 generator(seed);
    std::normal_distribution<double> value(0.0, 1.0 / std::sqrt(static_cast<double>(length)));
    Doubles taps(static_cast<size_t>(length));
    for (double& tap : taps)
        tap = value(generator);
    return taps;
}

// The centred unit impulse of a kernel of `length` taps.
inline Doubles unitKernel(int32_t length) {
    Doubles taps(static_cast<size_t>(length), 0.0);
    taps[static_cast<size_t>(length / 2)] = 1.0;
    return taps;
}

inline void publish(Convolver& convolver, const Doubles& taps) {
    Convolver::Kernel* kernel = convolver.acquireFreeKernel();
    ASSERT_NE(kernel, nullptr);
    ASSERT_TRUE(kernel->setImpulseResponse(taps.data(), static_cast<int32_t>(taps.size())));
    convolver.publishKernel(kernel);
}

// Runs input[first, end) through the convolver in calls of the given sizes, repeated in turn.
inline void runInto(Convolver& convolver, const Floats& input, Floats& output, size_t first, size_t end,
                    const std::vector<int32_t>& calls) {
    output.resize(input.size());
    for (size_t position = first, call = 0; position < end; ++call) {
        const auto count = std::min<size_t>(static_cast<size_t>(calls[call % calls.size()]), end - position);
        convolver.process(input.data() + position, output.data() + position, static_cast<int32_t>(count));
        position += count;
    }
}

inline Floats run(Convolver& convolver, const Floats& input, const std::vector<int32_t>& calls) {
    Floats output;
    runInto(convolver, input, output, 0, input.size(), calls);
    return output;
}

} // namespace convolver_test
