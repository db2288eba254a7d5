#include "foundation/AsyncEventQueue.h"

#include "foundation/AsyncEventRing.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <unordered_map>

void AsyncEventQueue::deliver(int32_t identifier, void* data) {
    currentIdentifier = identifier;
    currentData = data;
    deliveredEvent.notify(this);
}

// The process-wide part: the ring, the wake-up descriptor and the table of live queues.
class LinuxAsyncEventQueue::Hub {
public:
    static Hub& instance() {
        static Hub hub;
        return hub;
    }

    uint64_t add(LinuxAsyncEventQueue* queue) {
        std::lock_guard lock(queuesMutex);
        const uint64_t sender = nextSender++;
        queues.emplace(sender, queue);
        return sender;
    }

    void remove(uint64_t sender) {
        std::lock_guard lock(queuesMutex);
        queues.erase(sender);
    }

    void post(const AsyncEventRecord& record) {
        if (!ring.push(record))
            dropped.fetch_add(1, std::memory_order_relaxed);
        signal();
    }

    std::size_t drain() {
        // Clearing the flag first means a post racing with this drain signals again.
        signalPending.exchange(false, std::memory_order_acq_rel);
        uint64_t count = 0;
        [[maybe_unused]] const auto ignored = read(wakeDescriptor, &count, sizeof count);

        std::size_t delivered = 0;
        AsyncEventRecord record;
        for (std::size_t n = 0; n < ring.capacity(); ++n) {
            if (!ring.pop(record))
                return delivered;
            if (LinuxAsyncEventQueue* queue = find(record.sender)) {
                queue->deliver(record.identifier, record.data);
                ++delivered;
            }
        }
        // Handlers kept posting: leave the rest for the next drain.
        signal();
        return delivered;
    }

    int fileDescriptor() const { return wakeDescriptor; }
    uint64_t droppedCount() const { return dropped.load(std::memory_order_relaxed); }

private:
    Hub() : ring(kRingCapacity), wakeDescriptor(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}
    ~Hub() { close(wakeDescriptor); }

    // Writes the eventfd only on the first post after a drain, to keep system calls off the
    // audio thread as far as possible.
    void signal() {
        if (!signalPending.exchange(true, std::memory_order_acq_rel)) {
            const uint64_t one = 1;
            [[maybe_unused]] const auto ignored = write(wakeDescriptor, &one, sizeof one);
        }
    }

    LinuxAsyncEventQueue* find(uint64_t sender) {
        std::lock_guard lock(queuesMutex);
        const auto found = queues.find(sender);
        return found == queues.end() ? nullptr : found->second;
    }

    AsyncEventRing ring;
    const int wakeDescriptor;
    std::atomic<bool> signalPending{false};
    std::atomic<uint64_t> dropped{0};

    std::mutex queuesMutex;
    std::unordered_map<uint64_t, LinuxAsyncEventQueue*> queues;
    uint64_t nextSender = 1;
};

LinuxAsyncEventQueue::LinuxAsyncEventQueue() : hub(Hub::instance()), sender(hub.add(this)) {}

LinuxAsyncEventQueue::~LinuxAsyncEventQueue() {
    hub.remove(sender);
}

void LinuxAsyncEventQueue::post(int32_t identifier, void* data) {
    hub.post({sender, identifier, data});
}

std::size_t LinuxAsyncEventQueue::drain() {
    return Hub::instance().drain();
}

int LinuxAsyncEventQueue::fileDescriptor() {
    return Hub::instance().fileDescriptor();
}

uint64_t LinuxAsyncEventQueue::droppedEventCount() {
    return Hub::instance().droppedCount();
}
