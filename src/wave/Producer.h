#pragma once

#include "wave/Block.h"

#include <memory>

namespace wave {

// Base of every graph object.
class Component {
public:
    virtual ~Component() = default;
};

// Delivers one block of samples per generation. A consumer fetches the block; the producer computes
// it at most once per generation however many consumers read it. A producer may publish another
// producer's block as its current block instead of copying.
//
// Threading: constructed and connected under the frame's processing lock, then used from the audio
// thread only. Nothing here allocates after construction.
class Producer : public Component {
public:
    // Why process runs: pulled by a consumer, driven at the end of the block, or driven as a head
    // entry of the schedule.
    enum ProcessFlags : int32_t { kPulled = 0, kDriven = 1, kHead = 2 };
    // Schedule groups, in the order the environment drives them.
    enum ScheduleMode : int32_t { kScheduleHead = 0, kScheduleEarly = 1, kScheduleLate = 2 };

    explicit Producer(Environment* environment, bool withOwnBlock = true);
    ~Producer() override;
    Producer(const Producer&) = delete;
    Producer& operator=(const Producer&) = delete;

    virtual float* getOutput() const;
    virtual bool isAtRest() const { return true; }
    virtual void setEnabled(bool enabled);
    virtual void pull(BasicBlock<float>* block, int32_t numSamples, int32_t flags) {
        process(block, numSamples, flags);
    }
    virtual void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) = 0;
    virtual void reset() {}

    // The block of the current generation, computed on the first request of the generation.
    BasicBlock<float>* fetch(int32_t numSamples);

    // Run as a head entry after every block, even when already pulled.
    void scheduleFirst() { setScheduleMode(kScheduleHead); }
    // Run after every block unless pulled; early entries run before late ones.
    void schedule(bool early) { setScheduleMode(early ? kScheduleEarly : kScheduleLate); }
    void unschedule();
    // Take part in environment resets (once).
    void joinResets();

    Environment* getEnvironment() const { return environment; }
    BasicBlock<float>* getOwnBlock() const { return ownBlock.get(); }
    BasicBlock<float>* getCurrentBlock() const { return currentBlock; }
    int32_t getScheduleMode() const { return scheduleMode; }
    bool isEnabled() const { return enabled; }
    bool isScheduled() const { return scheduled; }
    bool isInResetList() const { return inResetList; }
    int32_t getGeneration() const { return generation; }

protected:
    void setCurrentBlock(BasicBlock<float>* block) { currentBlock = block; }
    void stampGeneration() { generation = environment->getGeneration(); }

private:
    friend class Environment;
    void setScheduleMode(int32_t mode);
    // The environment drives a scheduled producer after the block.
    void drive(int32_t numSamples);

    Environment* environment;
    std::unique_ptr<BasicBlock<float>> ownBlock;
    int32_t scheduleMode = kScheduleLate;
    bool enabled = true;
    bool scheduled = false;
    bool inResetList = false;
    int32_t generation;
    BasicBlock<float>* currentBlock;
};

// A producer with no input.
class Source : public Producer {
public:
    using Producer::Producer;
};

// An object that reads one input producer.
class Consumer {
public:
    virtual ~Consumer() = default;
    virtual void setInput(Producer* producer) = 0;
    virtual Producer* getInput() const = 0;
};

// A producer with one input; an unconnected input reads as the zero block.
class FilterBase : public Producer, public Consumer {
public:
    using Producer::Producer;

    void setInput(Producer* producer) override { input = producer; }
    Producer* getInput() const override { return input; }

protected:
    // The input's block for this generation, computing it if nobody has yet.
    BasicBlock<float>* fetchInput(int32_t numSamples);

private:
    Producer* input = nullptr;
};

// A filter that turns its input's block into its own.
class Filter : public FilterBase {
public:
    using FilterBase::FilterBase;

    void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
    virtual void processFilter(const float* input, BasicBlock<float>* block, int32_t numSamples,
                               int32_t flags) = 0;
};

} // namespace wave

// Stands in where a graph input must exist but carries nothing: always the zero block.
class SilenceProducer : public wave::Producer {
public:
    explicit SilenceProducer(wave::Environment* environment) : wave::Producer(environment, false) {}

    void process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
};
