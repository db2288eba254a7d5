#include "foundation/NotifyEvent.h"

NotifyEvent::Handler* NotifyEvent::setHandler(Handler* h) {
    if (h != handler.get())
        handler.reset(h);
    return h;
}

void NotifyEvent::addHandler(Handler* h) {
    handlers.emplace_back(h);
}

void NotifyEvent::removeHandler(const HandlerKey& key) {
    for (auto it = handlers.rbegin(); it != handlers.rend(); ++it) {
        if ((*it)->matches(key)) {
            handlers.erase(std::next(it).base());
            return;
        }
    }
}

void NotifyEvent::notify(void* sender) {
    if (handler)
        handler->notify(sender);
    for (std::size_t i = handlers.size(); i-- > 0;)
        handlers[i]->notify(sender);
}
