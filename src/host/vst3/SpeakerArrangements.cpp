#include "host/vst3/SpeakerArrangements.h"

#include "wave/ChannelLayouts.h"

#include <algorithm>

namespace vst3_layouts {

namespace {

constexpr std::array<uint64_t, chl::kNumLayouts> kArrangements{0x80000,
                                                               0x3,
                                                               0x7,
                                                               0x33,
                                                               0x107,
                                                               0x37,
                                                               0x3f,
                                                               0x137,
                                                               0x13f,
                                                               0xf7,
                                                               0x637,
                                                               0xff,
                                                               0x63f,
                                                               0x2d6f7,
                                                               0x2d6ff,
                                                               0x302d6f7,
                                                               0x302d6ff,
                                                               0x300003f,
                                                               0x2d03f,
                                                               0x3000637,
                                                               0x300063f,
                                                               0x2d637,
                                                               0x2d63f,
                                                               0x302d637,
                                                               0x302d63f,
                                                               0x180000000002d637,
                                                               0x180000000002d63f,
                                                               0x180000000302d637,
                                                               0x180000000302d63f};

// Layout 27 reads host channel 11 for both of its engine channels 10 and 11; that is the table.
constexpr std::array<std::array<int32_t, chl::kMaxLayoutChannels>, chl::kNumLayouts> kOrders{{
    {0},
    {0, 1},
    {0, 1, 2},
    {0, 1, 2, 3},
    {0, 1, 2, 3},
    {0, 1, 3, 4, 2},
    {0, 1, 4, 5, 2, 3},
    {0, 1, 3, 4, 2, 5},
    {0, 1, 4, 5, 2, 6, 3},
    {0, 1, 5, 6, 3, 4, 2},
    {0, 1, 5, 6, 3, 4, 2},
    {0, 1, 6, 7, 4, 5, 2, 3},
    {0, 1, 6, 7, 4, 5, 2, 3},
    {0, 1, 5, 6, 7, 8, 3, 4, 9, 10, 11, 12, 2},
    {0, 1, 6, 7, 8, 9, 4, 5, 10, 11, 12, 13, 2, 3},
    {0, 1, 5, 6, 7, 8, 3, 4, 9, 10, 11, 12, 13, 14, 2},
    {0, 1, 6, 7, 8, 9, 4, 5, 10, 11, 12, 13, 14, 15, 2, 3},
    {0, 1, 4, 5, 6, 7, 2, 3},
    {0, 1, 4, 5, 6, 7, 8, 9, 2, 3},
    {0, 1, 5, 6, 3, 4, 7, 8, 2},
    {0, 1, 6, 7, 4, 5, 8, 9, 2, 3},
    {0, 1, 5, 6, 3, 4, 7, 8, 9, 10, 2},
    {0, 1, 6, 7, 4, 5, 8, 9, 10, 11, 2, 3},
    {0, 1, 5, 6, 3, 4, 7, 8, 9, 10, 11, 12, 2},
    {0, 1, 6, 7, 4, 5, 8, 9, 10, 11, 12, 13, 2, 3},
    {0, 1, 11, 12, 5, 6, 3, 4, 7, 8, 9, 10, 2},
    {0, 1, 12, 13, 6, 7, 4, 5, 8, 9, 10, 11, 2, 3},
    {0, 1, 13, 14, 5, 6, 3, 4, 7, 8, 9, 11, 11, 12, 2},
    {0, 1, 14, 15, 6, 7, 4, 5, 8, 9, 10, 11, 12, 13, 2, 3},
}};

constexpr std::array<std::string_view, chl::kNumLayouts> kNames{
    "Mono",      "Stereo",   "LRC",   "Quadro",   "LRCS",  "5.0",       "5.1",       "6.0 Cine",
    "6.1 Cine",  "7.0 SDDS", "7.0",   "7.1 SDDS", "7.1",   "9.0.4 ITU", "9.1.4 ITU", "9.0.6 ITU",
    "9.1.6 ITU", "5.1.2",    "5.1.4", "7.0.2",    "7.1.2", "7.0.4",     "7.1.4",     "7.0.6",
    "7.1.6",     "9.0.4",    "9.1.4", "9.0.6",    "9.1.6"};

bool isLayout(int32_t layout) {
    return layout >= 0 && layout < chl::kNumLayouts;
}

} // namespace

uint64_t arrangementOf(int32_t layout) {
    return isLayout(layout) ? kArrangements[static_cast<size_t>(layout)] : 0;
}

int32_t layoutOf(uint64_t arrangement) {
    if (arrangement == kCentreOnly)
        return 0;
    const auto found = std::find(kArrangements.begin(), kArrangements.end(), arrangement);
    return found == kArrangements.end() ? -1 : static_cast<int32_t>(found - kArrangements.begin());
}

std::span<const int32_t> hostChannelOrder(int32_t layout) {
    if (!isLayout(layout))
        return {};
    return std::span<const int32_t>(kOrders[static_cast<size_t>(layout)].data(),
                                    static_cast<size_t>(chl::layoutChannelCount(layout)));
}

std::string_view layoutName(int32_t layout) {
    return isLayout(layout) ? kNames[static_cast<size_t>(layout)] : std::string_view{};
}

} // namespace vst3_layouts
