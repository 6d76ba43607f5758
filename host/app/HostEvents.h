#pragma once
// The host's named events (codes 3110-3113). Events are known by name: creating
// a name twice gives the same handle. The reference host has no other modules,
// so a raised event is recorded and announced but delivered to nobody.
#include <cstdint>
#include <functional>
#include <vector>

#include <QByteArray>

struct HostSubscription {
    QByteArray name;
    void* registration;
    void* module;
};

class HostEvents {
public:
    // The event's handle: never null, stable for the name.
    void* create(const QByteArray& name);
    // The name behind a handle; null when the handle was never given out.
    QByteArray nameOf(const void* handle) const;

    void subscribe(const QByteArray& name, void* registration, void* module);
    // Drops every subscription of that module; the number dropped.
    int unsubscribe(const void* registration, const void* module);
    const std::vector<HostSubscription>& subscriptions() const { return subscriptions_; }

    // Counts a raise of a known handle; false for an unknown one.
    bool raise(const void* handle);
    int raisedCount(const QByteArray& name) const;

private:
    struct Event {
        QByteArray name;
        intptr_t handle;
        int raised;
    };
    static std::function<bool(const Event&)> isHandle(const void* handle);

    std::vector<Event> events_;
    std::vector<HostSubscription> subscriptions_;
    intptr_t nextHandle_ = 1;
};
