#include "wave/ChannelLayouts.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace chl {

namespace {

struct LayoutRow {
    int32_t numChannels;
    std::array<uint32_t, kMaxLayoutChannels> flags;
};

// The flag words in the channel order the engine expects, indexed by layout.
constexpr LayoutRow kLayouts[]{
    {1, {0x100}},
    {2, {0x21E, 0x41E}},
    {3, {0x21E, 0x41E, 0x900}},
    {4, {0x22D, 0x42D, 0x287, 0x487}},
    {4, {0x21E, 0x41E, 0x900, 0x9B4}},
    {5, {0x21E, 0x41E, 0x26E, 0x46E, 0x900}},
    {6, {0x21E, 0x41E, 0x26E, 0x46E, 0x900, 0x1100}},
    {6, {0x21E, 0x41E, 0x26E, 0x46E, 0x900, 0x9B4}},
    {7, {0x21E, 0x41E, 0x26E, 0x46E, 0x900, 0x9B4, 0x1100}},
    {7, {0x22D, 0x42D, 0x216, 0x416, 0x287, 0x487, 0x900}},
    {7, {0x21E, 0x41E, 0x25A, 0x45A, 0x287, 0x487, 0x900}},
    {8, {0x22D, 0x42D, 0x216, 0x416, 0x287, 0x487, 0x900, 0x1100}},
    {8, {0x21E, 0x41E, 0x25A, 0x45A, 0x287, 0x487, 0x900, 0x1100}},
    {13, {0x21E, 0x41E, 0x216, 0x416, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x2287, 0x2487, 0x900}},
    {14,
     {0x21E, 0x41E, 0x216, 0x416, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x2287, 0x2487, 0x900, 0x1100}},
    {15,
     {0x21E, 0x41E, 0x216, 0x416, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x225A, 0x245A, 0x2287, 0x2487,
      0x900}},
    {16,
     {0x21E, 0x41E, 0x216, 0x416, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x225A, 0x245A, 0x2287, 0x2487,
      0x900, 0x1100}},
    {8, {0x21E, 0x41E, 0x26E, 0x46E, 0x225A, 0x245A, 0x900, 0x1100}},
    {10, {0x21E, 0x41E, 0x26E, 0x46E, 0x222D, 0x242D, 0x2287, 0x2487, 0x900, 0x1100}},
    {9, {0x21E, 0x41E, 0x25A, 0x45A, 0x287, 0x487, 0x225A, 0x245A, 0x900}},
    {10, {0x21E, 0x41E, 0x25A, 0x45A, 0x287, 0x487, 0x225A, 0x245A, 0x900, 0x1100}},
    {11, {0x21E, 0x41E, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x2287, 0x2487, 0x900}},
    {12, {0x21E, 0x41E, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x2287, 0x2487, 0x900, 0x1100}},
    {13, {0x21E, 0x41E, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x225A, 0x245A, 0x2287, 0x2487, 0x900}},
    {14,
     {0x21E, 0x41E, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x225A, 0x245A, 0x2287, 0x2487, 0x900,
      0x1100}},
    {13, {0x21E, 0x41E, 0x23C, 0x43C, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x2287, 0x2487, 0x900}},
    {14,
     {0x21E, 0x41E, 0x23C, 0x43C, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x2287, 0x2487, 0x900, 0x1100}},
    {15,
     {0x21E, 0x41E, 0x23C, 0x43C, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x225A, 0x245A, 0x2287, 0x2487,
      0x900}},
    {16,
     {0x21E, 0x41E, 0x23C, 0x43C, 0x25A, 0x45A, 0x287, 0x487, 0x222D, 0x242D, 0x225A, 0x245A, 0x2287, 0x2487,
      0x900, 0x1100}},
};
static_assert(std::size(kLayouts) == kNumLayouts);

constexpr std::pair<std::string_view, std::string_view> kArrangementNames[]{
    {"L R Ls Rs Sl Sr", "6.0 Music"},
    {"L R C LFE Ls Rs Sl Sr Tfl Tfr Trl Trr Lw Rw", "9.1.4"},
    {"L R C LFE Ls Rs Tc Tfl Tfc Tfr Trl Trr", "11.1 Auro-3D"},
    {"Lc Rc", "Stereo (Lc Rc)"},
    {"L R C LFE Ls Rs Lc Rc Sl Sr Tfl Tfr Trl Trr", "9.1.4 ITU"},
    {"L R C LFE Ls Rs Sl Sr Tsl Tsr", "7.1.2"},
    {"L R C Ls Rs Tfl Tfr Trl Trr Bfl Bfr", "5.0.4.2"},
    {"0..63", "7OA"},
    {"L R C Ls Rs Tfl Tfr Trl Trr Bfl Bfr Brl Brr", "5.0.4.4"},
    {"M", "Mono"},
    {"L R LFE Ls Rs Tfl Tfc Tfr Bfc", "8.1 MPEG"},
    {"L R C LFE Ls Rs Lc Rc Cs Sl Sr", "10.1 Cine"},
    {"L R C Ls Rs Sl Sr Tfl Tfr Trc", "7.0.3"},
    {"L R C Ls Rs Lc Rc Cs Sl Sr Tc Tfl Tfc Tfr Trl Trc Trr Tsl Tsr Bfl Bfc Bfr", "22.0"},
    {"Sl Sr", "Stereo (Sl Sr)"},
    {"0..48", "6OA"},
    {"L R C LFE Ls Rs Sl Sr Tfl Tfr Trc LFE2", "7.2.3"},
    {"L R C Ls Rs Lc Rc Sl Sr Tfl Tfr Trl Trr Tsl Tsr", "9.0.6 ITU"},
    {"L R C Ls Rs Tsl Tsr", "5.0.2 Top Side"},
    {"Bfl Bfr", "Stereo (Bfl Bfr)"},
    {"Lw Rw", "Stereo (Lw Rw)"},
    {"Tfl Tfr", "Stereo (Tfl Tfr)"},
    {"L R C Ls Rs Tfl Tfr Trl Trr", "5.0.4"},
    {"L R C Ls Rs Tsl Tsr Bfl Bfr", "5.0.2.2"},
    {"C Sl Sr Cs Tfc Tsl Tsr Trc", "4.0.3.2"},
    {"L R C Ls Rs Cs Sl Sr", "8.0 Music"},
    {"L R C LFE Ls Rs Sl Sr Tfl Tfr Trl Trr", "7.1.4"},
    {"L R C LFE Ls Rs Cs", "6.1 Cine"},
    {"L R C LFE Ls Rs Sl Sr Tfl Tfr Trl Trr Tsl Tsr Lw Rw", "9.1.6"},
    {"L R C LFE Ls Rs Tc Tfl Tfr Trl Trr", "10.1 Auro-3D"},
    {"L R C LFE Ls Rs", "5.1"},
    {"L R Ls Rs", "Quadro"},
    {"C LFE", "Stereo (C LFE)"},
    {"L R C", "LRC"},
    {"L R C LFE", "LRC+LFE"},
    {"L R", "Stereo"},
    {"Ls Rs", "Stereo (Ls Rs)"},
    {"L R LFE Ls Rs", "Quadro+LFE"},
    {"L R C Ls Rs", "5.0"},
    {"L R C Ls Rs Sl Sr", "7.0"},
    {"L R LFE Ls Rs Sl Sr", "6.1 Music"},
    {"L R C LFE Ls Rs Sl Sr", "7.1"},
    {"L R LFE S", "LRS+LFE"},
    {"L R C LFE S", "LRCS+LFE"},
    {"L R C S", "LRCS"},
    {"L R C Ls Rs Lc Rc", "7.0 SDDS"},
    {"L R S", "LRS"},
    {"L R C Lc Rc", "Cine Front"},
    {"L R C LFE Ls Rs Lc Rc", "7.1 SDDS"},
    {"L R C Ls Rs Sl Sr Tfl Tfr Trl Trr Lw Rw", "9.0.4"},
    {"L R C Ls Rs Sl Sr Tfl Tfr Trl Trr Tsl Tsr Lw Rw", "9.0.6"},
    {"L R C Ls Rs Lc Rc Sl Sr Tfl Tfr Trl Trr", "9.0.4 ITU"},
    {"L R C Ls Rs Tc Tfl Tfr Trl Trr", "10.0 Auro-3D"},
    {"L R Ls Rs Tfl Tfr Trl Trr Bfl Bfr Brl Brr", "4.0.4.4"},
    {"0 1 2 3 4 5 6 7 8", "2OA"},
    {"L R C Ls Rs Tc Tfl Tfc Tfr Trl Trr", "11.0 Auro-3D"},
    {"L R C Ls Rs Sl Sr Tsl Tsr", "7.0.2"},
    {"L R C LFE Ls Rs Lc Rc Tfl Tfc Tfr Trl Trr LFE2", "12.2"},
    {"L R C LFE Ls Rs Lcs Rcs", "7.1 Cine Full Rear"},
    {"L R C LFE Ls Rs Sl Sr Tc Tfl Tfc Tfr Trl Trr", "13.1 Auro-3D"},
    {"L R C LFE Ls Rs Sl Sr Tfl Tfr Trl Trr Tsl Tsr", "7.1.6"},
    {"Tsl Tsr", "Stereo (Tsl Tsr)"},
    {"L R C LFE Ls Rs Tfl Tfr Trl Trr Bfc", "5.1.4.1"},
    {"0..24", "4OA"},
    {"L R C Ls Rs Lc Rc Cs Sl Sr", "10.0 Cine"},
    {"L R C LFE Ls Rs Tfl Tfr", "5.1.2"},
    {"L R C LFE Ls Rs Cs Tfc", "7.1 Cine Center High"},
    {"L R Ls Rs Tfl Tfr Trl Trr", "8.0 Cube"},
    {"L R Ls Rs Tfl Tfr Trl Trr Bfl Bfr", "4.0.4.2"},
    {"L R C LFE Ls Rs Tfl Tfc Tfr Trl Trr Bfl Bfc Bfr", "5.1.5.3"},
    {"L R C Tfl Tfc Tfr Trl Trr Bfl Bfr", "3.0.5.2"},
    {"L R C LFE Ls Rs Pl Pr", "7.1 Proximity"},
    {"L R C LFE Ls Rs Lc Rc Sl Sr", "9.1 Cine"},
    {"L R C Ls Rs Sl Sr Tfl Tfr Trl Trr", "7.0.4"},
    {"L R C LFE Ls Rs Lc Rc Cs", "8.1 Cine"},
    {"0..35", "5OA"},
    {"L R Ls Rs Sl Sr Tfl Tfr Trl Trr Bfl Bfr Brl Brr", "14.0"},
    {"L R C Ls Rs Tfl Tfc Tfr Trl Trr", "5.0.5 Sony"},
    {"L R C LFE Ls Rs Tsl Tsr", "5.1.2 Top Side"},
    {"L R C LFE Ls Rs Tfl Tfc Tfr Trl Trr LFE2", "5.2.5"},
    {"L R C LFE Ls Rs Lc Rc Sl Sr Tfl Tfr Trl Trr Tsl Tsr", "9.1.6 ITU"},
    {"L R C Ls Rs Sl Sr Tc Tfl Tfc Tfr Trl Trr", "13.0 Auro-3D"},
    {"L R C Ls Rs Sl Sr Tfl Tfr Trl Trr Tsl Tsr", "7.0.6"},
    {"0 1 2 3", "1OA"},
    {"L R C Ls Rs Tfl Tfr Trl Trr Bfc", "5.0.4.1"},
    {"0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15", "3OA"},
    {"L R C LFE Ls Rs Cs Sl Sr", "8.1 Music"},
    {"L R C Ls Rs Tfl Tfr", "5.0.2"},
    {"L R C LFE Ls Rs Cs Tc", "7.1 Cine Top Center"},
    {"Trl Trr", "Stereo (Trl Trr)"},
    {"L R C Ls Rs Tfl Tfc Tfr Bfl Bfr", "5.0.3.2"},
    {"L R C Ls Rs Tfl Tfc Tfr Trl Trr Bfl Bfc Bfr", "5.0.5.3"},
    {"L R C Ls Rs Sl Sr Tfl Tfr Trl Trr Bfl Bfr", "7.0.4.2"},
    {"L R C LFE Ls Rs Lc Rc Cs Sl Sr Tc Tfl Tfc Tfr Trl Trc Trr LFE2 Tsl Tsr Bfl Bfc Bfr", "22.2"},
    {"L R C Ls Rs Lc Rc Sl Sr", "9.0 Cine"},
    {"L R C LFE Ls Rs Tfl Tfr Trl Trr", "5.1.4"},
    {"L R C Ls Rs Lc Rc Cs", "8.0 Cine"},
    {"L R C Ls Rs Cs", "6.0 Cine"},
};

int32_t azimuth(uint32_t flags) {
    return static_cast<int32_t>(flags & kAzimuthMask);
}

bool isFrontPair(uint32_t flags) {
    return azimuth(flags) == 30 || azimuth(flags) == 45;
}

bool isCentreFront(uint32_t flags) {
    return (flags & kMedian) != 0 && signedAzimuth(flags) == 0;
}

// A speaker of the ear-level layer at the given azimuth.
bool isEarLevelAt(uint32_t flags, int32_t degrees) {
    return (flags & kHeight) == 0 && azimuth(flags) == degrees;
}

bool isHeightAt(uint32_t flags, int32_t degrees) {
    return (flags & kHeight) != 0 && azimuth(flags) == degrees;
}

} // namespace

std::span<const uint32_t> layoutFlags(int32_t layout) {
    if (layout < 0 || layout >= kNumLayouts)
        return {};
    const LayoutRow& row = kLayouts[static_cast<size_t>(layout)];
    return {row.flags.data(), static_cast<size_t>(row.numChannels)};
}

int32_t layoutChannelCount(int32_t layout) {
    return static_cast<int32_t>(layoutFlags(layout).size());
}

int32_t signedAzimuth(uint32_t flags) {
    return (flags & kRightOfPair) != 0 ? -azimuth(flags) : azimuth(flags);
}

bool speakerSetContains(SpeakerSet set, uint32_t flags) {
    switch (set) {
    case SpeakerSet::All:
        return true;
    case SpeakerSet::AllExceptLfe:
        return (flags & kLfe) == 0;
    case SpeakerSet::Height:
        return (flags & kHeight) != 0;
    case SpeakerSet::FrontAndCenter:
        return ((flags & kHeight) == 0 && isFrontPair(flags)) || isCentreFront(flags);
    case SpeakerSet::Lfe:
        return (flags & kLfe) != 0;
    case SpeakerSet::Center:
        return isCentreFront(flags);
    case SpeakerSet::Front:
        return (flags & kHeight) == 0 && isFrontPair(flags);
    case SpeakerSet::FrontCenter:
        return isEarLevelAt(flags, 22);
    case SpeakerSet::Wide:
        return isEarLevelAt(flags, 60);
    case SpeakerSet::SurroundSide:
        return isEarLevelAt(flags, 90);
    case SpeakerSet::Surround:
        return isEarLevelAt(flags, 110);
    case SpeakerSet::SurroundRear:
        return isEarLevelAt(flags, 135);
    case SpeakerSet::CenterSurround:
        return (flags & kMedian) != 0 && azimuth(flags) == 180;
    case SpeakerSet::TopSurroundFront:
        return isHeightAt(flags, 45);
    case SpeakerSet::TopSurround:
        return isHeightAt(flags, 90);
    case SpeakerSet::TopSurroundRear:
        return isHeightAt(flags, 135);
    }
    return false;
}

bool layoutHasSpeakerSet(int32_t layout, SpeakerSet set, int32_t mode) {
    if (mode != 2 && (layout == 0 || set == SpeakerSet::Lfe || set == SpeakerSet::Center ||
                      set == SpeakerSet::CenterSurround))
        return false;
    const auto flags = layoutFlags(layout);
    return std::any_of(flags.begin(), flags.end(), [set](uint32_t f) { return speakerSetContains(set, f); });
}

std::string_view arrangementName(std::string_view arrangement) {
    for (const auto& [key, name] : kArrangementNames)
        if (key == arrangement)
            return name;
    return arrangement;
}

} // namespace chl
