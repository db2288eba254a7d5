#pragma once

#include "foundation/NotifyEvent.h"

#include <cstdint>
#include <memory>
#include <vector>

class DeferredNotifyEvent;

// Base of objects that coalesce change notifications: while an update lock is open, requests are
// remembered and the outermost unlock runs one update(). Single-threaded by contract.
class UpdatedObject {
public:
    enum UpdateState : uint32_t { Idle = 0, Pending = 1, Updating = 2 };

    class UpdateLock {
    public:
        explicit UpdateLock(UpdatedObject& object);
        ~UpdateLock();
        UpdateLock(const UpdateLock&) = delete;
        UpdateLock& operator=(const UpdateLock&) = delete;

    private:
        UpdatedObject& object;
    };

    UpdatedObject() = default;
    virtual ~UpdatedObject() = default;
    UpdatedObject(const UpdatedObject&) = delete;
    UpdatedObject& operator=(const UpdatedObject&) = delete;

    // Delivers every fired deferred event once, in registration order. Subclasses recompute their
    // derived state and then, as a rule, call this.
    virtual void update();

    // 0 when the update ran now; 1 when it was deferred by a lock or dropped because an update is
    // already running (that update is expected to cover it).
    int requestUpdate();

    // A lock that outlives a scope, e.g. across a mouse drag; deleting it unlocks.
    std::unique_ptr<UpdateLock> lockUpdates() { return std::make_unique<UpdateLock>(*this); }

    uint32_t getUpdateState() const { return updateState; }
    uint32_t getLockCount() const { return lockCount; }

private:
    friend class DeferredNotifyEvent;

    void runUpdate();
    void unlock();

    std::vector<DeferredNotifyEvent*> events;
    uint32_t updateState = Idle;
    uint32_t lockCount = 0;
};

// Ties a NotifyEvent to an UpdatedObject: fire() marks it and asks the owner for an update, which
// delivers it. Records are members of the owner (or its parts) and stay registered for its lifetime.
class DeferredNotifyEvent {
public:
    DeferredNotifyEvent(UpdatedObject& owner, NotifyEvent& target, void* argument);
    DeferredNotifyEvent(const DeferredNotifyEvent&) = delete;
    DeferredNotifyEvent& operator=(const DeferredNotifyEvent&) = delete;

    void fire();
    bool isFired() const { return fired != 0; }

protected:
    // For the embedded form: the target and argument are set by the derived class.
    explicit DeferredNotifyEvent(UpdatedObject& owner);

private:
    friend class UpdatedObject;

    NotifyEvent* target = nullptr;
    uint8_t fired = 0;
    UpdatedObject* owner;
    void* argument = nullptr;

    friend class EmbeddedDeferredNotifyEvent;
};

// The form that carries its own NotifyEvent and hands itself to the handlers as the sender.
class EmbeddedDeferredNotifyEvent : public DeferredNotifyEvent {
public:
    explicit EmbeddedDeferredNotifyEvent(UpdatedObject& owner);

    NotifyEvent event;
};

// Queues notifications and delivers them in one batch, in firing order, on the next update.
class EventForwarderList : public UpdatedObject {
public:
    class Forwarder {
    public:
        // Queues this forwarder once per batch; a second firing before delivery only replaces the
        // sender that will be passed on.
        void fire(void* sender);

    private:
        friend class EventForwarderList;
        Forwarder(EventForwarderList& list, std::unique_ptr<NotifyEvent::Handler> target);

        EventForwarderList& list;
        std::unique_ptr<NotifyEvent::Handler> target;
        bool fired = false;
        void* sender = nullptr;
    };

    EventForwarderList() = default;
    ~EventForwarderList() override;

    // Creates a forwarder that calls target (owned) when its batch is delivered.
    Forwarder& add(NotifyEvent::Handler* target);

    // Creates a forwarder fired by source; source must outlive this list.
    Forwarder& forward(NotifyEvent& source, NotifyEvent::Handler* target);

    void update() override;

private:
    std::vector<std::unique_ptr<Forwarder>> forwarders;
    std::vector<Forwarder*> pending;
    std::vector<std::pair<NotifyEvent*, Forwarder*>> subscriptions;
};
