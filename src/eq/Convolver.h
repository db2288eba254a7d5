#pragma once

#include "eq/FFTPlan.h"
#include "eq/FFTStepper.h"
#include "wave/AlignedBuffer.h"
#include "wave/Producer.h"

#include <cstdint>
#include <memory>
#include <vector>

// One mono channel of exact partitioned overlap-save convolution with a kernel of N taps. The
// output at time t is sum over m of h[m] x[t - b0 - m], b0 being the first partition size, so a
// kernel centred at N/2 gives a latency of N/2 + b0 (getLatency). This holds for any host block
// sizes, and the output does not depend on them.
//
// The kernel is cut into levels of growing partition size B = b0, 8 b0, 64 b0, ... (see Layout).
// Every level's FFT and multiply work for one block is spread evenly over the next block period
// through its granular task queue, which delays a level's output by 2 B; a level therefore
// starts at tap 2 B - b0. Only the newest partition of the first level is computed at once, at
// every b0 boundary, which is what keeps the whole chain at a delay of b0.
//
// Kernels are handed over through four slots per convolver. The builder (any one thread that is
// not the audio thread, one at a time) asks for a free slot, fills it and publishes it; a kernel
// published before the previous one was taken replaces it. At a b0 boundary process() takes the
// newest published kernel and crossfades to it: the new kernel runs beside the old one, its
// weight is held at 0 until every level has produced a block with it, then rises linearly to 1
// over the crossfade span; after that the old kernel's slot is free again. A kernel published
// during a crossfade waits for it to end. A kernel taken right after a reset (or before the first
// sample) is used at once, since there is no output yet to fade from. Until the first kernel
// arrives the convolver runs the centred unit kernel, a pure delay of N/2 + b0, so no audio is
// lost while the first kernel builds.
//
// Non-finite input samples are taken as silence, so they never reach the convolution's history.
//
// Threading: construction and configure() off the audio thread, while neither process() nor a
// builder runs (configure invalidates every slot). acquireFreeKernel, publishKernel and
// discardKernel on the builder thread; process, processFilter and reset on the audio thread, which
// never waits, locks or allocates.
class Convolver : public wave::Filter {
public:
    // One level: partitions of `size` taps serving the kernel from `firstTap` on.
    struct LevelShape {
        int32_t size = 0;
        int32_t firstTap = 0;
        int32_t partitions = 0;
    };
    class Layout;
    class Kernel;
    class KernelMailbox;
    class Processor;

    static constexpr int32_t kDefaultFirstPartition = 64;
    static constexpr int32_t kMinimumPartition = 8;
    static constexpr int32_t kMaximumPartition = 1 << 16;
    static constexpr int32_t kMaximumKernelLength = 1 << 21;

    Convolver(wave::Environment* environment, int32_t kernelLength, int32_t firstPartition,
              int32_t crossfadeSamples);
    ~Convolver() override;

    // Allocates the levels, their buffers and the kernel slots for a kernel of kernelLength taps
    // (clamped to 1 .. kMaximumKernelLength) and a first partition of firstPartition samples
    // (64 when 0 or less, else rounded up to a power of two within the partition limits).
    // Starts from the unit kernel and a reset state.
    void configure(int32_t kernelLength, int32_t firstPartition, int32_t crossfadeSamples);

    // Builder thread. A free slot sized for this convolver's layout; null only when the builder
    // holds more than one already. Fill it (Kernel::setImpulseResponse, FrequencyResponseKernel),
    // then publish or discard it. A kernel whose last fill failed is discarded instead of published.
    Kernel* acquireFreeKernel();
    void publishKernel(Kernel* kernel);
    void discardKernel(Kernel* kernel);

    // Audio thread. Input and output may be the same array.
    void process(const float* input, float* output, int32_t numSamples);
    void processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                       int32_t flags) override;
    // Clears the history and the outputs; a running crossfade ends on the new kernel.
    void reset() override;
    // True once the last non-zero input sample has left every output: N + b0 + 2 B_max samples
    // later (see samplesToRest).
    bool isAtRest() const override;

    // N/2 + b0 samples.
    int32_t getLatency() const;
    const Layout& getLayout() const { return *layout; }
    int32_t getCrossfadeSamples() const { return crossfadeSamples; }
    // Audio thread: whether a taken kernel is still on its way in (waiting for its blocks or fading).
    bool isCrossfading() const { return incoming >= 0; }

private:
    int64_t samplesToRest() const;
    bool laneIsValid(int32_t lane) const;
    void atBoundary();
    void takeKernel();
    void finishCrossfade();
    void writeHistory(const float* input, int32_t count);
    void mix(float* output, int32_t count);
    void sumLane(int32_t lane, double* out, int32_t count) const;

    std::unique_ptr<Layout> layout;
    std::unique_ptr<KernelMailbox> mailbox;
    std::vector<std::unique_ptr<Processor>> levels;
    // The input of the last 4 B_max samples, in double: every level's transforms read it.
    AlignedBuffer<double> history;
    int32_t historyMask = 0;
    // Per lane: the sum of the levels' outputs for the current step.
    AlignedBuffer<double> laneSums[2];
    const Kernel* laneKernels[2] = {nullptr, nullptr};
    int32_t current = 0;
    int32_t incoming = -1;
    bool fading = false;
    int32_t fadePosition = 0;
    int32_t crossfadeSamples = 0;
    // Samples since the last reset, and since the last non-zero input sample.
    int64_t time = 0;
    int64_t quietSamples = 0;
};

// How a kernel of N taps is cut into levels. Sizes are b0, 8 b0, 64 b0, ...: a size B is followed
// by 8 B as long as 32 B <= N. Level 0 serves taps [0, 15 b0) (all of them with one level); a
// later level of size B serves [2 B - b0, 16 B - b0), i.e. 14 partitions, the last level up to N.
// Each level's FFT has 2 B points; the plans are made here once and shared, read only, by the
// level processors and the kernels. Threading: immutable once built, read by any thread.
class Convolver::Layout {
public:
    Layout(int32_t kernelLength, int32_t firstPartition);

    // The size of the last level, without building a layout.
    static int32_t largestPartitionFor(int32_t kernelLength, int32_t firstPartition);

    int32_t getKernelLength() const { return kernelLength; }
    int32_t getFirstPartition() const { return levels.front().size; }
    int32_t getLargestPartition() const { return levels.back().size; }
    int32_t getLevelCount() const { return static_cast<int32_t>(levels.size()); }
    const LevelShape& getLevel(int32_t level) const { return levels[static_cast<size_t>(level)]; }
    const FFTPlan<double>& getPlan(int32_t level) const { return *plans[static_cast<size_t>(level)]; }
    // Where a level's partition spectra start in a kernel's storage, and the storage's size.
    int32_t getSpectrumOffset(int32_t level) const { return spectrumOffsets[static_cast<size_t>(level)]; }
    int32_t getSpectrumSize() const { return spectrumOffsets.back(); }

private:
    int32_t kernelLength;
    std::vector<LevelShape> levels;
    std::vector<int32_t> spectrumOffsets;
    std::vector<std::unique_ptr<FFTPlan<double>>> plans;
};

// The partition spectra of one impulse response, laid out for a convolver's levels: for every
// level and partition the packed 2 B-point spectrum of the partition's B taps followed by B zeros.
// Threading: filled by one thread at a time, never the audio thread; not changed while published.
class Convolver::Kernel {
public:
    explicit Kernel(const Layout& layout);
    ~Kernel();

    // Replaces the kernel by the first min(count, N) taps (the rest zero); allocates nothing.
    // Returns false, leaving the kernel unusable, when a tap is not finite.
    bool setImpulseResponse(const double* taps, int32_t count);

    const Layout& getLayout() const { return layout; }
    bool isFilled() const { return filled; }
    const double* getPartition(int32_t level, int32_t index) const;

private:
    friend class KernelMailbox;

    const Layout& layout;
    AlignedBuffer<double> spectra;
    std::vector<std::unique_ptr<FFTStepper<double>>> steppers;
    bool filled = false;
};
