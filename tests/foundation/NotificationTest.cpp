#include "foundation/NotifyEvent.h"
#include "foundation/Property.h"
#include "foundation/UpdatedObject.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace {

using Log = std::vector<std::string>;

struct Recorder {
    Log* log;
    std::string name;
    void onEvent(void* sender) { log->push_back(name + (sender != nullptr ? "*" : "")); }
    void onEventNoArgument() { log->push_back(name + "()"); }
    void other(void*) { log->push_back(name + "-other"); }
};

struct OwnerSpy : PropertyOwner {
    std::vector<AbstractProperty*> changes;
    void propertyChanged(AbstractProperty& property) override { changes.push_back(&property); }
};

// Counts its updates; optionally asks for another update, or opens and closes a lock, inside one.
class CountingObject : public UpdatedObject {
public:
    int updates = 0;
    int nestedResult = -1;
    bool requestInside = false;
    bool relockInside = false;

    void update() override {
        ++updates;
        if (requestInside)
            nestedResult = requestUpdate();
        if (relockInside)
            UpdateLock lock(*this);
        UpdatedObject::update();
    }
};

} // namespace

TEST(NotifyEventTest, PrimaryFirstThenNewestSubscriberFirstWithTheSender) {
    Log log;
    Recorder h0{&log, "H0"}, h1{&log, "H1"}, h2{&log, "H2"}, h3{&log, "H3"};
    NotifyEvent event;
    EXPECT_FALSE(event.hasHandlers());
    event.notify(nullptr);
    int token = 0;
    event.subscribe(&h1, &Recorder::onEvent);
    event.subscribe([&](void* sender) { log.push_back(sender == &token ? "closure" : "wrong sender"); });
    event.subscribe(&h2, &Recorder::onEvent);
    event.subscribe(&h3, &Recorder::onEventNoArgument);
    event.setHandler(new NotifyEvent::HandlerImpl<Recorder>(&h0, &Recorder::onEvent));
    EXPECT_TRUE(event.hasHandlers());
    event.notify(&token);
    EXPECT_EQ(log, (Log{"H0*", "H3()", "H2*", "closure", "H1*"}));
}

TEST(NotifyEventTest, RemoveTakesOnlyTheNewestMatchingSubscriptionNeverThePrimaryOrAClosure) {
    Log log;
    Recorder a{&log, "A"}, b{&log, "B"};
    NotifyEvent event;
    event.setHandler(new NotifyEvent::HandlerImpl<Recorder>(&a, &Recorder::onEvent));
    event.subscribe(&a, &Recorder::onEvent);
    event.subscribe(&b, &Recorder::onEvent);
    event.subscribe([&] { log.push_back("closure"); });
    event.subscribe(&a, &Recorder::onEvent);
    event.subscribe(&a, &Recorder::other);

    event.unsubscribe(&a, &Recorder::onEvent);
    event.unsubscribe(&b, &Recorder::other); // no match: nothing happens
    event.notify(nullptr);
    EXPECT_EQ(log, (Log{"A", "A-other", "closure", "B", "A"}));

    log.clear();
    event.unsubscribe(&a, &Recorder::onEvent);
    event.unsubscribe(&a, &Recorder::onEvent); // only the primary handler is left for A
    event.notify(nullptr);
    EXPECT_EQ(log, (Log{"A", "A-other", "closure", "B"}));
}

TEST(UpdatedObjectTest, NestedLocksRunOneUpdateAtTheOutermostUnlock) {
    CountingObject object;
    EXPECT_EQ(object.requestUpdate(), 0); // unlocked: runs at once
    EXPECT_EQ(object.updates, 1);
    {
        UpdatedObject::UpdateLock outer(object);
        {
            UpdatedObject::UpdateLock inner(object);
            EXPECT_EQ(object.requestUpdate(), 1);
            EXPECT_EQ(object.requestUpdate(), 1);
            EXPECT_EQ(object.getUpdateState(), UpdatedObject::Pending);
        }
        EXPECT_EQ(object.updates, 1);
    }
    EXPECT_EQ(object.updates, 2);
    EXPECT_EQ(object.getUpdateState(), UpdatedObject::Idle);

    { UpdatedObject::UpdateLock unused(object); } // no request: no update
    auto heapLock = object.lockUpdates();
    object.requestUpdate();
    EXPECT_EQ(object.updates, 2);
    heapLock.reset();
    EXPECT_EQ(object.updates, 3);
}

TEST(UpdatedObjectTest, RequestsAndUnlocksInsideAnUpdateStartNoSecondOne) {
    CountingObject object;
    object.requestInside = true;
    object.requestUpdate();
    EXPECT_EQ(object.updates, 1);
    EXPECT_EQ(object.nestedResult, 1);
    EXPECT_EQ(object.getUpdateState(), UpdatedObject::Idle);

    object.requestInside = false;
    object.relockInside = true;
    object.requestUpdate();
    EXPECT_EQ(object.updates, 2);
}

TEST(DeferredNotifyEventTest, FiredEventsAreDeliveredOnceInRegistrationOrder) {
    Log log;
    UpdatedObject owner;
    NotifyEvent first, second;
    int firstArgument = 1, secondArgument = 2;
    first.subscribe([&](void* sender) { log.push_back(sender == &firstArgument ? "first" : "?"); });
    second.subscribe([&](void* sender) { log.push_back(sender == &secondArgument ? "second" : "?"); });
    DeferredNotifyEvent deferredFirst(owner, first, &firstArgument);
    DeferredNotifyEvent deferredSecond(owner, second, &secondArgument);
    {
        UpdatedObject::UpdateLock lock(owner);
        deferredSecond.fire();
        deferredFirst.fire();
        deferredSecond.fire();
        EXPECT_TRUE(log.empty());
    }
    EXPECT_EQ(log, (Log{"first", "second"}));
    owner.requestUpdate(); // nothing fired: nothing delivered
    EXPECT_EQ(log.size(), 2u);

    EmbeddedDeferredNotifyEvent embedded(owner);
    void* seen = nullptr;
    embedded.event.subscribe([&](void* sender) { seen = sender; });
    embedded.fire(); // unlocked: delivered at once, with the record as its own sender
    EXPECT_EQ(seen, &embedded);
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
    EXPECT_EQ(lateCalls, 1);
}

TEST(EventForwarderListTest, BatchesInFiringOrderOncePerForwarderAndLeavesItsSources) {
    Log log;
    Recorder a{&log, "A"}, b{&log, "B"};
    NotifyEvent source;
    int token = 0;
    {
        EventForwarderList list;
        auto& forwardA = list.add(new NotifyEvent::HandlerImpl<Recorder>(&a, &Recorder::onEvent));
        list.forward(source, new NotifyEvent::HandlerImpl<Recorder>(&b, &Recorder::onEvent));
        {
            UpdatedObject::UpdateLock lock(list);
            source.notify(&token);
            forwardA.fire(nullptr);
            source.notify(&token);
        }
        EXPECT_EQ(log, (Log{"B*", "A"}));
        forwardA.fire(nullptr); // unlocked: delivered at once, and only once
        EXPECT_EQ(log, (Log{"B*", "A", "A"}));
    }
    EXPECT_FALSE(source.hasHandlers());
}

TEST(PropertyTest, NotifiesTheOwnerOnlyOnChangeAndAlwaysForNaN) {
    OwnerSpy owner;
    Property<float> level(0.0f, &owner);
    Property<std::string> name("a", &owner);
    level.setValue(0.5f);
    level.setValue(0.5f);
    name.setValue("a");
    name.setValue("b");
    EXPECT_EQ(owner.changes, (std::vector<AbstractProperty*>{&level, &name}));
    level.setValue(NAN);
    level.setValue(NAN);
    EXPECT_EQ(owner.changes.size(), 4u);
    EXPECT_TRUE(std::isnan(level.getValue()));
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
    value.setLimits(2, 6); // new limits re-clamp the value
    EXPECT_EQ(value.getValue(), 2);
    EXPECT_EQ(owner.changes.size(), 3u);
}

TEST(LimitedPropertyTest, CrossedLimitsLetTheMinimumDecide) {
    LimitedProperty<float> value(0.0f, 5.0f, 2.0f); // minimum above maximum
    for (const auto& [assigned, stored] :
         std::vector<std::pair<float, float>>{{7.0f, 2.0f}, {5.0f, 2.0f}, {4.9f, 5.0f}, {-100.0f, 5.0f}}) {
        value.setValue(assigned);
        EXPECT_EQ(value.getValue(), stored) << assigned;
    }
}

TEST(DelegatingPropertyTest, ForwardsToTheSetterAndFailsWithoutOne) {
    float stored = 0.0f;
    DelegatingProperty<float> delegating([&] { return stored; }, [&](float v) { stored = v * 2.0f; });
    delegating.setValue(1.5f);
    EXPECT_EQ(delegating.getValue(), 3.0f);
    DelegatingProperty<float> broken([&] { return stored; }, nullptr);
    EXPECT_THROW(broken.setValue(1.0f), std::bad_function_call);
}
