#include "eq/BandCompander.h"
#include "eq/DynamicEQFilter.h"
#include "eq/EQFilter.h"
#include "plugin/PluginParameter.h"
#include "support/AllocationCounter.h"
#include "support/LockCounter.h"
#include "wave/FloatParameter.h"
#include "wave/GenericPluginProcessor.h"
#include "wave/LevelMeter.h"
#include "wave/MidSideConverter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <numbers>
#include <random>
#include <vector>

namespace {

constexpr int32_t kMaxChunk = 64;
constexpr float kRate = 48000.0f;
constexpr float kBandHz = 1000.0f;

class PathProcessor;

// One side of the mid/side pair: a static Bell and a dynamic Bell driven by a compander that
// listens to the band's input.
class PathChannel : public GenericPluginProcessor::Channel {
public:
    PathChannel(PathProcessor& owner, uint32_t flags);

    // Called once the mid/side encoder exists: both the band and its detector hear the encoded side.
    void connect(wave::Producer* encoded) {
        bell.setInput(encoded);
        compander.setInput(encoded);
    }

    void parameterChanged(int32_t index) override;

    PathProcessor& product;
    FloatParameter bandFrequency;
    FloatParameter bandGain;
    EQFilter bell;
    DynamicEQFilter dynamicBell;
    BandCompander compander;
};

// A stereo product: inputs -> mid/side encode -> per side Bell and dynamic Bell -> decode, with a
// level meter on the left output driven by the schedule.
class PathProcessor : public GenericPluginProcessor {
public:
    PathProcessor() {
        initialize(kMaxChunk, static_cast<int32_t>(kRate));
        setSampleRate(kRate);
        setLatency(0);
        addChannel(std::make_unique<PathChannel>(*this, Channel::kLeftSide));
        addChannel(std::make_unique<PathChannel>(*this, Channel::kRightSide));
        wave::Environment* environment = getEnvironment();
        encoder = std::make_unique<wave::MidSideConverter>(environment, &getChannel(0).getMainInput(),
                                                           &getChannel(1).getMainInput());
        encoder->conversion.setValue(wave::MidSideConverter::kEncode);
        side(0).connect(encoder->getOutputProducer(0));
        side(1).connect(encoder->getOutputProducer(1));
        decoder =
            std::make_unique<wave::MidSideConverter>(environment, &side(0).dynamicBell, &side(1).dynamicBell);
        decoder->conversion.setValue(wave::MidSideConverter::kDecode);
        meter = std::make_unique<wave::LevelMeter>(environment);
        meter->setInput(decoder->getOutputProducer(0));
        meter->schedule(false);
        setBypassParameterIndex(bypass.getIndex());
        setProcessing(true);
    }
    ~PathProcessor() override { terminate(); }

    PathChannel& side(int32_t index) const { return static_cast<PathChannel&>(getChannel(index)); }

    FloatPluginParameter gain{*this, "Band Gain", -24.0f, 24.0f, 6.0f};
    FloatPluginParameter range{*this, "Band Range", -24.0f, 0.0f, -12.0f};
    FloatPluginParameter bypass{*this, "Bypass", 0.0f, 1.0f, 0.0f};

    std::unique_ptr<wave::MidSideConverter> encoder;
    std::unique_ptr<wave::MidSideConverter> decoder;
    std::unique_ptr<wave::LevelMeter> meter;
    int32_t pointsApplied = 0;

protected:
    void processChannels(float* const* buffers, int32_t numChannels, int32_t numSamples) override {
        for (int32_t channel = 0; channel < numChannels; ++channel) {
            const float* out = decoder->getOutputProducer(channel)->fetch(numSamples)->getData();
            std::copy_n(out, numSamples, buffers[channel]);
        }
    }

    int32_t getTailSamples() const override { return kNoTail; }

    void applyParameterPoint(int32_t index, float value) override {
        ++pointsApplied;
        if (index == gain.getIndex()) {
            side(0).bandGain.setValue(value);
            side(1).bandGain.setValue(value);
        }
    }
};

PathChannel::PathChannel(PathProcessor& owner, uint32_t flags)
    : GenericPluginProcessor::Channel(owner, flags), product(owner),
      bandFrequency(owner.getEnvironment(), 0.0f), bandGain(owner.getEnvironment(), 0.0f),
      bell(owner.getEnvironment()), dynamicBell(owner.getEnvironment()), compander(owner.getEnvironment()) {
    bandFrequency.setRange(EQFilter::kMinimumFrequencyLog2, EQFilter::kMaximumFrequencyLog2);
    bandFrequency.jumpTo(std::log2(kBandHz));
    bandGain.setRange(-30.0f, 30.0f);
    bandGain.jumpTo(6.0f);
    bell.shape.setValue(FilterShape::Bell);
    bell.setQ(1.0f);
    bell.connectParameters(&bandFrequency, &bandGain, nullptr);

    compander.getThreshold().getParameter().jumpTo(-30.0f);
    compander.getRatio().getParameter().jumpTo(4.0f);
    compander.getLimit().getParameter().jumpTo(12.0f);
    compander.setRangeSign(-1.0f);
    compander.attack.setValue(0.0f);

    dynamicBell.shape.setValue(FilterShape::Bell);
    dynamicBell.frequency.setValue(std::log2(kBandHz));
    dynamicBell.q.setValue(1.0f);
    dynamicBell.baseGain.setValue(0.0f);
    dynamicBell.range.setValue(-12.0f);
    dynamicBell.dynamicsEnabled.setValue(true);
    dynamicBell.setInput(&bell);
    dynamicBell.setGainSource(&compander);
}

void PathChannel::parameterChanged(int32_t index) {
    if (index == product.gain.getIndex()) {
        bandGain.setValue(product.gain.getValue());
    } else if (index == product.range.getIndex()) {
        dynamicBell.range.setValue(product.range.getValue());
        compander.getLimit().getParameter().setValue(-product.range.getValue());
    }
}

// A loud stereo tone burst at the band's frequency: 80 ms on, 40 ms off; the right side differs in
// level and phase so that the side signal is not zero.
void fillBurst(std::vector<float>& left, std::vector<float>& right, int64_t start) {
    for (size_t i = 0; i < left.size(); ++i) {
        const auto n = static_cast<double>(start + static_cast<int64_t>(i));
        const bool on = static_cast<int64_t>(n) % 5760 < 3840;
        const double phase = 2.0 * std::numbers::pi * kBandHz * n / kRate;
        left[i] = on ? static_cast<float>(0.9 * std::sin(phase)) : 0.0f;
        right[i] = on ? static_cast<float>(0.6 * std::sin(phase + 1.0)) : 0.0f;
    }
}

bool allFinite(const std::vector<float>& samples, size_t from) {
    for (size_t i = from; i < samples.size(); ++i) {
        if (!std::isfinite(samples[i]))
            return false;
    }
    return true;
}

double rms(const std::vector<float>& samples, size_t from) {
    double sum = 0.0;
    for (size_t i = from; i < samples.size(); ++i)
        sum += static_cast<double>(samples[i]) * samples[i];
    return std::sqrt(sum / static_cast<double>(samples.size() - from));
}

} // namespace

TEST(AudioPathTest, WholePathNeitherAllocatesNorLocksAndRecoversFromNonFiniteInput) {
    PathProcessor processor;

    // The instruments must be able to see what they are meant to catch.
    {
        std::mutex mutex;
        testing_support::LockCounter lockProbe;
        mutex.lock();
        mutex.unlock();
        ASSERT_GE(lockProbe.count(), 1) << "the lock interposer is not in effect";
        testing_support::AllocationCounter probe;
        auto allocated = std::make_unique<std::vector<float>>(16);
        ASSERT_GE(probe.count(), 1u) << "the allocation counter is not in effect";
    }

    constexpr int32_t kBlocks = 400;
    constexpr int32_t kLargestBlock = 300;
    std::vector<float> inLeft(kLargestBlock), inRight(kLargestBlock);
    std::vector<float> outLeft(kLargestBlock), outRight(kLargestBlock);
    std::vector<int32_t> sizes(kBlocks);
    std::mt19937 random(7);
    std::uniform_int_distribution<int32_t> sizeDistribution(1, kLargestBlock);
    for (int32_t& size : sizes)
        size = sizeDistribution(random);

    double wetEnergy = 0.0;
    bool everythingFinite = true;
    size_t allocations = 0;
    int locks = 0;
    {
        testing_support::LockCounter lockCounter;
        testing_support::AllocationCounter counter;
        int64_t position = 0;
        for (int32_t block = 0; block < kBlocks; ++block) {
            const int32_t size = sizes[static_cast<size_t>(block)];
            if (block % 7 == 3)
                processor.setParameter(processor.gain.getIndex(), block % 2 == 0 ? 9.0f : -6.0f, true);
            if (block % 11 == 5)
                processor.setParameter(processor.range.getIndex(), block % 2 == 0 ? -18.0f : -6.0f, true);
            if (block % 5 == 1) {
                const auto now = static_cast<int32_t>(processor.getEnvironment()->getPosition());
                processor.queueParameterAt(now + size / 2, processor.gain.getIndex(),
                                           block % 3 == 0 ? 12.0f : -3.0f);
            }
            if (block == 150)
                processor.setParameter(processor.bypass.getIndex(), 1.0f, true);
            if (block == 250)
                processor.setParameter(processor.bypass.getIndex(), 0.0f, true);

            fillBurst(inLeft, inRight, position);
            const float* inputs[] = {inLeft.data(), inRight.data()};
            float* outputs[] = {outLeft.data(), outRight.data()};
            uint32_t flags = 0;
            processor.process(inputs, nullptr, outputs, 2, size, flags);
            for (int32_t i = 0; i < size; ++i) {
                everythingFinite = everythingFinite && std::isfinite(outLeft[static_cast<size_t>(i)]) &&
                                   std::isfinite(outRight[static_cast<size_t>(i)]);
                wetEnergy +=
                    static_cast<double>(outLeft[static_cast<size_t>(i)]) * outLeft[static_cast<size_t>(i)];
            }
            position += size;
        }
        allocations = counter.count();
        locks = lockCounter.count();
    }
    EXPECT_EQ(allocations, 0u);
    EXPECT_EQ(locks, 0);
    EXPECT_TRUE(everythingFinite);
    EXPECT_GT(wetEnergy, 1.0);
    EXPECT_GT(processor.pointsApplied, 0);
    // The scheduled meter saw the loud output.
    EXPECT_GT(processor.meter->getLevelInfo().maximumPeak, -20.0f);

    // Non-finite input, then 0.2 s of the burst's tone in small blocks.
    constexpr int32_t kBlock = 128;
    const auto recovery = static_cast<size_t>(0.2 * kRate);
    std::vector<float> tailLeft, tailRight;
    {
        std::vector<float> left(kBlock), right(kBlock);
        fillBurst(left, right, 0);
        for (size_t i = 0; i < left.size(); i += 3) {
            left[i] = std::numeric_limits<float>::quiet_NaN();
            right[i] =
                i % 2 == 0 ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
        }
        left[1] = std::numeric_limits<float>::infinity();
        right[2] = std::numeric_limits<float>::quiet_NaN();
        const float* inputs[] = {left.data(), right.data()};
        float* outputs[] = {outLeft.data(), outRight.data()};
        uint32_t flags = 0;
        processor.process(inputs, nullptr, outputs, 2, kBlock, flags);
    }
    for (size_t done = 0; done < recovery; done += kBlock) {
        std::vector<float> left(kBlock), right(kBlock);
        // A steady tone (the burst's "on" part) keeps the path busy throughout.
        for (size_t i = 0; i < left.size(); ++i) {
            const double phase = 2.0 * std::numbers::pi * kBandHz * static_cast<double>(done + i) / kRate;
            left[i] = static_cast<float>(0.9 * std::sin(phase));
            right[i] = static_cast<float>(0.6 * std::sin(phase + 1.0));
        }
        const float* inputs[] = {left.data(), right.data()};
        float* outputs[] = {outLeft.data(), outRight.data()};
        uint32_t flags = 0;
        processor.process(inputs, nullptr, outputs, 2, kBlock, flags);
        tailLeft.insert(tailLeft.end(), outLeft.begin(), outLeft.begin() + kBlock);
        tailRight.insert(tailRight.end(), outRight.begin(), outRight.begin() + kBlock);
    }
    const size_t lastTenth = tailLeft.size() - static_cast<size_t>(0.1 * kRate);
    EXPECT_TRUE(allFinite(tailLeft, lastTenth));
    EXPECT_TRUE(allFinite(tailRight, lastTenth));
    EXPECT_GT(rms(tailLeft, lastTenth), 0.05);
    EXPECT_GT(rms(tailRight, lastTenth), 0.05);
}
