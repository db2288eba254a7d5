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
using wave::Producer;

namespace {

// Splits its input into a low and a high band, so that the shared outputs are exercised.
class Splitter : public wave::MultiProducer {
public:
    Splitter(Environment* environment, Producer* input) : wave::MultiProducer(environment, 2), input(input) {}

    void processAll(float* const* outputs, int32_t numSamples) override {
        const float* in = input->fetch(numSamples)->getData();
        for (int32_t i = 0; i < numSamples; ++i) {
            state += 0.5f * (in[i] - state);
            outputs[0][i] = state;
            outputs[1][i] = in[i] - state;
        }
    }

private:
    Producer* input;
    float state = 0.0f;
};

} // namespace

TEST(GraphAllocation, ProcessingAllocatesNothing) {
    constexpr int32_t kMaxBlock = 64, kHostBlock = 1000;
    Environment environment(kMaxBlock, 0);
    environment.setSampleRate(48000.0f);
    wave::Input left(&environment), right(&environment);
    FloatParameter gain(&environment, 1.0f);
    FloatParameterSource mix(&environment, 0.0f);
    FloatParameterBus bus;
    bus.addTarget(&gain);
    bus.addTarget(&mix);
    wave::DelayFilter delayed(&environment, 300, 100);
    delayed.setInput(&left);
    wave::DelayFilter feedback(&environment, 256, 70, wave::DelayFilterBase::kWriteAtBlockEnd);
    feedback.setInput(&right);
    Splitter splitter(&environment, &delayed);
    Producer* forwardedProducer = splitter.getOutputProducer(1);
    wave::InputForwarder forwarder(&environment, &forwardedProducer);
    GainFilter mixReader(&environment, 1.0f);
    mixReader.setInput(&mix);
    CountingSource meter(&environment), analyzer(&environment), head(&environment);
    SilenceProducer silence(&environment);
    meter.schedule(false);
    analyzer.schedule(true);
    head.scheduleFirst();
    for (Producer* producer : std::initializer_list<Producer*>{&delayed, &feedback, &meter, &head})
        producer->joinResets();
    wave::Delay dry(&environment, 128, 128);

    std::vector<float> hostLeft(kHostBlock), hostRight(kHostBlock), delays(kMaxBlock), scratch(kMaxBlock);
    for (size_t i = 0; i < hostLeft.size(); ++i) {
        hostLeft[i] = std::sin(0.01f * static_cast<float>(i));
        hostRight[i] = std::cos(0.013f * static_cast<float>(i));
        delays[i % delays.size()] = 3.25f + 0.5f * static_cast<float>(i % delays.size());
    }

    // One host block cut into chunks of changing size, with parameter changes, schedule changes,
    // enabling and disabling, skipped schedules and every kind of reset along the way.
    const auto hostBlock = [&](int cycle) {
        left.setData(hostLeft.data(), kHostBlock);
        right.setData(hostRight.data(), kHostBlock);
        const std::array<int32_t, 4> sizes{64, 17, 1, 33};
        for (int32_t chunk = 0, offset = 0; offset < kHostBlock; ++chunk) {
            const int32_t n = std::min(sizes[static_cast<size_t>(chunk) % sizes.size()], kHostBlock - offset);
            environment.nextGeneration();
            bus.setValue(static_cast<float>((cycle + chunk) % 5) * 0.2f);
            mix.getParameter().setValue(0.5f, 5.0f);
            gain.getValueBlockAt(n);
            for (Producer* producer : std::initializer_list<Producer*>{splitter.getOutputProducer(0),
                                                                       &forwarder, &mixReader, &silence})
                producer->fetch(n);
            if (chunk % 3 != 0)
                feedback.fetch(n);
            dry.write(hostLeft.data() + offset, n);
            dry.read(128, scratch.data(), n);
            dry.readFractional(delays.data(), scratch.data(), n);
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
