#include "foundation/AsyncEventQueue.h"
#include "foundation/AsyncEventRing.h"

#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <poll.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

namespace {

// What one queue's subscriber saw.
struct Delivery {
    AsyncEventQueue* sender;
    int32_t identifier;
    void* data;
    std::thread::id thread;
};

class Recorder {
public:
    explicit Recorder(AsyncEventQueue& queue) : queue(queue) {
        queue.event().subscribe(this, &Recorder::onEvent);
    }

    std::vector<Delivery> deliveries;

private:
    void onEvent(void* sender) {
        deliveries.push_back({static_cast<AsyncEventQueue*>(sender), queue.identifier(), queue.data(),
                              std::this_thread::get_id()});
    }

    AsyncEventQueue& queue;
};

bool wakeDescriptorReadable() {
    pollfd descriptor{LinuxAsyncEventQueue::fileDescriptor(), POLLIN, 0};
    return poll(&descriptor, 1, 0) == 1 && (descriptor.revents & POLLIN) != 0;
}

class AsyncEventQueueTest : public ::testing::Test {
protected:
    // Leftovers of other tests must not count here.
    void SetUp() override { LinuxAsyncEventQueue::drain(); }
};

TEST_F(AsyncEventQueueTest, PostedFromWorkerIsDeliveredOnlyByDrainOnTheDrainingThread) {
    LinuxAsyncEventQueue queue;
    Recorder recorder(queue);
    int payload = 0;
    std::thread worker([&] {
        queue.post(7, &payload);
        queue.post(8, nullptr);
    });
    worker.join();
    EXPECT_TRUE(recorder.deliveries.empty()) << "nothing may fire before the drain";
    EXPECT_TRUE(wakeDescriptorReadable());

    EXPECT_EQ(LinuxAsyncEventQueue::drain(), 2u);
    ASSERT_EQ(recorder.deliveries.size(), 2u);
    EXPECT_EQ(recorder.deliveries[0].sender, &queue);
    EXPECT_EQ(recorder.deliveries[0].identifier, 7);
    EXPECT_EQ(recorder.deliveries[0].data, &payload);
    EXPECT_EQ(recorder.deliveries[1].identifier, 8);
    EXPECT_EQ(recorder.deliveries[1].data, nullptr);
    for (const Delivery& delivery : recorder.deliveries)
        EXPECT_EQ(delivery.thread, std::this_thread::get_id());
    EXPECT_FALSE(wakeDescriptorReadable());
    EXPECT_EQ(LinuxAsyncEventQueue::drain(), 0u);
}

TEST_F(AsyncEventQueueTest, TwoInstancesReceiveOnlyTheirOwnEvents) {
    LinuxAsyncEventQueue first;
    LinuxAsyncEventQueue second;
    Recorder firstRecorder(first);
    Recorder secondRecorder(second);
    first.post(1, nullptr);
    second.post(2, nullptr);
    first.post(3, nullptr);
    LinuxAsyncEventQueue::drain();
    ASSERT_EQ(firstRecorder.deliveries.size(), 2u);
    EXPECT_EQ(firstRecorder.deliveries[0].identifier, 1);
    EXPECT_EQ(firstRecorder.deliveries[1].identifier, 3);
    ASSERT_EQ(secondRecorder.deliveries.size(), 1u);
    EXPECT_EQ(secondRecorder.deliveries[0].identifier, 2);
    EXPECT_EQ(secondRecorder.deliveries[0].sender, &second);
}

TEST_F(AsyncEventQueueTest, PendingEventsOfDestroyedQueueAreIgnoredEvenAtSameAddress) {
    std::optional<LinuxAsyncEventQueue> slot;
    slot.emplace();
    const AsyncEventQueue* oldAddress = &*slot;
    slot->post(11, nullptr);
    slot.reset();
    slot.emplace();
    ASSERT_EQ(&*slot, oldAddress);
    Recorder recorder(*slot);
    EXPECT_EQ(LinuxAsyncEventQueue::drain(), 0u);
    EXPECT_TRUE(recorder.deliveries.empty());
    slot->post(12, nullptr);
    EXPECT_EQ(LinuxAsyncEventQueue::drain(), 1u);
    ASSERT_EQ(recorder.deliveries.size(), 1u);
    EXPECT_EQ(recorder.deliveries[0].identifier, 12);
}

TEST_F(AsyncEventQueueTest, PostDoesNotAllocate) {
    LinuxAsyncEventQueue queue;
    Recorder recorder(queue);
    std::size_t allocations = 1;
    std::thread audio([&] {
        testing_support::AllocationCounter counter;
        for (int32_t i = 0; i < 100; ++i)
            queue.post(i, nullptr);
        allocations = counter.count();
    });
    audio.join();
    EXPECT_EQ(allocations, 0u);
    EXPECT_EQ(LinuxAsyncEventQueue::drain(), 100u);
    ASSERT_EQ(recorder.deliveries.size(), 100u);
    EXPECT_EQ(recorder.deliveries[99].identifier, 99);
}

TEST_F(AsyncEventQueueTest, ManyProducersLoseNothingAndKeepEachThreadsOrder) {
    LinuxAsyncEventQueue queue;
    std::vector<int32_t> lastPerThread(4, -1);
    bool ordered = true;
    std::size_t received = 0;
    queue.event().subscribe([&] {
        const int32_t thread = queue.identifier() / 1000;
        const int32_t sequence = queue.identifier() % 1000;
        ordered = ordered && sequence == lastPerThread[thread] + 1;
        lastPerThread[thread] = sequence;
        ++received;
    });
    std::atomic<int> finished{0};
    std::vector<std::thread> producers;
    for (int32_t t = 0; t < 4; ++t) {
        producers.emplace_back([&queue, &finished, t] {
            for (int32_t i = 0; i < 500; ++i)
                queue.post(t * 1000 + i, nullptr);
            ++finished;
        });
    }
    // Drain while the producers run, as the user-interface thread would.
    while (finished < 4)
        LinuxAsyncEventQueue::drain();
    for (auto& producer : producers)
        producer.join();
    LinuxAsyncEventQueue::drain();
    EXPECT_EQ(received, 2000u);
    EXPECT_TRUE(ordered);
    EXPECT_EQ(lastPerThread, (std::vector<int32_t>{499, 499, 499, 499}));
}

TEST_F(AsyncEventQueueTest, FullRingDropsAndCountsInsteadOfBlocking) {
    LinuxAsyncEventQueue queue;
    std::size_t received = 0;
    queue.event().subscribe([&] { ++received; });
    const uint64_t droppedBefore = LinuxAsyncEventQueue::droppedEventCount();
    const std::size_t overflow = 10;
    for (std::size_t i = 0; i < LinuxAsyncEventQueue::kRingCapacity + overflow; ++i)
        queue.post(static_cast<int32_t>(i), nullptr);
    EXPECT_EQ(LinuxAsyncEventQueue::droppedEventCount() - droppedBefore, overflow);
    LinuxAsyncEventQueue::drain();
    EXPECT_EQ(received, LinuxAsyncEventQueue::kRingCapacity);
}

TEST_F(AsyncEventQueueTest, HandlerThatKeepsPostingCannotHoldTheDrainForever) {
    LinuxAsyncEventQueue queue;
    bool keepPosting = true;
    std::size_t received = 0;
    queue.event().subscribe([&] {
        ++received;
        if (keepPosting)
            queue.post(0, nullptr);
    });
    queue.post(0, nullptr);
    EXPECT_EQ(LinuxAsyncEventQueue::drain(), LinuxAsyncEventQueue::kRingCapacity);
    EXPECT_TRUE(wakeDescriptorReadable()) << "the rest must wake the user-interface thread again";
    keepPosting = false;
    EXPECT_EQ(LinuxAsyncEventQueue::drain(), 1u);
    EXPECT_EQ(received, LinuxAsyncEventQueue::kRingCapacity + 1);
}

TEST(AsyncEventRing, CapacityIsAPowerOfTwoAndOrderIsKept) {
    AsyncEventRing ring(5);
    EXPECT_EQ(ring.capacity(), 8u);
    for (int32_t i = 0; i < 8; ++i)
        EXPECT_TRUE(ring.push({1, i, nullptr}));
    EXPECT_FALSE(ring.push({1, 8, nullptr}));
    AsyncEventRecord record;
    for (int32_t i = 0; i < 8; ++i) {
        ASSERT_TRUE(ring.pop(record));
        EXPECT_EQ(record.identifier, i);
    }
    EXPECT_FALSE(ring.pop(record));
    // Wrapping around.
    EXPECT_TRUE(ring.push({2, 42, nullptr}));
    ASSERT_TRUE(ring.pop(record));
    EXPECT_EQ(record.sender, 2u);
    EXPECT_EQ(record.identifier, 42);
}

} // namespace
