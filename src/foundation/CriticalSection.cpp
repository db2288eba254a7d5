#include "foundation/CriticalSection.h"

PosixCriticalSection::PosixCriticalSection() {
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex, &attributes);
}

PosixCriticalSection::~PosixCriticalSection() {
    pthread_mutex_destroy(&mutex);
    pthread_mutexattr_destroy(&attributes);
}

void PosixCriticalSection::lock() {
    pthread_mutex_lock(&mutex);
}

void PosixCriticalSection::unlock() {
    pthread_mutex_unlock(&mutex);
}

LockedObject::LockedObject() : section(std::make_unique<PosixCriticalSection>()) {}

LockedObject::~LockedObject() = default;
