#include "GraphTestUtil.h"

#include "support/AllocationCounter.h"
#include "wave/Delay.h"
#include "wave/FloatParameter.h"
#include "wave/Input.h"
#include "wave/MultiProducer.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

using graph_test::CountingSource;
using graph_test::GainFilter;
using wave::Environment;

namespace {

// Splits its input into a low and a high half-band; enough work to exercise the shared outputs.
class Splitter : public wave::MultiProducer {
public:
    Splitter(Environment* environment, wave::Producer* input)
        : wave::MultiProducer(environment, 2), input(input) {}

    void processAll(float* const* outputs, int32_t numSamples) override {
        const float* in = input->fetch(numSamples)->getData();
        for (int32_t i = 0; i < numSamples; ++i) {
            state += 0.5f * (in[i] - state);
            outputs[0][i] = state;
            outputs[1][i] = in[i] - state;
        }
    }

private:
    wave::Producer* input;
    float state = 0.0f;
};

// Multiplies its input by a smoothed gain taken from a parameter.
class ParameterGain : public wave::Filter {
public:
    ParameterGain(Environment* environment, FloatParameter& gain) : wave::Filter(environment), gain(gain) {}

    void processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                       int32_t) override {
        const auto& values = gain.getValueBlockAt(numSamples);
        for (int32_t i = 0; i < numSamples; ++i)
            block->getData()[i] = input[i] * (values.isConstant() ? values[0] : values[i]);
    }

private:
    FloatParameter& gain;
};

} // namespace

TEST(GraphAllocation, ProcessingAllocatesNothing) {
    constexpr int32_t kMaxBlock = 64;
    Environment environment(kMaxBlock, 0);
    environment.setSampleRate(48000.0f);

    wave::Input left(&environment), right(&environment);
    FloatParameter gain(&environment, 1.0f);
    FloatParameterSource mix(&environment, 0.0f);
    FloatParameterBus bus;
    bus.addTarget(&gain);
    bus.addTarget(&mix);

    ParameterGain gained(&environment, gain);
    gained.setInput(&left);
    GainFilter chain1(&environment, 0.5f), chain2(&environment, 2.0f);
    chain1.setInput(&gained);
    chain2.setInput(&chain1);
    wave::DelayFilter delayed(&environment, 300, 100);
    delayed.setInput(&chain2);
    wave::DelayFilter feedback(&environment, 256, 70, wave::DelayFilterBase::kWriteAtBlockEnd);
    feedback.setInput(&right);
    Splitter splitter(&environment, &delayed);
    wave::Producer* forwardedProducer = splitter.getOutputProducer(1);
    wave::InputForwarder forwarder(&environment, &forwardedProducer);
    GainFilter mixReader(&environment, 1.0f);
    mixReader.setInput(&mix);
    CountingSource meter(&environment), analyzer(&environment), head(&environment);
    SilenceProducer silence(&environment);
    meter.schedule(false);
    analyzer.schedule(true);
    head.scheduleFirst();
    for (wave::Producer* producer :
         std::initializer_list<wave::Producer*>{&delayed, &feedback, &meter, &head})
        producer->joinResets();
    wave::Delay dry(&environment, 128, 128);

    std::vector<float> hostLeft(1000), hostRight(1000), fractionalDelays(kMaxBlock), scratch(kMaxBlock);
    for (size_t i = 0; i < hostLeft.size(); ++i) {
        hostLeft[i] = std::sin(0.01f * static_cast<float>(i));
        hostRight[i] = std::cos(0.013f * static_cast<float>(i));
    }
    for (size_t i = 0; i < fractionalDelays.size(); ++i)
        fractionalDelays[i] = 3.25f + 0.5f * static_cast<float>(i);

    const auto hostBlock = [&](int cycle) {
        left.setData(hostLeft.data(), 1000);
        right.setData(hostRight.data(), 1000);
        const std::array<int32_t, 4> sizes{64, 17, 1, 33};
        int32_t offset = 0;
        for (int chunk = 0; offset < 1000; ++chunk) {
            const int32_t n = std::min(sizes[static_cast<size_t>(chunk) % sizes.size()], 1000 - offset);
            environment.nextGeneration();
            bus.setValue(static_cast<float>((cycle + chunk) % 5) * 0.2f);
            mix.getParameter().setValue(0.5f, 5.0f);
            splitter.getOutputProducer(0)->fetch(n);
            forwarder.fetch(n);
            mixReader.fetch(n);
            if (chunk % 3 != 0)
                feedback.fetch(n);
            silence.fetch(n);
            dry.write(hostLeft.data() + offset, n);
            dry.read(128, scratch.data(), n);
            dry.readFractional(fractionalDelays.data(), scratch.data(), n);
            analyzer.setEnabled(chunk % 4 != 1);
            meter.setEnabled(chunk % 5 != 2);
            if (chunk % 7 == 3)
                head.schedule(chunk % 2 == 0);
            else if (chunk % 7 == 5)
                head.scheduleFirst();
            environment.advance(n, chunk % 11 == 10);
            offset += n;
        }
        environment.reset(cycle % 4);
        (void)environment.isAtRest();
    };

    hostBlock(0);
    testing_support::AllocationCounter counter;
    for (int cycle = 1; cycle < 60; ++cycle)
        hostBlock(cycle);
    EXPECT_EQ(counter.count(), 0u);
    EXPECT_GT(meter.processCount, 0);
}
