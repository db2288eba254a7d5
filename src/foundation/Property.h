#pragma once

#include <algorithm>
#include <functional>
#include <utility>

// One-method interface through which animations and controls drive any value holder, whether a
// display property or a processing parameter.
template <class T>
class ValueAssignable {
public:
    virtual ~ValueAssignable() = default;
    virtual void setValue(T value) = 0;
};

class AbstractProperty;

// An object that owns properties; told which one changed (compare the address with its members).
class PropertyOwner {
public:
    virtual ~PropertyOwner() = default;
    virtual void propertyChanged(AbstractProperty& property) = 0;
};

class AbstractProperty {
public:
    explicit AbstractProperty(PropertyOwner* owner = nullptr) : owner(owner) {}
    virtual ~AbstractProperty() = default;
    // A property belongs to its owner; copying would leave two holders reporting as one.
    AbstractProperty(const AbstractProperty&) = delete;
    AbstractProperty& operator=(const AbstractProperty&) = delete;

    void setOwner(PropertyOwner* newOwner) { owner = newOwner; }
    PropertyOwner* getOwner() const { return owner; }

protected:
    void notifyOwner() {
        if (owner != nullptr)
            owner->propertyChanged(*this);
    }

private:
    PropertyOwner* owner;
};

// An observable value: assigning a different value stores it and tells the owner. For floats the
// comparison is ordered equality, so assigning NaN always notifies.
template <class T>
class Property : public AbstractProperty, public ValueAssignable<T> {
public:
    explicit Property(T initial = T{}, PropertyOwner* owner = nullptr)
        : AbstractProperty(owner), value(std::move(initial)) {}

    void setValue(T newValue) override {
        if (value == newValue)
            return;
        value = std::move(newValue);
        notifyOwner();
    }

    const T& getValue() const { return value; }
    operator const T&() const { return value; }

private:
    T value;
};

// A value kept within [minimum, maximum]. The upper limit is applied first, so with crossed limits
// values at or above the minimum give the maximum and values below it give the minimum.
template <class T>
class LimitedProperty : public AbstractProperty, public ValueAssignable<T> {
public:
    LimitedProperty(T initial, T minimum, T maximum, PropertyOwner* owner = nullptr)
        : AbstractProperty(owner), maximum(maximum), minimum(minimum), value(limit(initial)) {}

    void setValue(T newValue) override {
        const T limited = limit(newValue);
        if (limited == value)
            return;
        value = limited;
        notifyOwner();
    }

    // Changes the limits and re-applies them to the current value.
    void setLimits(T newMinimum, T newMaximum) {
        minimum = newMinimum;
        maximum = newMaximum;
        setValue(value);
    }

    const T& getValue() const { return value; }
    operator const T&() const { return value; }
    const T& getMinimum() const { return minimum; }
    const T& getMaximum() const { return maximum; }

private:
    T limit(T v) const { return v < minimum ? minimum : std::min(v, maximum); }

    T maximum;
    T minimum;
    T value;
};

// Drives a value that lives elsewhere (a scroll position, a zoom level) through a getter and a
// setter. Assigning without a setter is a programming error and throws std::bad_function_call.
template <class T>
class DelegatingProperty : public ValueAssignable<T> {
public:
    DelegatingProperty(std::function<T()> getter, std::function<void(T)> setter)
        : getter(std::move(getter)), setter(std::move(setter)) {}

    void setValue(T newValue) override { setter(std::move(newValue)); }
    T getValue() const { return getter(); }

private:
    std::function<T()> getter;
    std::function<void(T)> setter;
};
