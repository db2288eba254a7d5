#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// Enumerations of the equaliser's value-list parameters; each value is the item index of its list.

enum class ProcessingMode : int32_t { ZeroLatency = 0, NaturalPhase, LinearPhase };

enum class ProcessingResolution : int32_t { Low = 0, Medium, High, VeryHigh, Maximum };

enum class Character : int32_t { Clean = 0, Subtle, Warm };

enum class ChannelMode : int32_t { LeftRight = 0, MidSide };

enum class DisplayRange : int32_t { Range3dB = 0, Range6dB, Range12dB, Range30dB };

enum class AnalyzerRange : int32_t { Range60dB = 0, Range90dB, Range120dB };

enum class AnalyzerResolution : int32_t { Low = 0, Medium, High, Maximum };

enum class AnalyzerSpeed : int32_t { VerySlow = 0, Slow, Medium, Fast, VeryFast };

enum class AnalyzerTilt : int32_t { Tilt0 = 0, Tilt1_5, Tilt3, Tilt4_5, Tilt6 };

enum class SideChainFiltering : int32_t { Band = 0, Free };

enum class StereoPlacement : int32_t { Left = 0, Right, Stereo, Mid, Side };

enum class ItemEnableState : int32_t { Disabled = 0, Enabled };

// Positions of the band's " Slope" parameter; the engine's slope value is position - 1.
enum class SlopePosition : int32_t {
    Slope0 = 0,
    Slope6,
    Slope12,
    Slope18,
    Slope24,
    Slope30,
    Slope36,
    Slope48,
    Slope72,
    Slope96,
    Brickwall,
};

inline constexpr std::array<float, 10> kSlopeDbPerOctave{0, 6, 12, 18, 24, 30, 36, 48, 72, 96};

constexpr float engineSlopeFromPosition(float position) {
    return position - 1.0f;
}

namespace chl {

// Speaker sets a band can be restricted to in surround layouts.
enum class SpeakerSet : int32_t {
    All = 0,
    AllExceptLfe = 1,
    Height = 2,
    FrontAndCenter = 3, // L/C/R
    Lfe = 4,
    Center = 5,
    Front = 6,         // L/R
    FrontCenter = 7,   // Lc/Rc
    Wide = 8,          // Lw/Rw
    SurroundSide = 9,  // Lss/Rss
    Surround = 10,     // Ls/Rs
    SurroundRear = 11, // Lsr/Rsr
    CenterSurround = 12,
    TopSurroundFront = 13,
    TopSurround = 14,
    TopSurroundRear = 15,
};

// The speaker set of each item of the band's " Speakers" list, in list order. Height (2) has no item.
inline constexpr std::array<SpeakerSet, 15> kSpeakerSetOfItem{
    SpeakerSet::All,
    SpeakerSet::AllExceptLfe,
    SpeakerSet::Lfe,
    SpeakerSet::Center,
    SpeakerSet::Front,
    SpeakerSet::FrontCenter,
    SpeakerSet::SurroundSide,
    SpeakerSet::Surround,
    SpeakerSet::SurroundRear,
    SpeakerSet::CenterSurround,
    SpeakerSet::TopSurround,
    SpeakerSet::FrontAndCenter,
    SpeakerSet::Wide,
    SpeakerSet::TopSurroundFront,
    SpeakerSet::TopSurroundRear,
};

// The set an item index selects; out-of-range items fall back to all speakers but LFE.
constexpr SpeakerSet speakerSetForItem(int32_t item) {
    if (item < 0 || item >= static_cast<int32_t>(kSpeakerSetOfItem.size()))
        return SpeakerSet::AllExceptLfe;
    return kSpeakerSetOfItem[static_cast<size_t>(item)];
}

// The list item of a set, or -1 for a set without one.
constexpr int32_t itemForSpeakerSet(SpeakerSet set) {
    for (size_t item = 0; item < kSpeakerSetOfItem.size(); ++item)
        if (kSpeakerSetOfItem[item] == set)
            return static_cast<int32_t>(item);
    return -1;
}

} // namespace chl
