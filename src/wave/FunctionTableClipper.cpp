#include "wave/FunctionTableClipper.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int32_t kChunk = sr::ConverterStyleBase::kChunk;
// Room for the shapers' last group of four.
constexpr int32_t kPadding = 4;

double dbToLinear(double db) {
    return std::pow(10.0, db / 20.0);
}

} // namespace

double FunctionTableClipper::Style::PreScaleFunction::evaluate(double drive) const {
    return dbToLinear(style->lowGain + (style->highGain - style->lowGain) * drive);
}

double FunctionTableClipper::Style::PostScaleFunction::evaluate(double drive) const {
    const double reference = dbToLinear(style->reference);
    const auto peak = static_cast<float>(reference * style->preScale.evaluate(drive));
    const double positive = style->shaper->processSample(peak);
    const double negative = std::min(style->shaper->processSample(-peak), 0.0f);
    const double meanPeak = (positive - negative) * 0.5;
    // A curve that gives nothing back at this level cannot be made up for.
    return dbToLinear(style->offset) * (meanPeak > 0.0 ? reference / meanPeak : 1.0);
}

FunctionTableClipper::Style::Style(float lowGainDb, float highGainDb, float referenceDb, float offsetDb,
                                   int32_t type, bool linearLevel, float p, float b)
    : lowGain(lowGainDb), highGain(highGainDb), reference(referenceDb), offset(offsetDb),
      linearLevel(linearLevel), shaper(WaveShaper::create(type, linearLevel, p, b)) {
    preScale.set(0.0, 1.0, kTableSize);
    postScale.set(0.0, 1.0, kTableSize);
}

void FunctionTableClipper::Samplers::reset() {
    for (sr::ConverterBase* converter : {up.get(), down.get(), levelUp.get()})
        if (converter != nullptr)
            converter->reset();
}

FunctionTableClipper::FunctionTableClipper(wave::Environment* environment, const Style* style,
                                           sr::ConverterStyleBase* converterStyle)
    : wave::Filter(environment), drive(environment, 0.0f), style(style),
      oscillator(environment, style != nullptr ? style->getShaper().getB() : 0.0f), chunk(kChunk + kPadding),
      level(kChunk + kPadding) {
    drive.setRange(0.0f, 1.0f);
    setConverterStyle(converterStyle);
}

void FunctionTableClipper::setInput(wave::Producer* producer) {
    wave::Filter::setInput(producer);
    oscillator.setInput(producer);
}

void FunctionTableClipper::setStyle(const Style* newStyle) {
    style = newStyle;
    oscillator.setB(style != nullptr ? style->getShaper().getB() : 0.0f);
}

void FunctionTableClipper::setConverterStyle(sr::ConverterStyleBase* converterStyle) {
    if (converterStyle == nullptr) {
        active = nullptr;
        return;
    }
    for (Samplers& slot : samplers) {
        if (slot.style == converterStyle) {
            active = &slot;
            active->reset();
            return;
        }
    }
    Samplers& slot = active == &samplers[0] ? samplers[1] : samplers[0];
    slot.style = converterStyle;
    slot.up = converterStyle->createInterpolator();
    slot.down = converterStyle->createDecimator();
    slot.levelUp = converterStyle->createInterpolator();
    const int32_t needed = kChunk * converterStyle->getMaximumFactor() + kPadding;
    if (needed > upsampled.getCount()) {
        upsampled.resize(needed);
        upsampledLevel.resize(needed);
    }
    active = &slot;
}

sr::ConverterStyleBase* FunctionTableClipper::getConverterStyle() const {
    return active != nullptr ? active->style : nullptr;
}

int32_t FunctionTableClipper::getLatency() const {
    return active != nullptr && active->style->getFactor() > 1 ? active->style->getLatency() : 0;
}

void FunctionTableClipper::reset() {
    for (Samplers& slot : samplers)
        slot.reset();
    oscillator.reset();
}

bool FunctionTableClipper::isAtRest() const {
    if (!oscillator.isAtRest())
        return false;
    if (active == nullptr)
        return true;
    return active->up->isAtRest() && active->down->isAtRest() && active->levelUp->isAtRest();
}

void FunctionTableClipper::shapeChunk(float* samples, const float* chunkLevel, int32_t count,
                                      int32_t rateFactor) {
    const WaveShaper& shaper = style->getShaper();
    if (rateFactor <= 1) {
        shaper.process(samples, chunkLevel, samples, count);
        return;
    }
    float* up = upsampled.getData();
    active->up->process(samples, up, count);
    const float* upLevel = nullptr;
    if (chunkLevel != nullptr) {
        active->levelUp->process(chunkLevel, upsampledLevel.getData(), count);
        upLevel = upsampledLevel.getData();
    }
    shaper.process(up, upLevel, up, count * rateFactor);
    active->down->process(up, samples, count);
}

void FunctionTableClipper::processFilter(const float* input, wave::BasicBlock<float>* block,
                                         int32_t numSamples, int32_t) {
    float* out = block->getData();
    block->setConstant(false);
    if (style == nullptr) {
        std::copy_n(input, numSamples, out);
        return;
    }
    const FloatParameter::ValueBlock& drives = drive.getValueBlockAt(numSamples);
    const int32_t current = active != nullptr ? active->style->getFactor() : 1;
    if (current != factor) {
        // A new design at another factor: whatever the converters held belongs to the old one.
        factor = current;
        if (active != nullptr)
            active->reset();
    }
    const float* levels = nullptr;
    if (style->isLinearLevel()) {
        oscillator.getGain().setValue(style->getPreScale().value(drive.getTarget()));
        levels = oscillator.fetch(numSamples)->getData();
    }

    const Style::PreScaleFunction& preScale = style->getPreScale();
    const Style::PostScaleFunction& postScale = style->getPostScale();
    const float* d = drives.getData();
    const bool steady = drives.isConstant();
    const float steadyPre = preScale.value(d[0]);
    const float steadyPost = postScale.value(d[0]);
    float* samples = chunk.getData();
    for (int32_t position = 0; position < numSamples; position += kChunk) {
        const int32_t count = std::min(kChunk, numSamples - position);
        for (int32_t i = 0; i < count; ++i)
            samples[i] = input[position + i] * (steady ? steadyPre : preScale.value(d[position + i]));
        const float* chunkLevel = nullptr;
        if (levels != nullptr) {
            std::copy_n(levels + position, count, level.getData());
            chunkLevel = level.getData();
        }
        shapeChunk(samples, chunkLevel, count, factor);
        for (int32_t i = 0; i < count; ++i)
            out[position + i] = samples[i] * (steady ? steadyPost : postScale.value(d[position + i]));
    }
}
