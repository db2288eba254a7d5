#pragma once

#include "eq/EQFilter.h"
#include "plugin/eq/EQTypes.h"
#include "wave/FloatParameter.h"
#include "wave/FunctionTableClipper.h"

namespace sr {
class ConverterStyleBase;
}

// How hard the Character stage works: the clipper's drive and the emphasis shelves around it.
struct CharacterDrive {
    float drive = 0.0f;
    float shelfGainDb = 0.0f;
    float shelfHz = 200.0f;

    bool operator==(const CharacterDrive&) const = default;
};

// The drive follows the largest band boost: Subtle only starts to work beyond 16 dB of boost, Warm
// from the first dB. Clean has no stage (a zero drive).
CharacterDrive characterDriveFor(Character character, float maxBoostDb);

// The saturation of Subtle (soft clipping above a level that follows the signal) and of Warm (an
// asymmetric tube curve, so mainly even harmonics); null for Clean. Built once, shared by every
// instance.
const FunctionTableClipper::Style* characterStyleFor(Character character);

// One channel's Character stage: a low pre-emphasis shelf, the oversampled clipper and the
// matching de-emphasis shelf, so that the low end saturates a little more than the rest.
//
// Threading: built and given its converter styles off the audio thread (see prepareConverters);
// everything else on the audio thread, without allocating.
class CharacterStage {
public:
    CharacterStage(wave::Environment* environment, const FunctionTableClipper::Style& style);

    // Makes the clipper's converters for both styles, so that switching between them on the audio
    // thread allocates nothing; the second stays selected.
    void prepareConverters(sr::ConverterStyleBase& first, sr::ConverterStyleBase& second);
    void setConverterStyle(sr::ConverterStyleBase& style) { clipper.setConverterStyle(&style); }
    void setStyle(const FunctionTableClipper::Style& style) { clipper.setStyle(&style); }
    // Ramped to the new values.
    void setDrive(const CharacterDrive& drive);
    // Starts over from silence, at the drive and emphasis last set.
    void reset();

    void setInput(wave::Producer* input) { preEmphasis.setInput(input); }
    wave::Producer& getOutput() { return deEmphasis; }
    int32_t getLatency() const { return clipper.getLatency(); }

private:
    FloatParameter shelfFrequency;
    FloatParameter preGain;
    FloatParameter deGain;
    EQFilter preEmphasis;
    FunctionTableClipper clipper;
    EQFilter deEmphasis;
};
