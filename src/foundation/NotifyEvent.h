#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

// Identifies a handler built from an object and a member function, so it can be removed again.
struct HandlerKey {
    const void* object;
    const void* memberBytes;
    std::size_t memberSize;
};

// An event with one primary handler and a list of further handlers, all owned by the event.
// Not thread-safe: used on the thread that owns the object the event belongs to.
class NotifyEvent {
public:
    class Handler {
    public:
        virtual ~Handler() = default;
        virtual void notify(void* sender) = 0;
        virtual bool matches(const HandlerKey& key) const = 0;
    };

    template <class T, class Method>
    class MemberHandler;
    template <class T>
    using HandlerImpl = MemberHandler<T, void (T::*)(void*)>;
    template <class T>
    using HandlerImpl0 = MemberHandler<T, void (T::*)()>;
    template <class F>
    class HandlerImplFunc;

    NotifyEvent() = default;
    ~NotifyEvent() = default;
    NotifyEvent(const NotifyEvent&) = delete;
    NotifyEvent& operator=(const NotifyEvent&) = delete;

    // Replaces (and deletes) the primary handler; takes ownership of h, which may be null.
    Handler* setHandler(Handler* h);
    // Appends a further handler and takes ownership of it.
    void addHandler(Handler* h);
    // Deletes the most recently added further handler that matches; the primary handler stays.
    void removeHandler(const HandlerKey& key);
    bool hasHandlers() const { return handler != nullptr || !handlers.empty(); }

    // Calls the primary handler, then the further handlers newest first. Handlers must not add or
    // remove handlers of this event while it notifies.
    void notify(void* sender);

    template <class T>
    void subscribe(T* object, void (T::*method)(void*)) {
        addHandler(new HandlerImpl<T>(object, method));
    }
    template <class T>
    void subscribe(T* object, void (T::*method)()) {
        addHandler(new HandlerImpl0<T>(object, method));
    }
    template <class F>
    void subscribe(F&& callable) {
        addHandler(new HandlerImplFunc<std::decay_t<F>>(std::forward<F>(callable)));
    }
    template <class T, class Method>
    void unsubscribe(T* object, Method method) {
        removeHandler(HandlerKey{object, &method, sizeof(method)});
    }

private:
    std::unique_ptr<Handler> handler;
    std::vector<std::unique_ptr<Handler>> handlers;
};

template <class T, class Method>
class NotifyEvent::MemberHandler : public NotifyEvent::Handler {
public:
    MemberHandler(T* object, Method method) : object(object), method(method) {}

    void notify(void* sender) override {
        if constexpr (std::is_invocable_v<Method, T*, void*>)
            (object->*method)(sender);
        else
            (object->*method)();
    }

    // Member-function pointers are compared by their code-pointer word only.
    bool matches(const HandlerKey& key) const override {
        return key.object == object && key.memberSize == sizeof(Method) &&
               std::memcmp(key.memberBytes, &method, sizeof(void*)) == 0;
    }

private:
    T* object;
    Method method;
};

// A closure handler can only be removed by destroying the event or replacing the primary handler.
template <class F>
class NotifyEvent::HandlerImplFunc : public NotifyEvent::Handler {
public:
    explicit HandlerImplFunc(F callable) : callable(std::move(callable)) {}

    void notify(void* sender) override {
        if constexpr (std::is_invocable_v<F&, void*>)
            callable(sender);
        else
            callable();
    }
    bool matches(const HandlerKey&) const override { return false; }

private:
    F callable;
};
