#include "host/app/HostEvents.h"

#include <algorithm>
#include <functional>

void* HostEvents::create(const QByteArray& name)
{
    for (const Event& event : events_) {
        if (event.name == name)
            return reinterpret_cast<void*>(event.handle);
    }
    events_.push_back({name, nextHandle_++, 0});
    return reinterpret_cast<void*>(events_.back().handle);
}

QByteArray HostEvents::nameOf(const void* handle) const
{
    const auto event = std::find_if(events_.begin(), events_.end(), isHandle(handle));
    return event != events_.end() ? event->name : QByteArray();
}

void HostEvents::subscribe(const QByteArray& name, void* registration, void* module)
{
    subscriptions_.push_back({name, registration, module});
}

int HostEvents::unsubscribe(const void* registration, const void* module)
{
    const auto dropped = std::remove_if(
        subscriptions_.begin(), subscriptions_.end(), [&](const HostSubscription& entry) {
            return entry.registration == registration && entry.module == module;
        });
    const int count = int(subscriptions_.end() - dropped);
    subscriptions_.erase(dropped, subscriptions_.end());
    return count;
}

bool HostEvents::raise(const void* handle)
{
    const auto event = std::find_if(events_.begin(), events_.end(), isHandle(handle));
    if (event == events_.end())
        return false;
    ++event->raised;
    return true;
}

int HostEvents::raisedCount(const QByteArray& name) const
{
    for (const Event& event : events_) {
        if (event.name == name)
            return event.raised;
    }
    return 0;
}

std::function<bool(const HostEvents::Event&)> HostEvents::isHandle(const void* handle)
{
    const intptr_t value = reinterpret_cast<intptr_t>(handle);
    return [value](const Event& event) { return event.handle == value; };
}
