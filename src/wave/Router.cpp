#include "wave/Router.h"

#include "wave/BlockMath.h"

#include <algorithm>
#include <limits>

namespace wave {

int32_t Router::addRoute(Producer* producer, float gain) {
    auto parameter = std::make_unique<FloatParameter>(getEnvironment(), gain);
    // Gains are not limited; boosts above unity are as valid as cuts.
    constexpr float kLimit = std::numeric_limits<float>::max();
    parameter->setRange(-kLimit, kLimit);
    routes.push_back({producer, std::move(parameter)});
    passThrough = nullptr;
    return getNumRoutes() - 1;
}

void Router::setRouteProducer(int32_t index, Producer* producer) {
    route(index).producer = producer;
    passThrough = nullptr;
}

void Router::setRouteGain(int32_t index, float gain) {
    route(index).gain->setValue(gain, kGainSmoothingMs);
    passThrough = nullptr;
}

void Router::jumpRouteGain(int32_t index, float gain) {
    route(index).gain->jumpTo(gain);
    passThrough = nullptr;
}

void Router::process(BasicBlock<float>* block, int32_t numSamples, int32_t) {
    if (passThrough != nullptr) {
        setCurrentBlock(passThrough->fetch(numSamples));
        return;
    }

    float* out = block->getData();
    Producer* notedUnity = nullptr;
    bool written = false;
    bool constant = true;
    for (Route& r : routes) {
        if (r.producer == nullptr)
            continue;
        const BasicBlock<float>& gain = r.gain->getValueBlockAt(numSamples);
        if (isConstantAt(gain, 0.0f))
            continue;
        const bool unity = isConstantAt(gain, 1.0f);
        if (!written && notedUnity == nullptr && unity) {
            notedUnity = r.producer;
            continue;
        }
        const BasicBlock<float>& in = *r.producer->fetch(numSamples);
        constant = constant && in.isConstant() && gain.isConstant();
        if (notedUnity != nullptr) {
            const BasicBlock<float>& noted = *notedUnity->fetch(numSamples);
            constant = constant && noted.isConstant();
            std::copy_n(noted.getData(), numSamples, out);
            written = true;
            notedUnity = nullptr;
        }
        applyGain(in.getData(), unity ? nullptr : &gain, out, numSamples, written);
        written = true;
    }

    if (notedUnity != nullptr) {
        passThrough = notedUnity;
        setCurrentBlock(passThrough->fetch(numSamples));
        return;
    }
    if (!written) {
        setCurrentBlock(getEnvironment()->getZeroBlock());
        return;
    }
    block->setConstant(constant);
}

} // namespace wave
