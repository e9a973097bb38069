#pragma once

#include <glib.h>

#include <memory>
#include <utility>

// Puts a C++ value on the heap for C code that hands the pointer back later
// (callback user data, g_object_set_data_full, a GObject's C++ state), so that
// no call site pairs a raw new with a raw delete. Exactly one end gets it
// back: take() in a callback that runs once, or free<T> as the GDestroyNotify.
namespace orvane::HeapBox {

// A class made only through its own factory keeps its constructor private
// and names `friend struct HeapBox::Access;`.
struct Access {
    template <typename T, typename... Args>
    static T* make(Args&&... args) { return new T(std::forward<Args>(args)...); }
    template <typename T>
    static void destroy(T* value) { delete value; }
};

template <typename T, typename... Args>
T* make(Args&&... args) {
    return Access::make<T>(std::forward<Args>(args)...);
}

template <typename T>
std::unique_ptr<T> take(gpointer data) {
    return std::unique_ptr<T>(static_cast<T*>(data));
}

template <typename T>
void free(gpointer data) {
    Access::destroy(static_cast<T*>(data));
}

} // namespace orvane::HeapBox
