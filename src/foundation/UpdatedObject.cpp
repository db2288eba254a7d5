#include "foundation/UpdatedObject.h"

UpdatedObject::UpdateLock::UpdateLock(UpdatedObject& object) : object(object) {
    ++object.lockCount;
}

UpdatedObject::UpdateLock::~UpdateLock() {
    object.unlock();
}

void UpdatedObject::update() {
    for (std::size_t i = 0; i < events.size(); ++i) {
        DeferredNotifyEvent& record = *events[i];
        if (record.fired == 0)
            continue;
        record.target->notify(record.argument);
        // A firing by one of its own handlers during delivery is absorbed here.
        record.fired = 0;
    }
}

int UpdatedObject::requestUpdate() {
    if (lockCount > 0) {
        updateState = Pending;
        return 1;
    }
    if (updateState == Updating)
        return 1;
    runUpdate();
    return 0;
}

void UpdatedObject::runUpdate() {
    updateState = Updating;
    update();
    updateState = Idle;
}

void UpdatedObject::unlock() {
    --lockCount;
    if (lockCount == 0 && updateState == Pending)
        runUpdate();
}

DeferredNotifyEvent::DeferredNotifyEvent(UpdatedObject& owner, NotifyEvent& target, void* argument)
    : target(&target), owner(&owner), argument(argument) {
    owner.events.push_back(this);
}

DeferredNotifyEvent::DeferredNotifyEvent(UpdatedObject& owner) : owner(&owner) {
    owner.events.push_back(this);
}

void DeferredNotifyEvent::fire() {
    fired = 1;
    owner->requestUpdate();
}

EmbeddedDeferredNotifyEvent::EmbeddedDeferredNotifyEvent(UpdatedObject& owner) : DeferredNotifyEvent(owner) {
    target = &event;
    argument = this;
}

EventForwarderList::Forwarder::Forwarder(EventForwarderList& list,
                                         std::unique_ptr<NotifyEvent::Handler> target)
    : list(list), target(std::move(target)) {}

void EventForwarderList::Forwarder::fire(void* firedSender) {
    sender = firedSender;
    if (!fired) {
        fired = true;
        list.pending.push_back(this);
    }
    list.requestUpdate();
}

EventForwarderList::~EventForwarderList() {
    for (auto& [source, forwarder] : subscriptions)
        source->unsubscribe(forwarder, &Forwarder::fire);
}

EventForwarderList::Forwarder& EventForwarderList::add(NotifyEvent::Handler* target) {
    forwarders.push_back(
        std::unique_ptr<Forwarder>(new Forwarder(*this, std::unique_ptr<NotifyEvent::Handler>(target))));
    // Every forwarder can be pending at once; firing never allocates.
    pending.reserve(forwarders.size());
    return *forwarders.back();
}

EventForwarderList::Forwarder& EventForwarderList::forward(NotifyEvent& source,
                                                           NotifyEvent::Handler* target) {
    Forwarder& forwarder = add(target);
    source.subscribe(&forwarder, &Forwarder::fire);
    subscriptions.emplace_back(&source, &forwarder);
    return forwarder;
}

void EventForwarderList::update() {
    for (std::size_t i = 0; i < pending.size(); ++i) {
        Forwarder& forwarder = *pending[i];
        forwarder.target->notify(forwarder.sender);
        forwarder.fired = false;
    }
    pending.clear();
}
