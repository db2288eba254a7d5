#pragma once

#include "eq/Convolver.h"
#include "eq/FFTTask.h"
#include "eq/GranularTask.h"

#include <cstdint>

// One level of the convolver: uniformly partitioned overlap-save convolution with blocks of B
// samples and transforms of 2 B points. The spectra of the last P input blocks form a ring shared
// by two lanes, each running its own kernel: the one in use and the one fading in.
//
// A level's period is one block of B samples. At a period's start the level queues its work for
// the block that just ended: copy the last 2 B input samples, transform them into the ring,
// multiply-accumulate the ring with each lane's partitions, inverse-transform; the queue spreads
// it over the period, and at the period's end the result becomes the output of the next block:
// a delay of 2 B. The first level (immediate) instead queues the products of its older partitions
// for the coming block and does the newest partition's transform, product and inverse at the
// block's end, a delay of B.
//
// Threading: built off the audio thread; the rest is called by the convolver on the audio thread
// and allocates nothing.
class Convolver::Processor {
public:
    static constexpr int32_t kLanes = 2;

    Processor(const Layout& layout, int32_t level, const double* history, int32_t historyMask);

    // At time (samples since reset) t, a multiple of B: the period that ends there finishes, then
    // the next one starts.
    void endPeriod(int64_t t);
    void startPeriod(int64_t t);
    // Queued work for `samples` more samples of the period.
    void run(int32_t samples) { queue.run(samples); }

    // Adds the lane's output for samples [t, t + count) of one block to out, when the lane's kernel
    // produced the current block.
    void addOutput(int32_t lane, int64_t t, double* out, int32_t count) const;
    // The lane runs this kernel from the next period on; null stops the lane now.
    void setKernel(int32_t lane, const Kernel* kernel);
    // Whether the current block came from the lane's kernel.
    bool isValid(int32_t lane) const { return lanes[lane].valid; }
    void reset();

private:
    struct Lane {
        Lane(const FFTPlan<double>& plan, FFTStepper<double>& stepper)
            : multiply(plan), inverse(plan, stepper) {}

        const Kernel* kernel = nullptr;
        bool running = false; // in the current period
        bool valid = false;
        // Written and read in turn: one holds the current block, the other the next.
        AlignedBuffer<double> blocks[2];
        FFTMultiplyTask<double> multiply;
        FFTCalculateInverseTask<double> inverse;
    };

    const double* entry(int32_t age) const;
    // Stores the input block ending at t and transforms it into a new ring entry.
    void prepareTransform(int64_t t);
    void queuePartitions(Lane& lane, int32_t firstPartition, int32_t firstAge, bool addOnto);

    const int32_t level;
    const bool immediate;
    const int32_t size;
    const int32_t partitions;
    const double* const history;
    const int32_t historyMask;
    FFTStepper<double> stepper;
    AlignedBuffer<double> ring;
    int32_t newest = 0;
    int32_t entries = 0;
    AlignedBuffer<double> transformInput;
    FFTStoreInputTask<double> store;
    FFTCalculateTask<double> forward;
    Lane lanes[kLanes];
    int32_t readBlock = 0;
    bool periodRunning = false;
    GranularTaskQueue queue;
};
