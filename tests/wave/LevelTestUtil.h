#pragma once

#include "wave/Input.h"

#include <algorithm>
#include <cmath>
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

    // Chunk sizes cycle through the list (each at most the maximum block size); empty means the maximum.
    Floats run(const Floats& signal, std::vector<int32_t> chunkSizes = {}) {
        if (chunkSizes.empty())
            chunkSizes = {environment.getMaxBlockSize()};
        Floats out;
        out.reserve(signal.size());
        for (size_t done = 0, chunk = 0; done < signal.size(); ++chunk) {
            const auto n = static_cast<int32_t>(
                std::min(static_cast<size_t>(chunkSizes[chunk % chunkSizes.size()]), signal.size() - done));
            runBlock(signal.data() + done, n, out);
            done += static_cast<size_t>(n);
        }
        return out;
    }

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

// Connects a fresh input to the block and runs the signal through it.
template <class Block>
Floats runThrough(wave::Environment& environment, Block& block, const Floats& signal,
                  const std::vector<int32_t>& chunkSizes = {}) {
    ChunkedRun run(environment, block);
    block.setInput(&run.getInput());
    return run.run(signal, chunkSizes);
}

inline Floats randomSignal(size_t length, uint32_t seed, float scale = 1.0f) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> distribution(-scale, scale);
    Floats signal(length);
    for (auto& x : signal)
        x = distribution(generator);
    return signal;
}

inline double referenceDb(double x) {
    return 20.0 * std::log10(x);
}

inline bool allFinite(const Floats& values, size_t from) {
    return std::all_of(values.begin() + static_cast<std::ptrdiff_t>(from), values.end(),
                       [](float v) { return std::isfinite(v); });
}

} // namespace level_test
