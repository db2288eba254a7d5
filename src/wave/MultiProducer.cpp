#include "wave/MultiProducer.h"

#include <algorithm>

namespace wave {

MultiProducer::MultiProducer(Environment* environment, int32_t numOutputs)
    : environment(environment), numOutputs(numOutputs) {
    const auto count = static_cast<size_t>(std::max(numOutputs, 0));
    blocks.reserve(count);
    outputs.reserve(count);
    outputData.resize(count);
    published.resize(count);
    for (int32_t index = 0; index < numOutputs; ++index) {
        blocks.push_back(std::make_unique<BasicBlock<float>>(environment));
        outputs.push_back(std::make_unique<Output>(*this, index));
    }
}

MultiProducer::~MultiProducer() = default;

void MultiProducer::Output::process(BasicBlock<float>*, int32_t numSamples, int32_t) {
    owner.computeAll(numSamples);
}

void MultiProducer::computeAll(int32_t numSamples) {
    for (size_t index = 0; index < blocks.size(); ++index) {
        outputData[index] = blocks[index]->getData();
        published[index] = blocks[index].get();
    }
    processAll(outputData.data(), numSamples);
    for (size_t index = 0; index < outputs.size(); ++index)
        outputs[index]->publish(published[index]);
}

} // namespace wave
