#pragma once

#include "foundation/NotifyEvent.h"

#include <cstddef>
#include <cstdint>

// Carries notifications from any thread (the audio thread included) to the user-interface thread.
// Subscribers attach to event(); when it fires, with the queue as sender, identifier() and data()
// describe the event being delivered.
class AsyncEventQueue {
public:
    virtual ~AsyncEventQueue() = default;

    // Callable from any thread; never blocks.
    virtual void post(int32_t identifier, void* data) = 0;

    NotifyEvent& event() { return deliveredEvent; }
    int32_t identifier() const { return currentIdentifier; }
    void* data() const { return currentData; }

protected:
    void deliver(int32_t identifier, void* data);

private:
    NotifyEvent deliveredEvent;
    int32_t currentIdentifier = 0;
    void* currentData = nullptr;
};

// All queues of the process share one preallocated ring; each record carries the identity of the
// queue that posted it. The user-interface thread calls drain() (when fileDescriptor() becomes
// readable, or on any controller call), which hands every record to the queue that posted it.
// Identities are never reused, so records of a destroyed queue are ignored even when a new queue
// occupies the same address.
//
// When the ring is full a post is dropped and counted (droppedEventCount()); posting never blocks
// and never allocates. The ring holds kRingCapacity records, far more than the user-interface
// thread falls behind by between two drains.
class LinuxAsyncEventQueue : public AsyncEventQueue {
public:
    static constexpr std::size_t kRingCapacity = 4096;

    LinuxAsyncEventQueue();
    ~LinuxAsyncEventQueue() override;
    LinuxAsyncEventQueue(const LinuxAsyncEventQueue&) = delete;
    LinuxAsyncEventQueue& operator=(const LinuxAsyncEventQueue&) = delete;

    void post(int32_t identifier, void* data) override;

    // User-interface thread only. Delivers the pending records (at most one ring's worth, so that
    // handlers that post again cannot keep it busy) and returns how many reached a live queue.
    static std::size_t drain();
    // An eventfd that is readable while records may be pending; for the host's run loop.
    static int fileDescriptor();
    static uint64_t droppedEventCount();

private:
    class Hub;

    Hub& hub;
    const uint64_t sender;
};
