#include "wave/ChannelLayouts.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using chl::SpeakerSet;

namespace {

using Flags = std::vector<uint32_t>;
using Channels = std::vector<int32_t>;

// Speakers spelled from their parts (side or median bit, layer, azimuth), independently of the
// engine's table.
constexpr uint32_t left(uint32_t degrees) {
    return 0x200u + degrees;
}
constexpr uint32_t right(uint32_t degrees) {
    return 0x400u + degrees;
}
constexpr uint32_t top(uint32_t speaker) {
    return 0x2000u + speaker;
}
constexpr uint32_t M = 0x100u;
constexpr uint32_t C = 0x800u + 0x100u;
constexpr uint32_t Cs = 0x800u + 0x100u + 180u;
constexpr uint32_t LFE = 0x1000u + 0x100u;
constexpr uint32_t L30 = left(30), R30 = right(30), L45 = left(45), R45 = right(45), L22 = left(22),
                   R22 = right(22), L60 = left(60), R60 = right(60), L90 = left(90), R90 = right(90),
                   L110 = left(110), R110 = right(110), L135 = left(135), R135 = right(135);
constexpr uint32_t TL45 = top(L45), TR45 = top(R45), TL90 = top(L90), TR90 = top(R90), TL135 = top(L135),
                   TR135 = top(R135);

Flags plus(Flags flags, uint32_t speaker) {
    flags.push_back(speaker);
    return flags;
}

std::vector<Flags> expectedLayouts() {
    const Flags l50{L30, R30, L110, R110, C};
    const Flags l90{L30, R30, L90, R90, L135, R135};
    const Flags l904itu{L30, R30, L22, R22, L90, R90, L135, R135, TL45, TR45, TL135, TR135, C};
    const Flags l906itu{L30, R30, L22, R22, L90, R90, L135, R135, TL45, TR45, TL90, TR90, TL135, TR135, C};
    const Flags l702{L30, R30, L90, R90, L135, R135, TL90, TR90, C};
    const Flags l704{L30, R30, L90, R90, L135, R135, TL45, TR45, TL135, TR135, C};
    const Flags l706{L30, R30, L90, R90, L135, R135, TL45, TR45, TL90, TR90, TL135, TR135, C};
    const Flags l904{L30, R30, L60, R60, L90, R90, L135, R135, TL45, TR45, TL135, TR135, C};
    const Flags l906{L30, R30, L60, R60, L90, R90, L135, R135, TL45, TR45, TL90, TR90, TL135, TR135, C};
    const Flags l9{L45, R45, L22, R22, L135, R135, C};
    return {
        {M},
        {L30, R30},
        {L30, R30, C},
        {L45, R45, L135, R135},
        {L30, R30, C, Cs},
        l50,
        plus(l50, LFE),
        plus(l50, Cs),
        plus(plus(l50, Cs), LFE),
        l9,
        plus(l90, C),
        plus(l9, LFE),
        plus(plus(l90, C), LFE),
        l904itu,
        plus(l904itu, LFE),
        l906itu,
        plus(l906itu, LFE),
        {L30, R30, L110, R110, TL90, TR90, C, LFE},
        {L30, R30, L110, R110, TL45, TR45, TL135, TR135, C, LFE},
        l702,
        plus(l702, LFE),
        l704,
        plus(l704, LFE),
        l706,
        plus(l706, LFE),
        l904,
        plus(l904, LFE),
        l906,
        plus(l906, LFE),
    };
}

Channels members(int32_t layout, SpeakerSet set) {
    Channels channels;
    const auto flags = chl::layoutFlags(layout);
    for (size_t i = 0; i < flags.size(); ++i)
        if (chl::speakerSetContains(set, flags[i]))
            channels.push_back(static_cast<int32_t>(i));
    return channels;
}

Channels range(int32_t first, int32_t last) {
    Channels channels;
    for (int32_t i = first; i <= last; ++i)
        channels.push_back(i);
    return channels;
}

} // namespace

TEST(ChannelLayouts, EveryLayoutHasItsChannelCountAndSpeakerFlagsInOrder) {
    const std::vector<Flags> expected = expectedLayouts();
    ASSERT_EQ(static_cast<int32_t>(expected.size()), chl::kNumLayouts);
    for (int32_t layout = 0; layout < chl::kNumLayouts; ++layout) {
        const auto flags = chl::layoutFlags(layout);
        const Flags& want = expected[static_cast<size_t>(layout)];
        EXPECT_EQ(Flags(flags.begin(), flags.end()), want) << layout;
        EXPECT_EQ(chl::layoutChannelCount(layout), static_cast<int32_t>(want.size())) << layout;
    }
    EXPECT_TRUE(chl::layoutFlags(-1).empty());
    EXPECT_EQ(chl::layoutChannelCount(chl::kNumLayouts), 0);
}

TEST(ChannelLayouts, SignedAzimuthIsNegativeForRightChannelsOnly) {
    for (const auto& [speaker, azimuth] :
         {std::pair{L30, 30}, {R30, -30}, {TR135, -135}, {C, 0}, {Cs, 180}, {LFE, 0}})
        EXPECT_EQ(chl::signedAzimuth(speaker), azimuth) << speaker;
}

TEST(SpeakerSets, MembersOnNinePointOneSixItu) {
    // L R Lc Rc Lss Rss Lsr Rsr Tfl Tfr Tsl Tsr Trl Trr C LFE
    constexpr int32_t kLayout = 16;
    EXPECT_EQ(members(kLayout, SpeakerSet::All), range(0, 15));
    EXPECT_EQ(members(kLayout, SpeakerSet::AllExceptLfe), range(0, 14));
    EXPECT_EQ(members(kLayout, SpeakerSet::Height), range(8, 13));
    EXPECT_EQ(members(kLayout, SpeakerSet::FrontAndCenter), (Channels{0, 1, 14}));
    EXPECT_EQ(members(kLayout, SpeakerSet::Lfe), (Channels{15}));
    EXPECT_EQ(members(kLayout, SpeakerSet::Center), (Channels{14}));
    EXPECT_EQ(members(kLayout, SpeakerSet::Front), (Channels{0, 1}));
    EXPECT_EQ(members(kLayout, SpeakerSet::FrontCenter), (Channels{2, 3}));
    EXPECT_EQ(members(kLayout, SpeakerSet::Wide), Channels{});
    EXPECT_EQ(members(kLayout, SpeakerSet::SurroundSide), (Channels{4, 5}));
    EXPECT_EQ(members(kLayout, SpeakerSet::Surround), Channels{});
    EXPECT_EQ(members(kLayout, SpeakerSet::SurroundRear), (Channels{6, 7}));
    EXPECT_EQ(members(kLayout, SpeakerSet::CenterSurround), Channels{});
    EXPECT_EQ(members(kLayout, SpeakerSet::TopSurroundFront), (Channels{8, 9}));
    EXPECT_EQ(members(kLayout, SpeakerSet::TopSurround), (Channels{10, 11}));
    EXPECT_EQ(members(kLayout, SpeakerSet::TopSurroundRear), (Channels{12, 13}));
}

TEST(SpeakerSets, ListEntriesSelectTheExpectedChannels) {
    struct Case {
        int32_t layout, item;
        Channels channels;
    };
    // 5.1 (L R Ls Rs C LFE): all but LFE, LFE, surround. 7.1.4: the top speakers sit at 45 and 135
    // degrees, so the top surround pair is absent. Front takes the 45-degree pair of the quadraphonic
    // layout and the 30-degree pairs elsewhere. 6.1 with Cs (L R Ls Rs C Cs LFE): Cs, C, L/C/R.
    const Case cases[] = {{6, 1, range(0, 4)}, {6, 2, {5}},      {6, 7, {2, 3}},  {22, 10, {}},
                          {22, 13, {6, 7}},    {22, 14, {8, 9}}, {3, 4, {0, 1}},  {1, 4, {0, 1}},
                          {9, 4, {0, 1}},      {8, 9, {5}},      {8, 3, {4}},     {8, 11, {0, 1, 4}},
                          {9, 5, {2, 3}},      {28, 12, {2, 3}}, {12, 6, {2, 3}}, {12, 8, {4, 5}}};
    for (const Case& c : cases)
        EXPECT_EQ(members(c.layout, chl::speakerSetForItem(c.item)), c.channels) << c.layout << " " << c.item;
    // Mono counts as no named speaker.
    EXPECT_EQ(members(0, SpeakerSet::AllExceptLfe), (Channels{0}));
    EXPECT_EQ(members(0, SpeakerSet::Center), Channels{});
    EXPECT_EQ(members(0, SpeakerSet::Front), Channels{});
}

TEST(SpeakerSets, RearAndTopSetsIgnoreOtherBits) {
    EXPECT_TRUE(chl::speakerSetContains(SpeakerSet::CenterSurround, 0x800u + 0x1000u + 180u));
    EXPECT_FALSE(chl::speakerSetContains(SpeakerSet::CenterSurround, 0x100u + 180u));
    EXPECT_TRUE(chl::speakerSetContains(SpeakerSet::TopSurroundFront, 0x2000u + 0x1000u + 45u));
    EXPECT_TRUE(chl::speakerSetContains(SpeakerSet::TopSurroundRear, 0x2000u + 0x800u + 135u));
    EXPECT_FALSE(chl::speakerSetContains(SpeakerSet::TopSurround, R90));
    EXPECT_FALSE(chl::speakerSetContains(SpeakerSet::SurroundSide, TR90));
    EXPECT_FALSE(chl::speakerSetContains(SpeakerSet::Front, TL45));
    EXPECT_TRUE(chl::speakerSetContains(SpeakerSet::FrontAndCenter, R45));
    EXPECT_FALSE(chl::speakerSetContains(SpeakerSet::Center, Cs));
}

TEST(SpeakerSets, LayoutHasSpeakerSetOutsideModeTwoRefusesMonoAndSingleSpeakerSets) {
    for (int32_t mode : {0, 1, 3}) {
        EXPECT_FALSE(chl::layoutHasSpeakerSet(0, SpeakerSet::All, mode));
        EXPECT_FALSE(chl::layoutHasSpeakerSet(6, SpeakerSet::Lfe, mode));
        EXPECT_FALSE(chl::layoutHasSpeakerSet(2, SpeakerSet::Center, mode));
        EXPECT_FALSE(chl::layoutHasSpeakerSet(4, SpeakerSet::CenterSurround, mode));
        EXPECT_TRUE(chl::layoutHasSpeakerSet(6, SpeakerSet::Surround, mode));
    }
    EXPECT_TRUE(chl::layoutHasSpeakerSet(0, SpeakerSet::All, 2));
    EXPECT_TRUE(chl::layoutHasSpeakerSet(6, SpeakerSet::Lfe, 2));
    EXPECT_FALSE(chl::layoutHasSpeakerSet(5, SpeakerSet::Lfe, 2));
    EXPECT_TRUE(chl::layoutHasSpeakerSet(2, SpeakerSet::Center, 2));
    EXPECT_TRUE(chl::layoutHasSpeakerSet(4, SpeakerSet::CenterSurround, 2));
    EXPECT_FALSE(chl::layoutHasSpeakerSet(5, SpeakerSet::CenterSurround, 2));

    EXPECT_FALSE(chl::layoutHasSpeakerSet(22, SpeakerSet::TopSurround, 0));
    EXPECT_TRUE(chl::layoutHasSpeakerSet(24, SpeakerSet::TopSurround, 0));
    EXPECT_TRUE(chl::layoutHasSpeakerSet(25, SpeakerSet::Wide, 0));
    EXPECT_FALSE(chl::layoutHasSpeakerSet(22, SpeakerSet::Wide, 0));
    EXPECT_TRUE(chl::layoutHasSpeakerSet(3, SpeakerSet::Front, 0));
    EXPECT_FALSE(chl::layoutHasSpeakerSet(1, SpeakerSet::Height, 0));
    EXPECT_FALSE(chl::layoutHasSpeakerSet(chl::kNumLayouts, SpeakerSet::All, 2));
}

TEST(ArrangementNames, HostArrangementsGetTheirDisplayNames) {
    const std::vector<std::pair<std::string, std::string>> names{
        {"M", "Mono"},
        {"L R", "Stereo"},
        {"Lc Rc", "Stereo (Lc Rc)"},
        {"C LFE", "Stereo (C LFE)"},
        {"Trl Trr", "Stereo (Trl Trr)"},
        {"L R C", "LRC"},
        {"L R S", "LRS"},
        {"L R C LFE S", "LRCS+LFE"},
        {"L R Ls Rs", "Quadro"},
        {"L R C Ls Rs", "5.0"},
        {"L R C LFE Ls Rs", "5.1"},
        {"L R C LFE Ls Rs Cs", "6.1 Cine"},
        {"L R Ls Rs Sl Sr", "6.0 Music"},
        {"L R C Ls Rs Sl Sr", "7.0"},
        {"L R C LFE Ls Rs Sl Sr", "7.1"},
        {"L R C LFE Ls Rs Lc Rc", "7.1 SDDS"},
        {"L R C LFE Ls Rs Pl Pr", "7.1 Proximity"},
        {"L R C LFE Ls Rs Tfl Tfr", "5.1.2"},
        {"L R C LFE Ls Rs Tsl Tsr", "5.1.2 Top Side"},
        {"L R C LFE Ls Rs Tfl Tfr Trl Trr", "5.1.4"},
        {"L R C LFE Ls Rs Sl Sr Tsl Tsr", "7.1.2"},
        {"L R C LFE Ls Rs Sl Sr Tfl Tfr Trl Trr", "7.1.4"},
        {"L R C LFE Ls Rs Sl Sr Tfl Tfr Trl Trr Tsl Tsr", "7.1.6"},
        {"L R C LFE Ls Rs Sl Sr Tfl Tfr Trl Trr Lw Rw", "9.1.4"},
        {"L R C LFE Ls Rs Lc Rc Sl Sr Tfl Tfr Trl Trr", "9.1.4 ITU"},
        {"L R C LFE Ls Rs Lc Rc Sl Sr Tfl Tfr Trl Trr Tsl Tsr", "9.1.6 ITU"},
        {"L R C Ls Rs Tc Tfl Tfr Trl Trr", "10.0 Auro-3D"},
        {"L R C LFE Ls Rs Sl Sr Tc Tfl Tfc Tfr Trl Trr", "13.1 Auro-3D"},
        {"L R C LFE Ls Rs Tfl Tfc Tfr Trl Trr LFE2", "5.2.5"},
        {"L R C Ls Rs Lc Rc Cs Sl Sr Tc Tfl Tfc Tfr Trl Trc Trr Tsl Tsr Bfl Bfc Bfr", "22.0"},
        {"L R C LFE Ls Rs Lc Rc Cs Sl Sr Tc Tfl Tfc Tfr Trl Trc Trr LFE2 Tsl Tsr Bfl Bfc Bfr", "22.2"},
        {"C Sl Sr Cs Tfc Tsl Tsr Trc", "4.0.3.2"},
        {"0 1 2 3", "1OA"},
        {"0 1 2 3 4 5 6 7 8", "2OA"},
        {"0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15", "3OA"},
        {"0..24", "4OA"},
        {"0..35", "5OA"},
        {"0..48", "6OA"},
        {"0..63", "7OA"},
    };
    for (const auto& [arrangement, name] : names)
        EXPECT_EQ(chl::arrangementName(arrangement), name) << arrangement;
    // Near misses are not matched; an unnamed arrangement is shown as it is.
    EXPECT_EQ(chl::arrangementName("L R C LFE Ls Rs "), "L R C LFE Ls Rs ");
    EXPECT_EQ(chl::arrangementName("R L"), "R L");
    EXPECT_EQ(chl::arrangementName(""), "");
}
