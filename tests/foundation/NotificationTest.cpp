#include "foundation/NotifyEvent.h"
#include "foundation/Property.h"
#include "foundation/UpdatedObject.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace {

// Records every call it receives, tagged with its name.
struct Recorder {
    std::vector<std::string>* log;
    std::string name;
    void onEvent(void*) { log->push_back(name); }
    void onEventNoArgument() { log->push_back(name + "()"); }
    void other(void*) { log->push_back(name + "-other"); }
};

} // namespace

TEST(NotifyEventTest, EmptyEventNotifiesNobody) {
    NotifyEvent event;
    EXPECT_FALSE(event.hasHandlers());
    event.notify(nullptr); // must not crash
}

TEST(NotifyEventTest, PrimaryFirstThenNewestSubscriberFirst) {
    std::vector<std::string> log;
    Recorder h0{&log, "H0"}, h1{&log, "H1"}, h2{&log, "H2"}, h3{&log, "H3"};
    NotifyEvent event;
    event.subscribe(&h1, &Recorder::onEvent);
    event.subscribe(&h2, &Recorder::onEvent);
    event.subscribe(&h3, &Recorder::onEventNoArgument);
    event.setHandler(new NotifyEvent::HandlerImpl<Recorder>(&h0, &Recorder::onEvent));
    EXPECT_TRUE(event.hasHandlers());
    event.notify(nullptr);
    EXPECT_EQ(log, (std::vector<std::string>{"H0", "H3()", "H2", "H1"}));
}

TEST(NotifyEventTest, SenderIsPassedToEveryKindOfHandler) {
    int token = 0;
    std::vector<void*> seen;
    NotifyEvent event;
    event.subscribe([&](void* sender) { seen.push_back(sender); });
    event.subscribe([&] { seen.push_back(nullptr); });
    event.notify(&token);
    EXPECT_EQ(seen, (std::vector<void*>{nullptr, &token}));
}

TEST(NotifyEventTest, RemoveTakesOnlyTheNewestMatchingSubscription) {
    std::vector<std::string> log;
    Recorder a{&log, "A"}, b{&log, "B"};
    NotifyEvent event;
    event.subscribe(&a, &Recorder::onEvent);
    event.subscribe(&b, &Recorder::onEvent);
    event.subscribe(&a, &Recorder::onEvent);
    event.subscribe(&a, &Recorder::other);

    event.unsubscribe(&a, &Recorder::onEvent);
    event.notify(nullptr);
    // The later A subscription is gone; the earlier one and A's other method stay.
    EXPECT_EQ(log, (std::vector<std::string>{"A-other", "B", "A"}));

    log.clear();
    event.unsubscribe(&b, &Recorder::other); // no match: nothing happens
    event.unsubscribe(&a, &Recorder::other);
    event.unsubscribe(&a, &Recorder::onEvent);
    event.notify(nullptr);
    EXPECT_EQ(log, (std::vector<std::string>{"B"}));
}

TEST(NotifyEventTest, PrimaryHandlerIsNeverRemovedByKeyAndReplacingDeletesIt) {
    std::vector<std::string> log;
    Recorder a{&log, "A"};
    NotifyEvent event;
    event.setHandler(new NotifyEvent::HandlerImpl<Recorder>(&a, &Recorder::onEvent));
    event.unsubscribe(&a, &Recorder::onEvent);
    event.notify(nullptr);
    EXPECT_EQ(log, (std::vector<std::string>{"A"}));

    event.setHandler(nullptr);
    EXPECT_FALSE(event.hasHandlers());
}

TEST(NotifyEventTest, ClosureHandlersNeverMatchAKey) {
    int calls = 0;
    Recorder r{nullptr, "R"};
    NotifyEvent event;
    event.subscribe([&] { ++calls; });
    event.unsubscribe(&r, &Recorder::onEvent);
    event.notify(nullptr);
    EXPECT_EQ(calls, 1);
}

namespace {

// An UpdatedObject that counts its updates and can misbehave inside one.
class CountingObject : public UpdatedObject {
public:
    int updates = 0;
    int nestedResult = -1;
    bool requestInsideUpdate = false;

    void update() override {
        ++updates;
        if (requestInsideUpdate)
            nestedResult = requestUpdate();
        UpdatedObject::update();
    }
};

} // namespace

TEST(UpdatedObjectTest, UnlockedRequestRunsAtOnce) {
    CountingObject object;
    EXPECT_EQ(object.requestUpdate(), 0);
    EXPECT_EQ(object.updates, 1);
    EXPECT_EQ(object.getUpdateState(), UpdatedObject::Idle);
}

TEST(UpdatedObjectTest, NestedLocksRunOneUpdateAtTheOutermostUnlock) {
    CountingObject object;
    {
        UpdatedObject::UpdateLock outer(object);
        {
            UpdatedObject::UpdateLock inner(object);
            EXPECT_EQ(object.requestUpdate(), 1);
            EXPECT_EQ(object.requestUpdate(), 1);
            EXPECT_EQ(object.getUpdateState(), UpdatedObject::Pending);
        }
        EXPECT_EQ(object.updates, 0);
        EXPECT_EQ(object.getLockCount(), 1u);
    }
    EXPECT_EQ(object.updates, 1);
    EXPECT_EQ(object.getUpdateState(), UpdatedObject::Idle);
}

TEST(UpdatedObjectTest, UnlockWithoutRequestRunsNothing) {
    CountingObject object;
    { UpdatedObject::UpdateLock lock(object); }
    auto heapLock = object.lockUpdates();
    heapLock.reset();
    EXPECT_EQ(object.updates, 0);
}

TEST(UpdatedObjectTest, HeapLockDefersUntilDeleted) {
    CountingObject object;
    auto lock = object.lockUpdates();
    object.requestUpdate();
    EXPECT_EQ(object.updates, 0);
    lock.reset();
    EXPECT_EQ(object.updates, 1);
}

TEST(UpdatedObjectTest, ReentrantRequestIsDroppedAndReportsDeferred) {
    CountingObject object;
    object.requestInsideUpdate = true;
    object.requestUpdate();
    EXPECT_EQ(object.updates, 1);
    EXPECT_EQ(object.nestedResult, 1);
    EXPECT_EQ(object.getUpdateState(), UpdatedObject::Idle);
}

TEST(UpdatedObjectTest, LockAndUnlockInsideUpdateStartNoSecondUpdate) {
    struct Relocking : UpdatedObject {
        int updates = 0;
        void update() override {
            ++updates;
            UpdateLock lock(*this);
        }
    } object;
    object.requestUpdate();
    EXPECT_EQ(object.updates, 1);
}

TEST(DeferredNotifyEventTest, FiredEventsAreDeliveredOnceInRegistrationOrder) {
    std::vector<std::string> log;
    UpdatedObject owner;
    NotifyEvent first, second;
    int firstArgument = 1, secondArgument = 2;
    std::vector<void*> senders;
    first.subscribe([&](void* sender) {
        log.push_back("first");
        senders.push_back(sender);
    });
    second.subscribe([&](void* sender) {
        log.push_back("second");
        senders.push_back(sender);
    });
    DeferredNotifyEvent deferredFirst(owner, first, &firstArgument);
    DeferredNotifyEvent deferredSecond(owner, second, &secondArgument);
    {
        UpdatedObject::UpdateLock lock(owner);
        deferredSecond.fire();
        deferredFirst.fire();
        deferredSecond.fire();
        EXPECT_TRUE(log.empty());
    }
    EXPECT_EQ(log, (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(senders, (std::vector<void*>{&firstArgument, &secondArgument}));
    EXPECT_FALSE(deferredFirst.isFired());
    EXPECT_FALSE(deferredSecond.isFired());

    owner.requestUpdate(); // nothing fired: nothing delivered
    EXPECT_EQ(log.size(), 2u);
}

TEST(DeferredNotifyEventTest, UnlockedFireDeliversImmediately) {
    UpdatedObject owner;
    EmbeddedDeferredNotifyEvent deferred(owner);
    void* seen = nullptr;
    deferred.event.subscribe([&](void* sender) { seen = sender; });
    deferred.fire();
    EXPECT_EQ(seen, &deferred); // the embedded form is its own sender
}

TEST(DeferredNotifyEventTest, RefiringDuringDeliveryIsAbsorbedButEarlierRecordsStayFlagged) {
    UpdatedObject owner;
    EmbeddedDeferredNotifyEvent early(owner);
    EmbeddedDeferredNotifyEvent late(owner);
    int earlyCalls = 0, lateCalls = 0;
    early.event.subscribe([&] { ++earlyCalls; });
    late.event.subscribe([&] {
        ++lateCalls;
        late.fire();  // absorbed: cleared when its delivery returns
        early.fire(); // already walked past: stays flagged for the next update
    });
    late.fire();
    EXPECT_EQ(lateCalls, 1);
    EXPECT_EQ(earlyCalls, 0);
    EXPECT_FALSE(late.isFired());
    EXPECT_TRUE(early.isFired());

    owner.requestUpdate();
    EXPECT_EQ(earlyCalls, 1);
    EXPECT_EQ(lateCalls, 1); // its second firing was absorbed, not delivered late
}

TEST(EventForwarderListTest, BatchesInFiringOrderOncePerForwarder) {
    std::vector<std::string> log;
    Recorder a{&log, "A"}, b{&log, "B"};
    EventForwarderList list;
    auto& forwardA = list.add(new NotifyEvent::HandlerImpl<Recorder>(&a, &Recorder::onEvent));
    auto& forwardB = list.add(new NotifyEvent::HandlerImpl<Recorder>(&b, &Recorder::onEvent));
    {
        UpdatedObject::UpdateLock lock(list);
        forwardB.fire(nullptr);
        forwardA.fire(nullptr);
        forwardB.fire(nullptr);
    }
    EXPECT_EQ(log, (std::vector<std::string>{"B", "A"}));

    log.clear();
    forwardA.fire(nullptr); // unlocked: delivered at once, and only once
    EXPECT_EQ(log, (std::vector<std::string>{"A"}));
}

TEST(EventForwarderListTest, ForwardsASourceEventWithItsSender) {
    NotifyEvent source; // outlives the list
    EventForwarderList list;
    int token = 0;
    std::vector<void*> seen;
    struct Sink {
        std::vector<void*>* seen;
        void onEvent(void* sender) { seen->push_back(sender); }
    } sink{&seen};
    list.forward(source, new NotifyEvent::HandlerImpl<Sink>(&sink, &Sink::onEvent));
    {
        UpdatedObject::UpdateLock lock(list);
        source.notify(&token);
        source.notify(&token);
    }
    EXPECT_EQ(seen, (std::vector<void*>{&token}));
}

TEST(EventForwarderListTest, DestroyingTheListUnsubscribesFromSources) {
    NotifyEvent source;
    {
        EventForwarderList list;
        list.forward(source, new NotifyEvent::HandlerImplFunc<std::function<void()>>([] {}));
        EXPECT_TRUE(source.hasHandlers());
    }
    EXPECT_FALSE(source.hasHandlers());
    source.notify(nullptr); // must not reach the destroyed list
}

namespace {

struct OwnerSpy : PropertyOwner {
    std::vector<AbstractProperty*> changes;
    void propertyChanged(AbstractProperty& property) override { changes.push_back(&property); }
};

} // namespace

TEST(PropertyTest, NotifiesOwnerOnlyOnChange) {
    OwnerSpy owner;
    Property<float> level(0.0f, &owner);
    Property<std::string> name("a", &owner);
    level.setValue(0.5f);
    level.setValue(0.5f);
    name.setValue("a");
    name.setValue("b");
    EXPECT_EQ(owner.changes, (std::vector<AbstractProperty*>{&level, &name}));
    EXPECT_EQ(level.getValue(), 0.5f);
}

TEST(PropertyTest, NaNIsNeverEqualSoItAlwaysNotifies) {
    OwnerSpy owner;
    Property<float> value(0.0f, &owner);
    value.setValue(NAN);
    value.setValue(NAN);
    EXPECT_EQ(owner.changes.size(), 2u);
    EXPECT_TRUE(std::isnan(value.getValue()));
}

TEST(PropertyTest, WithoutOwnerStillStores) {
    Property<int> value(1);
    ValueAssignable<int>& assignable = value;
    assignable.setValue(7);
    EXPECT_EQ(value.getValue(), 7);
}

TEST(LimitedPropertyTest, ClampsAndDoesNotNotifyWhenTheClampedValueIsUnchanged) {
    OwnerSpy owner;
    LimitedProperty<int> value(5, 0, 10, &owner);
    value.setValue(15);
    EXPECT_EQ(value.getValue(), 10);
    value.setValue(12);
    EXPECT_EQ(owner.changes.size(), 1u);
    value.setValue(-3);
    EXPECT_EQ(value.getValue(), 0);
    EXPECT_EQ(owner.changes.size(), 2u);
}

TEST(LimitedPropertyTest, CrossedLimitsLetTheMinimumDecide) {
    LimitedProperty<float> value(0.0f, 5.0f, 2.0f); // minimum above maximum
    value.setValue(7.0f);
    EXPECT_EQ(value.getValue(), 2.0f);
    value.setValue(5.0f);
    EXPECT_EQ(value.getValue(), 2.0f);
    value.setValue(4.9f);
    EXPECT_EQ(value.getValue(), 5.0f);
    value.setValue(-100.0f);
    EXPECT_EQ(value.getValue(), 5.0f);
}

TEST(LimitedPropertyTest, NewLimitsReclampTheValue) {
    OwnerSpy owner;
    LimitedProperty<int> value(8, 0, 10, &owner);
    value.setLimits(0, 6);
    EXPECT_EQ(value.getValue(), 6);
    EXPECT_EQ(owner.changes.size(), 1u);
}

TEST(DelegatingPropertyTest, ForwardsToTheSetterAndFailsWithoutOne) {
    float stored = 0.0f;
    DelegatingProperty<float> delegating([&] { return stored; }, [&](float v) { stored = v * 2.0f; });
    delegating.setValue(1.5f);
    EXPECT_EQ(stored, 3.0f);
    EXPECT_EQ(delegating.getValue(), 3.0f);

    DelegatingProperty<float> broken([&] { return stored; }, nullptr);
    EXPECT_THROW(broken.setValue(1.0f), std::bad_function_call);
}
