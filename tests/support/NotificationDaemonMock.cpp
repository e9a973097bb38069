#include "support/NotificationDaemonMock.h"

#include "support/BusCall.h"
#include "support/ProcessEnvironment.h"
#include "support/Wait.h"

#include <nlohmann/json.hpp>

namespace orvane::test {

namespace {

constexpr const char* kName = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kMockInterface = "org.freedesktop.DBus.Mock";

bool nameHasOwner(GDBusConnection* bus, const char* name) {
    GVariantPtr reply = callAndWait(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "NameHasOwner", g_variant_new("(s)", name), 2s);
    gboolean owned = FALSE;
    if (reply)
        g_variant_get(reply.get(), "(b)", &owned);
    return owned;
}

} // namespace

NotificationDaemonMock::NotificationDaemonMock(std::string capabilities)
    : m_capabilities(std::move(capabilities)) {
}

NotificationDaemonMock::~NotificationDaemonMock() {
    m_process.stop(2s);
}

std::optional<std::string> NotificationDaemonMock::python() {
    // The system's python3 first: a python3 earlier in PATH may lack it.
    for (const char* candidate : { "/usr/bin/python3", "python3" }) {
        auto result = ChildProcess::run({ candidate, "-c", "import dbusmock" }, ProcessEnvironment().list(), 30s);
        if (result && result->status == 0)
            return std::string(candidate);
    }
    return std::nullopt;
}

bool NotificationDaemonMock::start(GDBusConnection* bus, const std::string& busAddress) {
    auto interpreter = python();
    if (!bus || !interpreter)
        return false;
    m_bus = Ref<GDBusConnection>(bus);
    ProcessEnvironment environment;
    environment.set("DBUS_SESSION_BUS_ADDRESS", busAddress);
    std::vector<std::string> argv = { *interpreter, "-m", "dbusmock", "--template", "notification_daemon" };
    if (!m_capabilities.empty())
        argv.insert(argv.end(), { "-p", nlohmann::json({ { "capabilities", m_capabilities } }).dump() });
    if (!m_process.start(argv, environment.list(), ChildProcess::Output::File))
        return false;
    return waitUntil([&] { return !m_process.isRunning() || nameHasOwner(bus, kName); }, 20s) && m_process.isRunning();
}

bool NotificationDaemonMock::readsMarkup() const {
    return m_capabilities.empty() || m_capabilities.find("body-markup") != std::string::npos;
}

std::vector<NotificationServer::Shown> NotificationDaemonMock::shown() {
    std::vector<Shown> result;
    GVariantPtr reply = callAndWait(m_bus.get(), kName, kPath, kMockInterface, "GetMethodCalls",
        g_variant_new("(s)", "Notify"), 10s);
    if (!reply)
        return result;
    // The template numbers new notifications 1, 2, ... and answers a
    // replacement with the number it replaces.
    uint32_t next = 1;
    GVariantIter* calls = nullptr;
    g_variant_get(reply.get(), "(a(tav))", &calls);
    GVariantIter* arguments = nullptr;
    while (g_variant_iter_next(calls, "(tav)", nullptr, &arguments)) {
        std::vector<GVariant*> args;
        for (GVariant* arg = nullptr; g_variant_iter_next(arguments, "v", &arg);)
            args.push_back(arg);
        g_variant_iter_free(arguments);
        if (args.size() == 8 && g_variant_is_of_type(args[1], G_VARIANT_TYPE_UINT32)
            && g_variant_is_of_type(args[3], G_VARIANT_TYPE_STRING) && g_variant_is_of_type(args[4], G_VARIANT_TYPE_STRING)) {
            Shown shown;
            shown.replaces = g_variant_get_uint32(args[1]);
            shown.number = shown.replaces ? shown.replaces : next++;
            shown.title = g_variant_get_string(args[3], nullptr);
            shown.body = g_variant_get_string(args[4], nullptr);
            result.push_back(std::move(shown));
        }
        for (GVariant* arg : args)
            g_variant_unref(arg);
    }
    g_variant_iter_free(calls);
    return result;
}

bool NotificationDaemonMock::click(const Shown& notification) {
    GVariantBuilder arguments;
    g_variant_builder_init(&arguments, G_VARIANT_TYPE("av"));
    g_variant_builder_add(&arguments, "v", g_variant_new_uint32(notification.number));
    g_variant_builder_add(&arguments, "v", g_variant_new_string("default"));
    return bool(callAndWait(m_bus.get(), kName, kPath, kMockInterface, "EmitSignal",
        g_variant_new("(sssav)", "org.freedesktop.Notifications", "ActionInvoked", "us", &arguments), 10s));
}

} // namespace orvane::test
