#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "plugin/eq/EQTypes.h"

// The channel layouts the engine runs on. Every channel of a layout carries a speaker flag word:
// the low byte is the speaker's azimuth in degrees (0 front centre, 180 rear centre), the bits above
// say whether it is unpaired, the left or right member of a pair, on the median plane, the LFE
// channel or in the height layer. Bands pick their channels through a speaker set tested against
// these words.
namespace chl {

inline constexpr uint32_t kAzimuthMask = 0xFF;
inline constexpr uint32_t kUnpaired = 0x100;
inline constexpr uint32_t kLeftOfPair = 0x200;
inline constexpr uint32_t kRightOfPair = 0x400;
inline constexpr uint32_t kMedian = 0x800;
inline constexpr uint32_t kLfe = 0x1000;
inline constexpr uint32_t kHeight = 0x2000;

inline constexpr int32_t kNumLayouts = 29;
inline constexpr int32_t kMaxLayoutChannels = 16;

// The speaker flag words of a layout's channels in channel order; empty for an unknown layout.
std::span<const uint32_t> layoutFlags(int32_t layout);
int32_t layoutChannelCount(int32_t layout);

// The azimuth with its side: negative for the right member of a pair.
int32_t signedAzimuth(uint32_t flags);

bool speakerSetContains(SpeakerSet set, uint32_t flags);

// Whether any channel of the layout belongs to the set. Outside mode 2 the mono layout and the
// LFE, Center and Cs sets never count.
bool layoutHasSpeakerSet(int32_t layout, SpeakerSet set, int32_t mode);

// The display name of a host speaker-arrangement string such as "L R C LFE Ls Rs"; an arrangement
// without a name is shown as the string itself.
std::string_view arrangementName(std::string_view arrangement);

} // namespace chl
