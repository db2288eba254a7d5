#include "eq/Convolver.h"
#include "ConvolverTestUtil.h"
#include "eq/KernelMailbox.h"

#include "support/AllocationCounter.h"
#include "support/LockCounter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <numbers>
#include <thread>

namespace {

using namespace convolver_test;

struct Size {
    int32_t length;
    int32_t firstPartition;
};

int32_t ceilTo(int32_t value, int32_t step) {
    return (value + step - 1) / step * step;
}

// y[t] = sum over m of h[m] x[t - delay - m], skipping the zeros of x.
Doubles directConvolution(const Floats& x, const Doubles& h, int32_t delay) {
    Doubles y(x.size(), 0.0);
    for (size_t i = 0; i < x.size(); ++i) {
        if (x[i] == 0.0f)
            continue;
        for (size_t m = 0; m < h.size() && i + static_cast<size_t>(delay) + m < y.size(); ++m)
            y[i + static_cast<size_t>(delay) + m] += x[i] * h[m];
    }
    return y;
}

TEST(ConvolverLayout, LevelsCoverTheKernelOnceEachFromItsEarliestUsableTap) {
    for (const Size size : {Size{512, 64}, Size{4096, 1024}, Size{32768, 1024}, Size{131072, 1024},
                            Size{4096, 16}, Size{1000, 0}, Size{100, 100}}) {
        const Convolver::Layout layout(size.length, size.firstPartition);
        const int32_t b0 = layout.getFirstPartition();
        EXPECT_EQ(b0, size.firstPartition == 0 ? 64 : size.firstPartition == 100 ? 128 : size.firstPartition);
        const int32_t last = layout.getLevelCount() - 1;
        EXPECT_GT(32 * layout.getLevel(last).size, size.length);
        int32_t covered = 0;
        for (int32_t index = 0; index <= last; ++index) {
            const Convolver::LevelShape& level = layout.getLevel(index);
            if (index > 0) {
                EXPECT_EQ(level.size, 8 * layout.getLevel(index - 1).size);
                EXPECT_LE(32 * layout.getLevel(index - 1).size, size.length);
                // A level's output is 2 B late, the chain's only b0.
                EXPECT_EQ(level.firstTap, 2 * level.size - b0);
            }
            EXPECT_EQ(level.firstTap, covered);
            covered += level.partitions * level.size;
        }
        EXPECT_GE(covered, size.length);
        EXPECT_LT(covered - layout.getLevel(last).size, size.length);
    }
    const Convolver::Layout longest(131072, 1024);
    ASSERT_EQ(longest.getLevelCount(), 2);
    EXPECT_EQ(longest.getLevel(0).partitions, 15); // taps [0, 15360)
    EXPECT_EQ(longest.getLevel(1).partitions, 15); // 115712 taps in blocks of 8192
    EXPECT_EQ(Convolver::Layout(4096, 16).getLevelCount(), 3);
}

TEST(Convolver, EqualsDirectConvolutionWhateverTheHostBlockSizes) {
    wave::Environment environment(4096, 0);
    for (const Size size : {Size{512, 64}, Size{4096, 1024}, Size{32768, 1024}, Size{4096, 16}}) {
        const Doubles kernel = randomKernel(size.length, 3);
        // Two bursts of noise, the second at another phase of every level's blocks.
        const size_t burst = 2048, second = static_cast<size_t>(size.length) + 3 * 1024 + 123;
        Floats input(second + burst + static_cast<size_t>(size.length + size.length / 2 + 2048), 0.0f);
        const Floats samples = noise(2 * burst, 8);
        std::copy_n(samples.begin(), burst, input.begin());
        std::copy_n(samples.begin() + burst, burst, input.begin() + static_cast<std::ptrdiff_t>(second));

        std::mt19937 generator(4);
        std::uniform_int_distribution<int32_t> randomSize(1, 5000);
        std::vector<int32_t> randomSizes(200);
        for (int32_t& call : randomSizes)
            call = randomSize(generator);
        Floats first;
        for (const std::vector<int32_t>& calls :
             {std::vector<int32_t>{1}, {7}, {64}, {1000}, {4096}, randomSizes}) {
            Convolver convolver(&environment, size.length, size.firstPartition, 256);
            publish(convolver, kernel);
            const Floats output = run(convolver, input, calls);
            if (first.empty())
                first = output;
            else
                EXPECT_EQ(output, first) << "length " << size.length << ", calls of " << calls[0];
        }

        Convolver reference(&environment, size.length, size.firstPartition, 256);
        const Doubles expected = directConvolution(input, kernel, reference.getLayout().getFirstPartition());
        double error = 0.0, power = 0.0;
        for (size_t t = 0; t < expected.size(); ++t) {
            error += std::pow(first[t] - expected[t], 2.0);
            power += expected[t] * expected[t];
        }
        EXPECT_LT(10.0 * std::log10(error / power), -120.0) << "length " << size.length;
    }
}

TEST(Convolver, UnitKernelDelaysByExactlyTheLatencyBeforeAndAfterAKernelArrives) {
    wave::Environment environment(4096, 0);
    for (const Size size : {Size{512, 64}, Size{32768, 1024}, Size{4096, 16}}) {
        for (const bool published : {false, true}) {
            Convolver convolver(&environment, size.length, size.firstPartition, 256);
            if (published)
                publish(convolver, unitKernel(size.length));
            const int32_t latency = convolver.getLatency();
            EXPECT_EQ(latency, size.length / 2 + convolver.getLayout().getFirstPartition());
            const Floats input = noise(static_cast<size_t>(latency + 20000), 11);
            const Floats output = run(convolver, input, {100});
            double worst = 0.0;
            for (size_t t = 0; t < output.size(); ++t) {
                const float expected =
                    t >= static_cast<size_t>(latency) ? input[t - static_cast<size_t>(latency)] : 0.0f;
                worst = std::max(worst, std::abs(static_cast<double>(output[t]) - expected));
            }
            EXPECT_LT(worst, 1e-6) << "length " << size.length << (published ? ", published" : ", built in");
        }
    }
}

// y1 and y2 are the outputs of convolvers that ran each kernel from the start. The one that gets
// the second kernel at `switchAt` must give y1 until every level has a block from the new kernel,
// then y1 + (y2 - y1) w with w rising linearly over the crossfade span, then y2.
TEST(Convolver, CrossfadeWaitsForTheNewKernelsFirstCompleteBlockThenRampsLinearly) {
    wave::Environment environment(4096, 0);
    constexpr int32_t kSpan = 500;
    for (const Size size : {Size{32768, 1024}, Size{4096, 16}}) {
        for (const bool fromUnit : {true, false}) {
            const Doubles oldKernel = fromUnit ? unitKernel(size.length) : randomKernel(size.length, 21);
            const Doubles newKernel = randomKernel(size.length, 22);
            const int32_t switchAt = size.length + 777;
            const Floats input = noise(static_cast<size_t>(switchAt + 4 * size.length + 4 * kSpan), 23);

            Convolver old(&environment, size.length, size.firstPartition, kSpan);
            if (!fromUnit)
                publish(old, oldKernel);
            Convolver fresh(&environment, size.length, size.firstPartition, kSpan);
            publish(fresh, newKernel);
            const Floats y1 = run(old, input, {100}), y2 = run(fresh, input, {100});

            Convolver convolver(&environment, size.length, size.firstPartition, kSpan);
            if (!fromUnit)
                publish(convolver, oldKernel);
            Floats y;
            runInto(convolver, input, y, 0, static_cast<size_t>(switchAt), {100});
            publish(convolver, newKernel);
            runInto(convolver, input, y, static_cast<size_t>(switchAt), input.size(), {100});

            const Convolver::Layout& layout = convolver.getLayout();
            const int32_t taken = ceilTo(switchAt, layout.getFirstPartition());
            int32_t valid = taken + layout.getFirstPartition();
            for (int32_t level = 1; level < layout.getLevelCount(); ++level) {
                const int32_t blockSize = layout.getLevel(level).size;
                valid = std::max(valid, ceilTo(taken, blockSize) + blockSize);
            }
            for (size_t t = 0; t < y.size(); ++t) {
                const auto since = static_cast<int32_t>(t) - valid + 1;
                if (since <= 0) {
                    ASSERT_EQ(y[t], y1[t]) << "at " << t;
                } else if (since >= kSpan) {
                    ASSERT_EQ(y[t], y2[t]) << "at " << t;
                } else {
                    const double weight = static_cast<double>(since) / kSpan;
                    ASSERT_NEAR(y[t], y1[t] + (y2[t] - y1[t]) * weight, 1e-6) << "at " << t;
                }
            }
            EXPECT_FALSE(convolver.isCrossfading());
            // Only the kernel in use holds a slot now.
            std::vector<Convolver::Kernel*> free;
            while (Convolver::Kernel* kernel = convolver.acquireFreeKernel())
                free.push_back(kernel);
            EXPECT_EQ(free.size(), 3u);
        }
    }
}

// Centred low-passes of different gains: hard switches between them would jump far.
Doubles lowPass(int32_t length, double gain) {
    Doubles taps(static_cast<size_t>(length));
    constexpr double kCutoff = 0.05;
    for (int32_t i = 0; i < length; ++i) {
        const double x = i - length / 2;
        const double sinc = x == 0.0
                                ? 2.0 * kCutoff
                                : std::sin(2.0 * std::numbers::pi * kCutoff * x) / (std::numbers::pi * x);
        taps[static_cast<size_t>(i)] =
            gain * sinc * (0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * i / length));
    }
    return taps;
}

TEST(Convolver, KernelReplacedEveryBlockKeepsTheOutputContinuous) {
    wave::Environment environment(4096, 0);
    constexpr int32_t kLength = 4096, kBlock = 64, kSpan = 256;
    const std::vector<Doubles> kernels{lowPass(kLength, 1.0), lowPass(kLength, -0.7), lowPass(kLength, 0.4)};
    Floats input(64 * 1000);
    for (size_t t = 0; t < input.size(); ++t)
        input[t] = static_cast<float>(std::sin(2.0 * std::numbers::pi * 0.004 * static_cast<double>(t)));
    std::vector<Floats> references;
    for (const Doubles& kernel : kernels) {
        Convolver reference(&environment, kLength, kBlock, kSpan);
        publish(reference, kernel);
        references.push_back(run(reference, input, {kBlock}));
    }

    Convolver convolver(&environment, kLength, kBlock, kSpan);
    Floats y(input.size());
    int fades = 0;
    for (size_t position = 0, block = 0; position < input.size(); position += kBlock, ++block) {
        publish(convolver, kernels[block % kernels.size()]);
        const bool wasFading = convolver.isCrossfading();
        convolver.process(input.data() + position, y.data() + position, kBlock);
        fades += wasFading && !convolver.isCrossfading() ? 1 : 0;
    }
    EXPECT_GT(fades, 5);

    // y = a + (b - a) w: its step is at most the larger step of a and b plus |b - a| / span.
    for (size_t t = kLength; t < y.size(); ++t) {
        double lowest = std::numeric_limits<double>::max(), highest = -lowest, steepest = 0.0;
        for (const Floats& reference : references) {
            lowest = std::min<double>(lowest, reference[t - 1]);
            highest = std::max<double>(highest, reference[t - 1]);
            steepest = std::max(steepest, std::abs(static_cast<double>(reference[t]) - reference[t - 1]));
        }
        ASSERT_LE(std::abs(static_cast<double>(y[t]) - y[t - 1]),
                  steepest + (highest - lowest) / kSpan + 1e-5)
            << "at " << t;
        ASSERT_GE(y[t - 1], lowest - 1e-5);
        ASSERT_LE(y[t - 1], highest + 1e-5);
    }
}

TEST(Convolver, AfterAResetTheOutputIsThatOfAFreshConvolverEvenMidCrossfade) {
    wave::Environment environment(4096, 0);
    constexpr int32_t kLength = 8192, kFirst = 256, kResetAt = 10007;
    const Doubles oldKernel = randomKernel(kLength, 31), newKernel = randomKernel(kLength, 32);
    const Floats input = noise(40000, 33);
    const Floats after(input.begin() + kResetAt, input.end());
    for (const bool midCrossfade : {false, true}) {
        Convolver convolver(&environment, kLength, kFirst, 300);
        publish(convolver, oldKernel);
        Floats y;
        runInto(convolver, input, y, 0, kResetAt - 1000, {128});
        if (midCrossfade)
            publish(convolver, newKernel);
        runInto(convolver, input, y, kResetAt - 1000, kResetAt, {128});
        EXPECT_EQ(convolver.isCrossfading(), midCrossfade);
        convolver.reset();
        EXPECT_FALSE(convolver.isCrossfading());
        const Floats resumed = run(convolver, after, {100});

        Convolver fresh(&environment, kLength, kFirst, 300);
        publish(fresh, midCrossfade ? newKernel : oldKernel);
        EXPECT_EQ(resumed, run(fresh, after, {100})) << (midCrossfade ? "mid crossfade" : "steady");
    }
}

TEST(Convolver, NonFiniteInputCountsAsSilenceAndHugeInputLeavesNoTrace) {
    wave::Environment environment(4096, 0);
    constexpr int32_t kLength = 4096, kFirst = 64;
    const Doubles kernel = randomKernel(kLength, 41);
    const Floats clean = noise(30000, 42);
    Floats bad = clean, silenced = clean;
    for (const size_t t : {100u, 5000u, 5001u, 9999u}) {
        bad[t] =
            t % 2 == 0 ? std::numeric_limits<float>::quiet_NaN() : -std::numeric_limits<float>::infinity();
        silenced[t] = 0.0f;
    }
    const auto output = [&](const Floats& input) {
        Convolver convolver(&environment, kLength, kFirst, 100);
        publish(convolver, kernel);
        return run(convolver, input, {333});
    };
    const Floats fromBad = output(bad);
    EXPECT_EQ(fromBad, output(silenced));
    EXPECT_TRUE(std::all_of(fromBad.begin(), fromBad.end(), [](float v) { return std::isfinite(v); }));

    Floats huge = silenced;
    std::fill_n(huge.begin() + 12000, 50, 3e38f);
    const Floats fromHuge = output(huge), reference = output(silenced);
    const size_t gone = 12050 + kLength + kLength / 2 + 2 * 1024;
    for (size_t t = gone; t < clean.size(); ++t)
        ASSERT_NEAR(fromHuge[t], reference[t], 1e-6) << "at " << t;
}

TEST(Convolver, RestsOnlyOnceTheLastSoundHasLeftTheOutput) {
    wave::Environment environment(4096, 0);
    constexpr int32_t kLength = 4096, kFirst = 64, kImpulse = 1000;
    Convolver convolver(&environment, kLength, kFirst, 100);
    publish(convolver, randomKernel(kLength, 61));
    const int32_t rest = kLength + kFirst + 2 * convolver.getLayout().getLargestPartition();
    Floats input(kImpulse + 2 * rest, 0.0f), output(input.size());
    input[kImpulse] = 1.0f;
    size_t done = 0;
    const auto advanceTo = [&](size_t end) {
        convolver.process(input.data() + done, output.data() + done, static_cast<int32_t>(end - done));
        done = end;
        return convolver.isAtRest();
    };
    EXPECT_TRUE(advanceTo(kImpulse));
    EXPECT_FALSE(advanceTo(kImpulse + 1));
    EXPECT_FALSE(advanceTo(kImpulse + rest));
    EXPECT_TRUE(advanceTo(kImpulse + rest + 1));
    advanceTo(input.size());
    // The impulse's response ends with the kernel's last tap, and nothing is left after the rest.
    EXPECT_NE(output[kImpulse + kFirst + kLength - 1], 0.0f);
    EXPECT_TRUE(
        std::all_of(output.begin() + kImpulse + rest + 1, output.end(), [](float v) { return v == 0.0f; }));
}

TEST(ConvolverKernelMailbox, PublishedKernelsReplaceUntakenOnesAndSlotsComeBack) {
    const Convolver::Layout layout(512, 64);
    Convolver::KernelMailbox mailbox(layout);
    const Convolver::Kernel* inUse = mailbox.adoptFirst();
    Convolver::Kernel* a = mailbox.acquire();
    Convolver::Kernel* b = mailbox.acquire();
    Convolver::Kernel* c = mailbox.acquire();
    EXPECT_EQ(mailbox.acquire(), nullptr);
    ASSERT_TRUE(a && b && c);
    EXPECT_TRUE(a != inUse && b != inUse && c != inUse && a != b && b != c && a != c);

    const Doubles taps = unitKernel(512);
    a->setImpulseResponse(taps.data(), 512);
    b->setImpulseResponse(taps.data(), 512);
    mailbox.publish(a);
    mailbox.publish(b); // a was not taken: it is free again
    EXPECT_EQ(mailbox.acquire(), a);
    EXPECT_EQ(mailbox.take(), b);
    EXPECT_EQ(mailbox.take(), nullptr);

    Doubles broken = taps;
    broken[3] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(c->setImpulseResponse(broken.data(), 512));
    mailbox.publish(c); // refused and freed
    EXPECT_EQ(mailbox.take(), nullptr);
    EXPECT_EQ(mailbox.acquire(), c);

    mailbox.discard(a);
    mailbox.release(inUse);
    EXPECT_NE(mailbox.acquire(), nullptr);
    EXPECT_NE(mailbox.acquire(), nullptr);
    EXPECT_EQ(mailbox.acquire(), nullptr);
}

// Feeds a fixed signal block by block.
class SignalSource : public wave::Source {
public:
    SignalSource(wave::Environment* environment, Floats samples)
        : wave::Source(environment), samples(std::move(samples)) {}

    void process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t) override {
        for (int32_t i = 0; i < numSamples; ++i)
            block->getData()[i] = samples[position++ % samples.size()];
    }

private:
    Floats samples;
    size_t position = 0;
};

TEST(Convolver, ProcessingNeitherAllocatesNorLocksWhileKernelsArriveFromAnotherThread) {
    constexpr int32_t kLength = 4096, kMaxBlock = 512;
    wave::Environment environment(kMaxBlock, 0);
    const Floats samples = noise(10007, 51);
    SignalSource source(&environment, samples);
    Convolver convolver(&environment, kLength, 64, 128);
    convolver.setInput(&source);
    const std::vector<Doubles> kernels{randomKernel(kLength, 52), lowPass(kLength, 1.0)};

    std::atomic<bool> stop{false};
    std::atomic<int> published{0}, refused{0};
    std::thread builder([&] {
        for (size_t i = 0; !stop.load(); ++i) {
            Convolver::Kernel* kernel = convolver.acquireFreeKernel();
            if (kernel == nullptr) {
                refused.fetch_add(1);
                continue;
            }
            kernel->setImpulseResponse(kernels[i % kernels.size()].data(), kLength);
            convolver.publishKernel(kernel);
            published.fetch_add(1);
        }
    });

    std::mt19937 generator(53);
    std::uniform_int_distribution<int32_t> blockSize(1, kMaxBlock);
    size_t allocations = 0, time = 0, changed = 0;
    int locks = 0;
    const auto latency = static_cast<size_t>(convolver.getLatency());
    const auto processBlock = [&] {
        environment.nextGeneration();
        const int32_t count = blockSize(generator);
        const float* output = nullptr;
        {
            testing_support::AllocationCounter allocationCounter;
            testing_support::LockCounter lockCounter;
            output = convolver.fetch(count)->getData();
            allocations += allocationCounter.count();
            locks += lockCounter.count();
        }
        // Away from the unit kernel's pure delay once other kernels come in.
        for (int32_t i = 0; i < count; ++i, ++time) {
            const float delayed = time >= latency ? samples[(time - latency) % samples.size()] : 0.0f;
            ASSERT_TRUE(std::isfinite(output[i]));
            changed += std::abs(output[i] - delayed) > 1e-3f ? 1 : 0;
        }
    };
    for (int block = 0; block < 4000; ++block)
        processBlock();
    stop.store(true);
    builder.join();
    // Long enough to take the last kernel published and fade it in.
    for (int block = 0; block < 100; ++block)
        processBlock();

    EXPECT_EQ(allocations, 0u);
    EXPECT_EQ(locks, 0);
    EXPECT_EQ(refused.load(), 0);
    EXPECT_GT(published.load(), 10);
    EXPECT_GT(changed, time / 2);
    // Everything but the kernel in use is free again.
    EXPECT_FALSE(convolver.isCrossfading());
    int free = 0;
    while (convolver.acquireFreeKernel() != nullptr)
        ++free;
    EXPECT_EQ(free, 3);
}

} // namespace
