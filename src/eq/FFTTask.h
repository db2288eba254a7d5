#pragma once

#include "eq/FFTPlan.h"
#include "eq/FFTStepper.h"
#include "eq/GranularTask.h"

#include <cstdint>
#include <vector>

// The steps of a partitioned FFT convolution as granular tasks. Costs are in the FFT plan's units,
// where one pass over the plan's N points costs about N (see FFTPlan's stage costs), so that a
// queue mixing transforms, products and copies spreads real time evenly.
//
// Threading: set up off the audio thread (the buffers they point at must outlive them); then run
// by one thread at a time, allocating nothing.
template <class T>
class FFTTask : public GranularTask {
public:
    explicit FFTTask(const FFTPlan<T>& plan) : plan(plan) {}

    void setOutput(T* values) { output = values; }

protected:
    const FFTPlan<T>& plan;
    T* output = nullptr;
};

// Fills the N-point input of a transform from up to two pieces, in order, and zeros the rest. A
// piece without data stands for zeros (history from before a reset); what would not fit is dropped.
template <class T>
class FFTStoreInputTask : public FFTTask<T> {
public:
    using FFTTask<T>::FFTTask;

    void setPieces(const T* first, int32_t firstLength, const T* second, int32_t secondLength);

protected:
    void prepare() override;
    void runGranule(int32_t granule, int32_t fromUnits, int32_t toUnits) override;

private:
    struct Piece {
        const T* data = nullptr;
        int32_t length = 0;
    };
    Piece pieces[2];
};

// A forward real FFT (N values in, packed spectrum out), one stage piece at a time. The stepper
// may be shared by tasks that never run at the same time. The task's units are the plan's, except
// that the first stage, which reorders the points through the bit reversal, is weighted by what it
// really costs.
template <class T>
class FFTCalculateTask : public FFTTask<T> {
public:
    FFTCalculateTask(const FFTPlan<T>& plan, FFTStepper<T>& stepper)
        : FFTCalculateTask(plan, stepper, FFTStepper<T>::Direction::kForward) {}

    // Input and output may be the same array.
    void setInput(const T* values) { input = values; }

protected:
    FFTCalculateTask(const FFTPlan<T>& plan, FFTStepper<T>& stepper,
                     typename FFTStepper<T>::Direction direction)
        : FFTTask<T>(plan), stepper(stepper), direction(direction) {}

    void prepare() override;
    void runGranule(int32_t granule, int32_t fromUnits, int32_t toUnits) override;

private:
    int32_t reorderCost() const;
    // The plan units spent after `units` of the task's.
    int32_t planUnitsAt(int32_t units) const;

    FFTStepper<T>& stepper;
    typename FFTStepper<T>::Direction direction;
    const T* input = nullptr;
};

// The inverse real FFT, scaled by 1/N.
template <class T>
class FFTCalculateInverseTask : public FFTCalculateTask<T> {
public:
    FFTCalculateInverseTask(const FFTPlan<T>& plan, FFTStepper<T>& stepper)
        : FFTCalculateTask<T>(plan, stepper, FFTStepper<T>::Direction::kInverse) {}
};

// Sums the products of pairs of packed spectra (an input spectrum and a kernel partition) into the
// output; one granule per pair. The first pair overwrites the output unless the task adds onto
// what is there.
template <class T>
class FFTMultiplyTask : public FFTTask<T> {
public:
    using FFTTask<T>::FFTTask;

    // Room for this many pairs; allocates.
    void reserve(int32_t pairs);
    // Takes effect at the next start; count is at most the reserved number.
    void setPairCount(int32_t count, bool addOnto);
    void setPair(int32_t index, const T* input, const T* partition);

protected:
    void prepare() override;
    void runGranule(int32_t granule, int32_t fromUnits, int32_t toUnits) override;

private:
    std::vector<const T*> inputs;
    std::vector<const T*> partitions;
    int32_t pairCount = 0;
    bool addOnto = false;
};

extern template class FFTTask<double>;
extern template class FFTStoreInputTask<double>;
extern template class FFTCalculateTask<double>;
extern template class FFTCalculateInverseTask<double>;
extern template class FFTMultiplyTask<double>;
