#pragma once

#include <glib-object.h>

#include <utility>

namespace orvane {

// A GObject signal connection that disconnects when it goes away, so a handler
// never outlives the C++ object it points at. Move-only. It holds the
// instance weakly: if the instance is finalized first, nothing is disconnected.
class SignalConnection {
public:
    SignalConnection() = default;
    SignalConnection(gpointer instance, gulong id) : m_instance(instance), m_id(id) {
        if (m_instance)
            g_object_add_weak_pointer(G_OBJECT(m_instance), &m_instance);
    }
    template <typename Callback>
    static SignalConnection connect(gpointer instance, const char* signal, Callback callback, gpointer data) {
        return SignalConnection(instance, g_signal_connect(instance, signal, G_CALLBACK(callback), data));
    }
    SignalConnection(SignalConnection&& other) noexcept { moveFrom(other); }
    SignalConnection& operator=(SignalConnection&& other) noexcept {
        if (this != &other) {
            disconnect();
            moveFrom(other);
        }
        return *this;
    }
    SignalConnection(const SignalConnection&) = delete;
    SignalConnection& operator=(const SignalConnection&) = delete;
    ~SignalConnection() { disconnect(); }

    void disconnect() {
        if (m_instance) {
            g_object_remove_weak_pointer(G_OBJECT(m_instance), &m_instance);
            if (m_id)
                g_signal_handler_disconnect(m_instance, m_id);
        }
        m_instance = nullptr;
        m_id = 0;
    }
    bool isConnected() const { return m_instance && m_id; }

private:
    void moveFrom(SignalConnection& other) {
        m_id = std::exchange(other.m_id, 0);
        m_instance = nullptr;
        if (other.m_instance) {
            g_object_remove_weak_pointer(G_OBJECT(other.m_instance), &other.m_instance);
            m_instance = std::exchange(other.m_instance, nullptr);
            g_object_add_weak_pointer(G_OBJECT(m_instance), &m_instance);
        }
    }

    gpointer m_instance = nullptr;
    gulong m_id = 0;
};

} // namespace orvane
