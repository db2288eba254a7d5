#include "eq/CharacterStage.h"

#include <algorithm>
#include <cmath>

CharacterDrive characterDriveFor(Character character, float maxBoostDb) {
    switch (character) {
    case Character::Subtle: {
        const float x = (std::max(maxBoostDb, 16.0f) - 16.0f) / 14.0f;
        return {0.15f * x * x + 0.15f, 4.5f, 200.0f};
    }
    case Character::Warm: {
        const float x = std::max(maxBoostDb / 30.0f, 0.0f);
        return {0.4f * x * x + 0.1f, 6.0f, 250.0f};
    }
    case Character::Clean:
        break;
    }
    return {};
}

const FunctionTableClipper::Style* characterStyleFor(Character character) {
    static const FunctionTableClipper::Style subtle{-12.0f, 20.0f, -17.0f, 0.0f, WaveShaper::kTanHyperbolic,
                                                    true,   1.0f,  1.0f};
    static const FunctionTableClipper::Style warm{-30.0f, 6.0f, -8.0f, 0.55f, WaveShaper::kTube,
                                                  false,  1.0f, 1.0f};
    switch (character) {
    case Character::Subtle:
        return &subtle;
    case Character::Warm:
        return &warm;
    case Character::Clean:
        break;
    }
    return nullptr;
}

CharacterStage::CharacterStage(wave::Environment* environment, const FunctionTableClipper::Style& style)
    : shelfFrequency(environment, std::log2(200.0f)), preGain(environment, 0.0f), deGain(environment, 0.0f),
      preEmphasis(environment), clipper(environment, &style, nullptr), deEmphasis(environment) {
    shelfFrequency.setRange(std::log2(20.0f), std::log2(20000.0f));
    for (FloatParameter* gain : {&preGain, &deGain})
        gain->setRange(-12.0f, 12.0f);
    for (EQFilter* shelf : {&preEmphasis, &deEmphasis})
        shelf->shape.setValue(FilterShape::LowShelf);
    preEmphasis.connectParameters(&shelfFrequency, &preGain, nullptr);
    deEmphasis.connectParameters(&shelfFrequency, &deGain, nullptr);
    clipper.setInput(&preEmphasis);
    deEmphasis.setInput(&clipper);
}

void CharacterStage::prepareConverters(sr::ConverterStyleBase& first, sr::ConverterStyleBase& second) {
    clipper.setConverterStyle(&first);
    clipper.setConverterStyle(&second);
}

void CharacterStage::setDrive(const CharacterDrive& drive) {
    clipper.getDrive().setValue(drive.drive);
    shelfFrequency.setValue(std::log2(drive.shelfHz));
    preGain.setValue(drive.shelfGainDb);
    deGain.setValue(-drive.shelfGainDb);
}

void CharacterStage::reset() {
    for (FloatParameter* parameter : {&shelfFrequency, &preGain, &deGain, &clipper.getDrive()})
        parameter->jumpTo(parameter->getTarget());
    preEmphasis.reset();
    clipper.reset();
    deEmphasis.reset();
}
