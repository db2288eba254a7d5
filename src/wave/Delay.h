#pragma once

#include "wave/Producer.h"

namespace wave {

// A delay line: written once per block, read at one delay or at per-sample fractional delays.
class AbstractDelay {
public:
    virtual void read(int32_t delay, float* out, int32_t numSamples) = 0;
    virtual void readFractional(const float* delays, float* out, int32_t numSamples) = 0;
    virtual void processInPlace(float* data, int32_t numSamples) = 0;
    virtual ~AbstractDelay() = default;
};

// A power-of-two ring long enough for the maximum delay plus one block. Reads refer to the block
// just written: delay 0 returns the samples of that block. Where the ring holds nothing written
// since the last reset, integer reads deliver the fill value and fractional reads 0.0.
// Threading: built and resized under the frame's processing lock, then audio thread only.
class Delay : public Component, public AbstractDelay, public DynamicMaxBlockSizeListener {
public:
    Delay(Environment* environment, int32_t maxDelay, int32_t delay = 0);
    ~Delay() override;

    void read(int32_t delay, float* out, int32_t numSamples) override;
    void readFractional(const float* delays, float* out, int32_t numSamples) override;
    // Writes the block, then replaces it with the block delayed by the current delay.
    void processInPlace(float* data, int32_t numSamples) override;
    void maxBlockSizeChanged(int32_t maxBlockSize) override;

    void write(const float* in, int32_t numSamples);
    void reset();

    void setDelay(int32_t delay);
    int32_t getDelay() const { return delay; }
    void setMaxDelay(int32_t maxDelay);
    int32_t getMaxDelay() const { return maxDelay; }
    void setFillValue(float value) { fillValue = value; }
    int32_t getRingSize() const { return ring.getCount(); }
    int32_t getWritten() const { return written; }
    int32_t getWritePosition() const { return writePosition; }
    const float* getRing() const { return ring.getData(); }

private:
    int32_t ringSizeFor(int32_t maxBlockSize) const;

    Environment* environment;
    AlignedBuffer<float> ring;
    int32_t mask;
    float fillValue = 0.0f;
    int32_t delay = 0;
    int32_t maxDelay;
    int32_t written = 0;
    int32_t writePosition = 0;
};

// A filter that writes its input into its own delay line. In mode kWriteWhenPulled the line is
// written when the filter is pulled; in mode kWriteAtBlockEnd the filter is a head entry of the
// schedule and writes at the end of every block, so it can close a feedback loop (its output then
// only reads what earlier blocks wrote). A block in which the filter did not run resets the line.
// Threading: audio thread only after construction.
class DelayFilterBase : public FilterBase {
public:
    enum Mode : int32_t { kWriteWhenPulled = 0, kWriteAtBlockEnd = 1 };

    DelayFilterBase(Environment* environment, int32_t maxDelay, int32_t mode = kWriteWhenPulled);

    void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
    void reset() override { delayLine.reset(); }

    void setMode(int32_t mode);
    int32_t getMode() const { return mode; }
    Delay& getDelayLine() { return delayLine; }

protected:
    virtual void processFilter(BasicBlock<float>* block, int32_t numSamples, int32_t flags) = 0;

private:
    void writeInput(int32_t numSamples);

    Delay delayLine;
    int32_t mode = kWriteWhenPulled;
    int64_t expectedPosition = 0;
};

// Outputs its input delayed by the current delay.
class DelayFilter : public DelayFilterBase {
public:
    DelayFilter(Environment* environment, int32_t maxDelay, int32_t delay = 0,
                int32_t mode = kWriteWhenPulled)
        : DelayFilterBase(environment, maxDelay, mode) {
        getDelayLine().setDelay(delay);
    }

    void setDelay(int32_t delay) { getDelayLine().setDelay(delay); }

protected:
    void processFilter(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
};

} // namespace wave
