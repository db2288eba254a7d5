#pragma once

#include <memory>

#include <pthread.h>

// A recursive lock: the thread that holds it may take it again; each lock needs one unlock.
// May be taken from any thread, but never on the audio thread unless a caller's contract says so.
class CriticalSection {
public:
    virtual ~CriticalSection() = default;
    virtual void lock() = 0;
    virtual void unlock() = 0;
};

class PosixCriticalSection : public CriticalSection {
public:
    PosixCriticalSection();
    ~PosixCriticalSection() override;
    PosixCriticalSection(const PosixCriticalSection&) = delete;
    PosixCriticalSection& operator=(const PosixCriticalSection&) = delete;

    void lock() override;
    void unlock() override;

private:
    // The attributes live as long as the mutex they were used for.
    pthread_mutexattr_t attributes;
    pthread_mutex_t mutex;
};

// Base of classes that are locked as a whole.
class LockedObject {
public:
    LockedObject();
    virtual ~LockedObject();
    LockedObject(const LockedObject&) = delete;
    LockedObject& operator=(const LockedObject&) = delete;

    // Const so that readers holding a const reference can still exclude writers.
    void lock() const { section->lock(); }
    void unlock() const { section->unlock(); }
    CriticalSection* criticalSection() const { return section.get(); }

private:
    std::unique_ptr<CriticalSection> section;
};

// Holds a lock for its scope; a null pointer means no locking.
class ScopedLocker {
public:
    explicit ScopedLocker(CriticalSection* section) : section(section) {
        if (section != nullptr)
            section->lock();
    }
    explicit ScopedLocker(const LockedObject* object)
        : ScopedLocker(object != nullptr ? object->criticalSection() : nullptr) {}
    ~ScopedLocker() {
        if (section != nullptr)
            section->unlock();
    }
    ScopedLocker(const ScopedLocker&) = delete;
    ScopedLocker& operator=(const ScopedLocker&) = delete;

private:
    CriticalSection* section;
};
