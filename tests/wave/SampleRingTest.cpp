#include "wave/SampleRing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

TEST(SampleRingTest, BlocksComeOutInOrderAcrossTheWrapAndWholeBlocksAreDroppedWhenFull) {
    wave::SampleRing ring;
    ring.resize(100); // rounds up to 128
    std::vector<float> block(48);
    std::vector<float> out(64);
    float next = 0.0f;
    float expected = 0.0f;
    for (int round = 0; round < 20; ++round) {
        for (float& x : block)
            x = next++;
        ASSERT_TRUE(ring.write(block.data(), 48));
        // Read in a different size, so reads and writes wrap at different places.
        while (ring.available() >= 32) {
            ASSERT_EQ(ring.read(out.data(), 32), 32);
            for (int i = 0; i < 32; ++i)
                ASSERT_EQ(out[static_cast<size_t>(i)], expected++);
        }
    }
    EXPECT_EQ(ring.getDropped(), 0u);

    ring.skipAll();
    std::vector<float> large(100, 1.0f);
    EXPECT_TRUE(ring.write(large.data(), 100));
    EXPECT_FALSE(ring.write(large.data(), 29)) << "only 28 places are left";
    EXPECT_EQ(ring.available(), 100) << "nothing of a dropped block gets in";
    EXPECT_EQ(ring.getDropped(), 1u);
    EXPECT_EQ(ring.read(out.data(), 64), 64);
    EXPECT_EQ(ring.read(out.data(), 64), 36);
    EXPECT_EQ(ring.read(out.data(), 64), 0);
}

TEST(SampleRingTest, AReaderOnAnotherThreadSeesAnUnbrokenStreamOrWholeGaps) {
    wave::SampleRing ring;
    ring.resize(1024);
    constexpr int kBlocks = 20000;
    constexpr int kBlock = 37;
    std::atomic<bool> writing{true};
    std::thread writer([&] {
        std::vector<float> block(kBlock);
        for (int b = 0; b < kBlocks; ++b) {
            for (int i = 0; i < kBlock; ++i)
                block[static_cast<size_t>(i)] = static_cast<float>(b * kBlock + i);
            ring.write(block.data(), kBlock);
        }
        writing = false;
    });
    std::vector<float> out(100);
    float last = -1.0f;
    bool ordered = true;
    int64_t received = 0;
    while (writing.load() || ring.available() > 0) {
        const int32_t got = ring.read(out.data(), 100);
        for (int32_t i = 0; i < got; ++i) {
            const float x = out[static_cast<size_t>(i)];
            // Within a block samples follow on; a dropped block leaves a gap of whole blocks.
            const bool follows = x == last + 1.0f;
            const bool gap = x > last && static_cast<int64_t>(x) % kBlock == 0;
            ordered = ordered && (follows || gap);
            last = x;
        }
        received += got;
    }
    writer.join();
    EXPECT_TRUE(ordered);
    EXPECT_EQ(received + static_cast<int64_t>(ring.getDropped()) * kBlock, int64_t{kBlocks} * kBlock);
}

} // namespace
