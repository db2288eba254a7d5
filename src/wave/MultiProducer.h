#pragma once

#include "wave/Producer.h"

#include <memory>
#include <vector>

namespace wave {

// A component whose outputs are computed together: pulling any one output computes all of them
// once for the generation.
// Threading: built under the frame's processing lock, then audio thread only.
class MultiProducer : public Component {
public:
    // One output of the component, with no block of its own: it publishes the component's block.
    class Output : public Producer {
    public:
        Output(MultiProducer& owner, int32_t index)
            : Producer(owner.environment, false), owner(owner), index(index) {}

        float* getOutput() const override { return owner.getOutput(index); }
        void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
        void reset() override { owner.reset(); }

        int32_t getIndex() const { return index; }

    private:
        friend class MultiProducer;
        void publish(BasicBlock<float>* block) {
            setCurrentBlock(block);
            stampGeneration();
        }

        MultiProducer& owner;
        int32_t index;
    };

    MultiProducer(Environment* environment, int32_t numOutputs);
    ~MultiProducer() override;

    virtual float* getOutput(int32_t index) const { return blocks[static_cast<size_t>(index)]->getData(); }
    virtual void processAll(float* const* outputs, int32_t numSamples) = 0;
    virtual void reset() {}

    int32_t getNumOutputs() const { return numOutputs; }
    Output* getOutputProducer(int32_t index) const { return outputs[static_cast<size_t>(index)].get(); }
    Environment* getEnvironment() const { return environment; }

protected:
    // The output's own block, e.g. to mark it constant from processAll.
    BasicBlock<float>* getOutputBlock(int32_t index) const {
        return blocks[static_cast<size_t>(index)].get();
    }
    // From processAll: the output publishes this block (an input's, or another output's) instead of
    // its own, so a result equal to an existing block costs no copy.
    void forwardOutput(int32_t index, BasicBlock<float>* block) {
        published[static_cast<size_t>(index)] = block;
    }

private:
    void computeAll(int32_t numSamples);

    Environment* environment;
    int32_t numOutputs;
    std::vector<std::unique_ptr<BasicBlock<float>>> blocks;
    std::vector<std::unique_ptr<Output>> outputs;
    std::vector<float*> outputData;
    std::vector<BasicBlock<float>*> published;
};

} // namespace wave
