#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace orvane {

// A list of callbacks for a C++ observable object. add() returns a
// Subscription that removes the callback when it is destroyed; a subscription
// may outlive the list (it then does nothing).
template <typename... Args>
class Observers {
public:
    using Callback = std::function<void(Args...)>;

    class Subscription {
    public:
        Subscription() = default;
        Subscription(Subscription&&) noexcept = default;
        Subscription& operator=(Subscription&& other) noexcept {
            if (this != &other) {
                reset();
                m_list = std::move(other.m_list);
                m_key = other.m_key;
            }
            return *this;
        }
        Subscription(const Subscription&) = delete;
        Subscription& operator=(const Subscription&) = delete;
        ~Subscription() { reset(); }

        void reset() {
            if (auto list = m_list.lock())
                list->erase(m_key);
            m_list.reset();
        }

    private:
        friend class Observers;
        Subscription(std::weak_ptr<std::map<unsigned, Callback>> list, unsigned key)
            : m_list(std::move(list)), m_key(key) {}
        std::weak_ptr<std::map<unsigned, Callback>> m_list;
        unsigned m_key = 0;
    };

    [[nodiscard]] Subscription add(Callback callback) {
        unsigned key = ++m_nextKey;
        m_callbacks->emplace(key, std::move(callback));
        return Subscription(m_callbacks, key);
    }

    // Callbacks may add or remove subscriptions while being notified; a
    // callback removed during notification is not called afterwards.
    void notify(Args... args) const {
        auto keys = std::vector<unsigned>();
        for (auto& [key, cb] : *m_callbacks)
            keys.push_back(key);
        auto list = m_callbacks;
        for (unsigned key : keys) {
            auto it = list->find(key);
            if (it == list->end())
                continue;
            auto callback = it->second;
            callback(args...);
        }
    }

    size_t size() const { return m_callbacks->size(); }

private:
    std::shared_ptr<std::map<unsigned, Callback>> m_callbacks = std::make_shared<std::map<unsigned, Callback>>();
    unsigned m_nextKey = 0;
};

} // namespace orvane
