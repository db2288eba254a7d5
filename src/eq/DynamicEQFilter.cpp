#include "eq/DynamicEQFilter.h"

#include "foundation/Numbers.h"
#include "wave/BlockMath.h"
#include "wave/FastLevel.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr float kLowestQ = 0.025f;
constexpr float kHighestQ = 40.0f;

float clampGain(float db) {
    return std::clamp(db, -DynamicEQFilter::kGainLimitDb, DynamicEQFilter::kGainLimitDb);
}

// Hands one block of parameter values to a filter: constants as such, ramps per sample.
void feed(EQFilter& filter, const wave::BasicBlock<float>& frequencies, const wave::BasicBlock<float>& gains,
          const wave::BasicBlock<float>& qs) {
    filter.setFrequency(frequencies.getData()[0]);
    filter.setGain(gains.getData()[0]);
    filter.setQ(qs.getData()[0]);
    const auto perSample = [](const wave::BasicBlock<float>& block) {
        return block.isConstant() ? nullptr : block.getData();
    };
    filter.setParameterBlocks(perSample(frequencies), perSample(gains), perSample(qs));
}

} // namespace

DynamicEQFilter::DynamicEQFilter(wave::Environment* environment)
    : Producer(environment), filterA(environment), filterB(environment),
      frequencyParameter(environment, EQFilter::kDefaultFrequencyLog2), qParameter(environment, 1.0f),
      gainA(environment, 0.0f), gainB(environment, 0.0f) {
    frequencyParameter.getParameter().setRange(EQFilter::kMinimumFrequencyLog2,
                                               EQFilter::kMaximumFrequencyLog2);
    qParameter.getParameter().setRange(kLowestQ, kHighestQ);
    for (FloatParameterSource* gain : {&gainA, &gainB})
        gain->getParameter().setRange(-kGainLimitDb, kGainLimitDb);
}

void DynamicEQFilter::setInput(wave::Producer* producer) {
    input = producer;
    filterA.setInput(producer);
    filterB.setInput(producer);
}

void DynamicEQFilter::setGainSource(wave::Producer* producer) {
    gainSource = producer;
    updateGains();
}

void DynamicEQFilter::linkJoint(DynamicEQFilter* partner) {
    const auto link = [](EQFilter& filter, EQFilter* other) {
        if (other == nullptr) {
            if (filter.getPartner() != nullptr)
                filter.clearLink();
        } else if (filter.getPartner() != other || filter.getLinkMode() != BiquadFilter::kJoint) {
            filter.linkWith(*other, BiquadFilter::kJoint);
        }
    };
    link(filterA, partner != nullptr ? &partner->filterA : nullptr);
    link(filterB, partner != nullptr ? &partner->filterB : nullptr);
}

void DynamicEQFilter::reset() {
    filterA.reset();
    filterB.reset();
}

void DynamicEQFilter::propertyChanged(AbstractProperty& property) {
    if (&property == &shape) {
        filterA.shape.setValue(shape);
        filterB.shape.setValue(shape);
    } else if (&property == &slope) {
        filterA.slope.setValue(slope);
        filterB.slope.setValue(slope);
    } else if (&property == &frequency) {
        frequencyParameter.setValue(frequency);
    } else if (&property == &q) {
        qParameter.setValue(q);
    } else {
        updateGains();
    }
}

void DynamicEQFilter::updateGains() {
    filterA.enabled.setValue(filterEnabled);
    filterB.enabled.setValue(filterEnabled);
    const float staticGain = clampGain(baseGain * gainScale);
    const float fullGain = clampGain((baseGain + range) * gainScale);
    const bool wasDynamic = dynamic;
    dynamic = dynamicsEnabled && std::fabs(staticGain - fullGain) > kFloatEpsilon;
    if (dynamic) {
        // Filter B has not run while the band was static; its old states belong to older input.
        if (!wasDynamic)
            filterB.resetStates();
        gainA.getParameter().jumpTo(staticGain);
        gainB.setValue(fullGain);
        return;
    }
    if (gainSource == nullptr)
        gainA.getParameter().jumpTo(staticGain);
    else
        gainA.setValue(staticGain);
    gainB.getParameter().jumpTo(0.0f);
}

void DynamicEQFilter::process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t) {
    if (isFadedOut()) {
        setCurrentBlock(wave::fetchOrZero(input, numSamples, getEnvironment()));
        return;
    }
    const auto& frequencies = *frequencyParameter.fetch(numSamples);
    const auto& qs = *qParameter.fetch(numSamples);
    const auto& gainsA = *gainA.fetch(numSamples);
    feed(filterA, frequencies, gainsA, qs);
    wave::BasicBlock<float>* outputA = filterA.fetch(numSamples);
    if (!dynamic) {
        setCurrentBlock(outputA);
        return;
    }
    const auto& gainsB = *gainB.fetch(numSamples);
    feed(filterB, frequencies, gainsB, qs);
    const float* outputB = filterB.fetch(numSamples)->getData();
    const float* changes = wave::fetchOrZero(gainSource, numSamples, getEnvironment())->getData();
    crossfade(outputA->getData(), outputB, gainsA, gainsB, changes, block->getData(), numSamples);
    block->setConstant(false);
    setCurrentBlock(block);
}

void DynamicEQFilter::crossfade(const float* yA, const float* yB, const wave::BasicBlock<float>& gainsA,
                                const wave::BasicBlock<float>& gainsB, const float* changes, float* out,
                                int32_t numSamples) const {
    const bool steadyEnds = gainsA.isConstant() && gainsB.isConstant();
    float linearA = wave::fastDbToAmplitude(gainsA.getData()[0]);
    float linearB = wave::fastDbToAmplitude(gainsB.getData()[0]);
    const float scale = gainScale;
    const float base = baseGain;
    for (int32_t i = 0; i < numSamples; ++i) {
        if (!steadyEnds) {
            linearA = wave::fastDbToAmplitude(gainsA.getData()[i]);
            linearB = wave::fastDbToAmplitude(gainsB.getData()[i]);
        }
        const float linear = wave::fastDbToAmplitude(clampGain((base + changes[i]) * scale));
        const float position = (linear - linearA) / (linearB - linearA);
        // Written so that NaN lands on filter A.
        const float t = position > 0.0f ? std::min(position, 1.0f) : 0.0f;
        out[i] = yA[i] + (yB[i] - yA[i]) * t;
    }
}
