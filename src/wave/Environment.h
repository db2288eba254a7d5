#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace wave {

class ChildEnvironment;
class ConstValueBlock;
class DynamicMaxBlockSizeListener;
class Producer;

// Told when the environment's sample rate really changed.
class SampleRateListener {
public:
    virtual ~SampleRateListener() = default;
    virtual void sampleRateChanged(float sampleRate) = 0;
};

// The clock and bookkeeping of one audio graph: sample rate, maximum block size, running position,
// the block counter (generation), the producers driven after every block and those that take part
// in resets.
//
// Threading: built, connected and resized under the frame's processing lock; after that used from
// the audio thread only. The schedule and the reset list reserve room for every producer built in
// this environment, so scheduling, enabling and disabling while processing never allocate. The
// environment must outlive every producer, block and delay registered with it.
class Environment {
public:
    static constexpr float kDefaultSampleRate = 44100.0f;

    Environment(int32_t maxBlockSize, int32_t secondSize);
    virtual ~Environment();
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    virtual int32_t getMaxBlockSize() const;
    virtual void addMaxBlockSizeListener(DynamicMaxBlockSizeListener* listener);
    virtual void removeMaxBlockSizeListener(DynamicMaxBlockSizeListener* listener);

    void setMaxBlockSize(int32_t size);
    int32_t getSecondSize() const { return secondSize; }

    float getSampleRate() const { return sampleRate; }
    void setSampleRate(float rate);
    void setPrimarySampleRateListener(SampleRateListener* listener) { primaryListener = listener; }
    void addSampleRateListener(SampleRateListener* listener);
    void removeSampleRateListener(SampleRateListener* listener);

    int32_t msToSamples(double ms) const { return msToSamples(ms, sampleRate); }
    static int32_t msToSamples(double ms, double rate);
    double samplesToMs(int32_t samples) const;
    int32_t secondsToSamples(double seconds) const;
    // Power-of-two multiple of 48 kHz that analysis and kernel sizes scale with.
    static int32_t getRateFactor(double rate);

    int32_t getGeneration() const { return generation; }
    void nextGeneration();
    // Drives the scheduled producers (unless skipScheduled), then moves the position on.
    void advance(int32_t numSamples, bool skipScheduled);
    // Kind 1 resets every producer of the reset list, kinds 0 and 3 only enabled ones, kind 2 none;
    // kind 2 leaves the last full reset position alone, kind 3 does not reach the children.
    void reset(int32_t kind);
    bool isAtRest() const;

    int64_t getPosition() const { return position; }
    int64_t getPositionAtLastReset() const { return positionAtLastReset; }
    int64_t getPositionAtLastFullReset() const { return positionAtLastFullReset; }

    ConstValueBlock* getZeroBlock() const { return zeroBlock.get(); }

    bool isClosing() const { return closing; }
    void setClosing(bool value);
    // Set by the frame while a display asks for real-time data; graph objects may pause
    // display-only work while it is clear.
    bool isDisplayActive() const { return displayActive; }
    void setDisplayActive(bool value);

    // Bookkeeping called by Producer; not for other callers.
    void registerProducer();
    void unregisterProducer(Producer* producer);
    void insertScheduled(Producer* producer);
    void removeScheduled(Producer* producer);
    void joinResetList(Producer* producer);
    int32_t getHeadCount() const { return headCount; }
    const std::vector<Producer*>& getSchedule() const { return schedule; }

private:
    friend class ChildEnvironment;
    void addChild(ChildEnvironment* child);
    void removeChild(ChildEnvironment* child);
    void reserveLists();

    float sampleRate = kDefaultSampleRate;
    int32_t maxBlockSize;
    int32_t secondSize;
    SampleRateListener* primaryListener = nullptr;
    std::vector<SampleRateListener*> sampleRateListeners;
    std::vector<Producer*> schedule;
    int32_t headCount = 0;
    std::vector<Producer*> resetList;
    int32_t producerCount = 0;
    bool closing = false;
    bool displayActive = false;
    int64_t position = 0;
    int64_t positionAtLastReset = 0;
    int64_t positionAtLastFullReset = 0;
    std::vector<ChildEnvironment*> children;
    std::vector<DynamicMaxBlockSizeListener*> blockSizeListeners;
    int32_t generation = 0;
    std::unique_ptr<ConstValueBlock> zeroBlock;
};

// The environment of a graph that runs at an integer multiple of its parent's sample rate (an
// oversampling stage). It follows the parent's rate and block size scaled by the factor and moves
// on factor samples for each parent sample.
class ChildEnvironment : public Environment {
public:
    ChildEnvironment(Environment& parent, int32_t rateFactor);
    ~ChildEnvironment() override;

    virtual void advance(int32_t parentSamples, bool skipScheduled);

    int32_t getRateFactor() const { return rateFactor; }
    void parentSampleRateChanged(float parentRate) {
        setSampleRate(parentRate * static_cast<float>(rateFactor));
    }
    void parentMaxBlockSizeChanged(int32_t parentSize) { setMaxBlockSize(parentSize * rateFactor); }

private:
    Environment& parent;
    int32_t rateFactor;
};

} // namespace wave
