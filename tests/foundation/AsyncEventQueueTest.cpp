#include "foundation/AsyncEventQueue.h"

#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <poll.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

namespace {

// What one queue's subscriber saw: "sender identifier data" per delivery, and on which thread.
class Recorder {
public:
    explicit Recorder(AsyncEventQueue& queue) : queue(queue) {
        queue.event().subscribe([this](void* sender) {
            EXPECT_EQ(sender, &this->queue);
            EXPECT_EQ(std::this_thread::get_id(), drainingThread);
            identifiers.push_back(this->queue.identifier());
            data.push_back(this->queue.data());
        });
    }

    std::vector<int32_t> identifiers;
    std::vector<void*> data;

private:
    AsyncEventQueue& queue;
    const std::thread::id drainingThread = std::this_thread::get_id();
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

TEST_F(AsyncEventQueueTest, PostedFromAWorkerWithoutAllocatingAndDeliveredOnlyByTheDrain) {
    LinuxAsyncEventQueue queue;
    Recorder recorder(queue);
    int payload = 0;
    std::size_t allocations = 1;
    std::thread worker([&] {
        testing_support::AllocationCounter counter;
        queue.post(7, &payload);
        for (int32_t i = 8; i < 100; ++i)
            queue.post(i, nullptr);
        allocations = counter.count();
    });
    worker.join();
    EXPECT_EQ(allocations, 0u);
    EXPECT_TRUE(recorder.identifiers.empty()) << "nothing may fire before the drain";
    EXPECT_TRUE(wakeDescriptorReadable());

    EXPECT_EQ(LinuxAsyncEventQueue::drain(), 93u);
    ASSERT_EQ(recorder.identifiers.size(), 93u);
    EXPECT_EQ(recorder.identifiers[0], 7);
    EXPECT_EQ(recorder.data[0], &payload);
    EXPECT_EQ(recorder.identifiers[92], 99);
    EXPECT_EQ(recorder.data[92], nullptr);
    EXPECT_FALSE(wakeDescriptorReadable());
    EXPECT_EQ(LinuxAsyncEventQueue::drain(), 0u);
}

TEST_F(AsyncEventQueueTest, EachQueueReceivesOnlyItsOwnEventsNotThoseOfADestroyedOneAtItsAddress) {
    LinuxAsyncEventQueue first;
    std::optional<LinuxAsyncEventQueue> second(std::in_place);
    const AsyncEventQueue* oldAddress = &*second;
    second->post(11, nullptr);
    second.reset();
    second.emplace();
    ASSERT_EQ(&*second, oldAddress);
    Recorder firstRecorder(first), secondRecorder(*second);
    first.post(1, nullptr);
    second->post(2, nullptr);
    first.post(3, nullptr);
    EXPECT_EQ(LinuxAsyncEventQueue::drain(), 3u);
    EXPECT_EQ(firstRecorder.identifiers, (std::vector<int32_t>{1, 3}));
    EXPECT_EQ(secondRecorder.identifiers, (std::vector<int32_t>{2}));
}

TEST_F(AsyncEventQueueTest, ManyProducersLoseNothingAndKeepEachThreadsOrder) {
    LinuxAsyncEventQueue queue;
    std::vector<int32_t> lastPerThread(4, -1);
    bool ordered = true;
    queue.event().subscribe([&] {
        const int32_t thread = queue.identifier() / 1000, sequence = queue.identifier() % 1000;
        ordered = ordered && sequence == lastPerThread[thread] + 1;
        lastPerThread[thread] = sequence;
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
    while (finished < 4) // drain while the producers run, as the user-interface thread would
        LinuxAsyncEventQueue::drain();
    for (auto& producer : producers)
        producer.join();
    LinuxAsyncEventQueue::drain();
    EXPECT_TRUE(ordered);
    EXPECT_EQ(lastPerThread, (std::vector<int32_t>{499, 499, 499, 499}));
}

TEST_F(AsyncEventQueueTest, FullRingDropsAndCountsAndAPostingHandlerCannotHoldTheDrain) {
    LinuxAsyncEventQueue queue;
    std::size_t received = 0;
    bool keepPosting = false;
    queue.event().subscribe([&] {
        ++received;
        if (keepPosting)
            queue.post(0, nullptr);
    });
    const uint64_t droppedBefore = LinuxAsyncEventQueue::droppedEventCount();
    for (std::size_t i = 0; i < LinuxAsyncEventQueue::kRingCapacity + 10; ++i)
        queue.post(static_cast<int32_t>(i), nullptr);
    EXPECT_EQ(LinuxAsyncEventQueue::droppedEventCount() - droppedBefore, 10u);

    keepPosting = true;
    EXPECT_EQ(LinuxAsyncEventQueue::drain(), LinuxAsyncEventQueue::kRingCapacity);
    EXPECT_TRUE(wakeDescriptorReadable()) << "the rest must wake the user-interface thread again";
    keepPosting = false;
    EXPECT_EQ(LinuxAsyncEventQueue::drain(), LinuxAsyncEventQueue::kRingCapacity);
    EXPECT_EQ(received, 2 * LinuxAsyncEventQueue::kRingCapacity);
}

} // namespace
