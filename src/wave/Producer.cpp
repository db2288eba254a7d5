#include "wave/Producer.h"

namespace wave {

Producer::Producer(Environment* environment, bool withOwnBlock)
    : environment(environment),
      ownBlock(withOwnBlock ? std::make_unique<BasicBlock<float>>(environment) : nullptr),
      generation(static_cast<int32_t>(static_cast<uint32_t>(environment->getGeneration()) - 1u)),
      currentBlock(environment->getZeroBlock()) {
    environment->registerProducer();
}

Producer::~Producer() {
    environment->unregisterProducer(this);
}

float* Producer::getOutput() const {
    return currentBlock != nullptr ? currentBlock->getData() : nullptr;
}

void Producer::setEnabled(bool value) {
    if (value == enabled)
        return;
    if (!value && scheduled)
        environment->removeScheduled(this);
    enabled = value;
    if (!enabled)
        return;
    if (scheduled)
        environment->insertScheduled(this);
    if (inResetList)
        reset();
}

BasicBlock<float>* Producer::fetch(int32_t numSamples) {
    if (generation != environment->getGeneration()) {
        currentBlock = ownBlock.get();
        process(ownBlock.get(), numSamples, kPulled);
        stampGeneration();
    }
    return currentBlock != nullptr ? currentBlock : environment->getZeroBlock();
}

void Producer::unschedule() {
    if (scheduled && enabled)
        environment->removeScheduled(this);
    scheduled = false;
}

void Producer::setScheduleMode(int32_t mode) {
    unschedule();
    scheduleMode = mode;
    scheduled = true;
    if (enabled)
        environment->insertScheduled(this);
}

void Producer::joinResets() {
    if (inResetList)
        return;
    inResetList = true;
    environment->joinResetList(this);
}

void Producer::drive(int32_t numSamples) {
    const bool head = scheduleMode == kScheduleHead;
    if (head || generation != environment->getGeneration()) {
        currentBlock = ownBlock.get();
        process(ownBlock.get(), numSamples, head ? kHead : kDriven);
    }
    stampGeneration();
}

BasicBlock<float>* FilterBase::fetchInput(int32_t numSamples) {
    return input != nullptr ? input->fetch(numSamples) : getEnvironment()->getZeroBlock();
}

void Filter::process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) {
    processFilter(fetchInput(numSamples)->getData(), block, numSamples, flags);
}

} // namespace wave

void SilenceProducer::process(wave::BasicBlock<float>*, int32_t, int32_t) {
    setCurrentBlock(getEnvironment()->getZeroBlock());
}
