#pragma once

#include <memory>

namespace orvane {

// Tells deferred work (a timer, an idle callback, an answer that comes later)
// whether the object that started it still exists: the one idiom for "this
// object may be gone when the callback runs" outside GIO's own async calls,
// which take the owner's GCancellable instead. The object holds a Lifetime
// as a member; its work holds a Watch, alive until the object is destroyed
// or has called end(). Main thread only.
class Lifetime {
public:
    class Watch {
    public:
        Watch() = default;
        bool alive() const { return !m_token.expired(); }

    private:
        friend class Lifetime;
        explicit Watch(std::weak_ptr<const void> token) : m_token(std::move(token)) { }
        std::weak_ptr<const void> m_token;
    };

    Lifetime() = default;
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;

    Watch watch() const { return Watch(m_token); }
    // Ends it before the object goes (first thing in a destructor), so that
    // no work runs while the object's members are being torn down.
    void end() { m_token.reset(); }

private:
    std::shared_ptr<const void> m_token = std::make_shared<char>(0);
};

} // namespace orvane
