#include "wave/Mixer.h"

#include "wave/BlockMath.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace wave {

namespace {

constexpr float kTinyMagnitude = 1e-09f;

struct ScaledInput {
    const float* samples = nullptr;
    const BasicBlock<float>* gain = nullptr;
};

// out := a * ga + b * gb + c * gc, or out += that when add is set.
void addThree(const std::array<ScaledInput, 3>& inputs, float* out, int32_t numSamples, bool add) {
    const float* a = inputs[0].samples;
    const float* b = inputs[1].samples;
    const float* c = inputs[2].samples;
    const float* ga = inputs[0].gain->getData();
    const float* gb = inputs[1].gain->getData();
    const float* gc = inputs[2].gain->getData();
    const bool scalarGains = std::all_of(inputs.begin(), inputs.end(),
                                         [](const ScaledInput& in) { return in.gain->isConstant(); });
    const float sa = ga[0], sb = gb[0], sc = gc[0];
    if (scalarGains && add) {
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] += a[i] * sa + b[i] * sb + c[i] * sc;
    } else if (scalarGains) {
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] = a[i] * sa + b[i] * sb + c[i] * sc;
    } else if (add) {
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] += a[i] * ga[i] + b[i] * gb[i] + c[i] * gc[i];
    } else {
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] = a[i] * ga[i] + b[i] * gb[i] + c[i] * gc[i];
    }
}

// out := |in| * gain.
void applyGainToMagnitude(const float* in, const BasicBlock<float>& gain, float* out, int32_t numSamples) {
    const float* g = gain.getData();
    if (gain.isConstant()) {
        const float s = g[0];
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] = std::fabs(in[i]) * s;
    } else {
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] = std::fabs(in[i]) * g[i];
    }
}

// Operations whose result starts from the magnitude of the first input.
bool startsFromMagnitude(Mixer::Operation op) {
    return op == Mixer::kMaximumMagnitude || op == Mixer::kLimitedRatio || op == Mixer::kRatio ||
           op == Mixer::kHeldRatio;
}

} // namespace

Mixer::Mixer(Environment* environment)
    : Source(environment), unity(environment, 1.0f), scratch(environment) {}

int32_t Mixer::addInput(Producer* producer, Producer* gain) {
    inputs.push_back({producer, gain});
    return getNumInputs() - 1;
}

void Mixer::setInput(int32_t index, Producer* producer, Producer* gain) {
    inputs[static_cast<size_t>(index)] = {producer, gain};
}

const BasicBlock<float>& Mixer::gainBlock(const Input& input, int32_t numSamples) const {
    if (input.gain == nullptr)
        return unity;
    return *input.gain->fetch(numSamples);
}

void Mixer::process(BasicBlock<float>* block, int32_t numSamples, int32_t) {
    bool constant = true;
    const bool started = operation.getValue() == kAdd ? add(block->getData(), numSamples, constant)
                                                      : fold(block->getData(), numSamples, constant);
    if (!started) {
        setCurrentBlock(getEnvironment()->getZeroBlock());
        return;
    }
    block->setConstant(constant);
}

// Sums three inputs per pass, so the result is read and written once for every three inputs; the
// remaining one or two are added by multiply-add.
bool Mixer::add(float* out, int32_t numSamples, bool& constant) {
    std::array<ScaledInput, 3> pending{};
    size_t count = 0;
    bool started = false;
    for (const Input& input : inputs) {
        if (input.producer == nullptr)
            continue;
        const BasicBlock<float>* block = input.producer->fetch(numSamples);
        pending[count] = {block->getData(), &gainBlock(input, numSamples)};
        constant = constant && block->isConstant() && pending[count].gain->isConstant();
        if (++count == pending.size()) {
            addThree(pending, out, numSamples, started);
            started = true;
            count = 0;
        }
    }
    for (size_t k = 0; k < count; ++k) {
        applyGain(pending[k].samples, pending[k].gain, out, numSamples, started);
        started = true;
    }
    return started;
}

bool Mixer::fold(float* out, int32_t numSamples, bool& constant) {
    const Operation op = operation.getValue();
    bool started = false;
    for (const Input& input : inputs) {
        if (input.producer == nullptr)
            continue;
        const BasicBlock<float>& in = *input.producer->fetch(numSamples);
        const BasicBlock<float>& gain = gainBlock(input, numSamples);
        constant = constant && in.isConstant() && gain.isConstant();
        const bool magnitude = started ? op == kMaximumMagnitude : startsFromMagnitude(op);
        float* target = started ? scratch.getData() : out;
        if (magnitude)
            applyGainToMagnitude(in.getData(), gain, target, numSamples);
        else
            applyGain(in.getData(), &gain, target, numSamples, false);
        if (started)
            combine(op, out, target, numSamples);
        started = true;
    }
    return started;
}

void Mixer::combine(Operation op, float* acc, const float* x, int32_t numSamples) {
    switch (op) {
    case kAdd: // summed by add(), never folded
        break;
    case kSubtract:
        for (int32_t i = 0; i < numSamples; ++i)
            acc[i] -= x[i];
        break;
    case kMaximumMagnitude:
    case kMaximum:
        for (int32_t i = 0; i < numSamples; ++i)
            acc[i] = std::max(acc[i], x[i]);
        break;
    case kMultiply:
        for (int32_t i = 0; i < numSamples; ++i)
            acc[i] *= x[i];
        break;
    case kLimitedRatio:
        for (int32_t i = 0; i < numSamples; ++i) {
            const float ratio = std::min(acc[i] / std::fabs(x[i]), 1.0f);
            acc[i] = x[i] == 0.0f || ratio < 0.0f ? 0.0f : ratio;
        }
        break;
    case kRatio:
        for (int32_t i = 0; i < numSamples; ++i)
            acc[i] = std::max(acc[i], kTinyMagnitude) / std::max(std::fabs(x[i]), kTinyMagnitude);
        break;
    case kHeldRatio:
        for (int32_t i = 0; i < numSamples; ++i) {
            const float divisor = std::fabs(x[i]);
            if (divisor > kTinyMagnitude) {
                acc[i] /= divisor;
                // A NaN ratio is passed on but never held, so finite input heals the output.
                if (std::isfinite(acc[i]))
                    heldRatio = acc[i];
            } else {
                acc[i] = heldRatio;
            }
        }
        break;
    case kMinimum:
        for (int32_t i = 0; i < numSamples; ++i)
            acc[i] = std::min(acc[i], x[i]);
        break;
    }
}

} // namespace wave
