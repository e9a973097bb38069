#pragma once

#include <gio/gio.h>

#include <memory>
#include <utility>

namespace orvane {

// A strong reference to a GObject. Constructing from a raw pointer takes a new
// reference (sinking a floating one); adopt() takes over a reference the
// caller already owns.
template <typename T>
class Ref {
public:
    Ref() = default;
    explicit Ref(T* object) : m_ptr(object) {
        if (m_ptr)
            g_object_ref_sink(G_OBJECT(m_ptr));
    }
    Ref(const Ref& other) : m_ptr(other.m_ptr) {
        if (m_ptr)
            g_object_ref(G_OBJECT(m_ptr));
    }
    Ref(Ref&& other) noexcept : m_ptr(std::exchange(other.m_ptr, nullptr)) {}
    ~Ref() { reset(); }

    Ref& operator=(const Ref& other) {
        if (this != &other) {
            Ref copy(other);
            swap(copy);
        }
        return *this;
    }
    Ref& operator=(Ref&& other) noexcept {
        if (this != &other) {
            reset();
            m_ptr = std::exchange(other.m_ptr, nullptr);
        }
        return *this;
    }

    static Ref adopt(T* object) {
        Ref ref;
        ref.m_ptr = object;
        return ref;
    }

    void reset() {
        if (auto* p = std::exchange(m_ptr, nullptr))
            g_object_unref(G_OBJECT(p));
    }
    // Gives up ownership without dropping the reference.
    [[nodiscard]] T* release() { return std::exchange(m_ptr, nullptr); }
    void swap(Ref& other) noexcept { std::swap(m_ptr, other.m_ptr); }

    T* get() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }
    bool operator==(const Ref& other) const { return m_ptr == other.m_ptr; }

private:
    T* m_ptr = nullptr;
};

template <typename T>
Ref<T> adopt(T* object) { return Ref<T>::adopt(object); }

// Memory from g_malloc / g_strdup.
struct GFreeDeleter {
    void operator()(void* p) const { g_free(p); }
};
using GCharPtr = std::unique_ptr<char, GFreeDeleter>;

struct GErrorDeleter {
    void operator()(GError* e) const { g_error_free(e); }
};
using GErrorPtr = std::unique_ptr<GError, GErrorDeleter>;

struct GBytesDeleter {
    void operator()(GBytes* b) const { g_bytes_unref(b); }
};
using GBytesPtr = std::unique_ptr<GBytes, GBytesDeleter>;

struct GVariantDeleter {
    void operator()(GVariant* v) const { g_variant_unref(v); }
};
using GVariantPtr = std::unique_ptr<GVariant, GVariantDeleter>;

// Out-parameter for GError**: `call(..., GErrorOut(error))`.
class GErrorOut {
public:
    explicit GErrorOut(GErrorPtr& target) : m_target(target) {}
    ~GErrorOut() { m_target.reset(m_error); }
    GErrorOut(const GErrorOut&) = delete;
    GErrorOut& operator=(const GErrorOut&) = delete;
    operator GError**() { return &m_error; }

private:
    GErrorPtr& m_target;
    GError* m_error = nullptr;
};

inline bool isCancelled(const GError* error) {
    return error && g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
}

} // namespace orvane
