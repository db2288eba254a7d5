#pragma once

#include "wave/Input.h"

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace level_test {

using Floats = std::vector<float>;

// Feeds a signal through a block of the graph in chunks, one generation per chunk, as the frame does.
class ChunkedRun {
public:
    ChunkedRun(wave::Environment& environment, wave::Producer& block)
        : environment(environment), input(&environment), block(block) {}

    wave::Input& getInput() { return input; }

    // Chunk sizes cycle through the given list (each at most the maximum block size).
    Floats run(const Floats& signal, const std::vector<int32_t>& chunkSizes) {
        Floats out;
        out.reserve(signal.size());
        size_t done = 0;
        for (size_t chunk = 0; done < signal.size(); ++chunk) {
            const auto n = static_cast<int32_t>(
                std::min(static_cast<size_t>(chunkSizes[chunk % chunkSizes.size()]), signal.size() - done));
            runBlock(signal.data() + done, n, out);
            done += static_cast<size_t>(n);
        }
        return out;
    }

    Floats run(const Floats& signal) { return run(signal, {environment.getMaxBlockSize()}); }

    // One block into a preallocated output; nothing allocates here.
    void runBlock(const float* samples, int32_t n, Floats& out) {
        environment.nextGeneration();
        input.setData(samples, n);
        const float* result = block.fetch(n)->getData();
        out.insert(out.end(), result, result + n);
        environment.advance(n, false);
    }

private:
    wave::Environment& environment;
    wave::Input input;
    wave::Producer& block;
};

inline Floats randomSignal(size_t length, uint32_t seed, float scale = 1.0f) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> distribution(-scale, scale);
    Floats signal(length);
    for (auto& x : signal)
        x = distribution(generator);
    return signal;
}

} // namespace level_test
