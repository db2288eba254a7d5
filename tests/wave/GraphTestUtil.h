#pragma once

#include "wave/Producer.h"

#include <string>
#include <vector>

namespace graph_test {

using Floats = std::vector<float>;
using Strings = std::vector<std::string>;

// Writes a running count (start, start + 1, ...) and remembers how and how often it ran.
class CountingSource : public wave::Source {
public:
    explicit CountingSource(wave::Environment* environment, float start = 1.0f)
        : wave::Source(environment), next(start) {}

    void process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t flags) override {
        ++processCount;
        lastFlags = flags;
        for (int32_t i = 0; i < numSamples; ++i)
            block->getData()[i] = next++;
    }

    int processCount = 0;
    int32_t lastFlags = -1;
    float next;
};

// Multiplies its input by a gain.
class GainFilter : public wave::Filter {
public:
    GainFilter(wave::Environment* environment, float gain) : wave::Filter(environment), gain(gain) {}

    void processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                       int32_t) override {
        ++processCount;
        for (int32_t i = 0; i < numSamples; ++i)
            block->getData()[i] = input[i] * gain;
    }

    float gain;
    int processCount = 0;
};

// Appends "<name>:<flags>" to a shared log whenever it runs, and "<name>:reset" when reset.
class LoggingProducer : public wave::Source {
public:
    LoggingProducer(wave::Environment* environment, std::string name, std::vector<std::string>& log)
        : wave::Source(environment), name(std::move(name)), log(log) {}

    void process(wave::BasicBlock<float>*, int32_t, int32_t flags) override {
        log.push_back(name + ":" + std::to_string(flags));
    }
    void reset() override { log.push_back(name + ":reset"); }
    bool isAtRest() const override { return atRest; }

    bool atRest = true;
    const std::string name;

private:
    std::vector<std::string>& log;
};

inline Floats blockValues(const float* data, int32_t numSamples) {
    return Floats(data, data + numSamples);
}

} // namespace graph_test
