#include "GRef.h"
#include "Observers.h"
#include "PageScripts.h"
#include "SignalConnection.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

bool isAlive(GObject* weak) { return weak != nullptr; }

TEST(GRef, CopiesMovesAndAdoptsWithoutLeaksOrDoubleFrees) {
    GObject* raw = G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr));
    GObject* watch = raw;
    g_object_add_weak_pointer(raw, reinterpret_cast<gpointer*>(&watch));
    {
        Ref<GObject> owner = adopt(raw);
        EXPECT_EQ(raw->ref_count, 1u);
        Ref<GObject> copy(owner);
        EXPECT_EQ(raw->ref_count, 2u);
        Ref<GObject> assigned;
        assigned = copy;
        EXPECT_EQ(raw->ref_count, 3u);
        assigned = assigned; // self-assignment keeps the reference
        EXPECT_EQ(raw->ref_count, 3u);
        Ref<GObject> moved(std::move(copy));
        EXPECT_FALSE(copy);
        EXPECT_EQ(raw->ref_count, 3u);
        moved = std::move(assigned);
        EXPECT_EQ(raw->ref_count, 2u);
        EXPECT_TRUE(moved == owner);
        Ref<GObject> taken(raw); // takes its own reference
        EXPECT_EQ(raw->ref_count, 3u);
    }
    EXPECT_FALSE(isAlive(watch)) << "every reference was dropped";

    // A floating reference is sunk, not leaked.
    GInitiallyUnowned* floating = G_INITIALLY_UNOWNED(g_object_new(G_TYPE_INITIALLY_UNOWNED, nullptr));
    GObject* floatingWatch = G_OBJECT(floating);
    g_object_add_weak_pointer(floatingWatch, reinterpret_cast<gpointer*>(&floatingWatch));
    {
        Ref<GInitiallyUnowned> sunk(floating);
        EXPECT_FALSE(g_object_is_floating(floating));
    }
    EXPECT_FALSE(isAlive(floatingWatch));
}

TEST(SignalConnection, DisconnectsWhenDestroyedAndSurvivesItsInstance) {
    GObject* object = G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr));
    int calls = 0;
    auto notify = [](GObject*, GParamSpec*, gpointer data) { ++*static_cast<int*>(data); };
    {
        auto connection = SignalConnection::connect(object, "notify", +notify, &calls);
        g_object_notify(object, "nonexistent-is-ignored");
        SignalConnection moved = std::move(connection);
        EXPECT_FALSE(connection.isConnected());
        EXPECT_TRUE(moved.isConnected());
        g_signal_emit_by_name(object, "notify", nullptr);
    }
    g_signal_emit_by_name(object, "notify", nullptr);
    EXPECT_EQ(calls, 1) << "no call after the connection went away";

    auto outliving = SignalConnection::connect(object, "notify", +notify, &calls);
    g_object_unref(object);
    EXPECT_FALSE(outliving.isConnected());
    outliving.disconnect(); // must not touch the finalized object
}

TEST(Observers, SubscriptionsEndWithTheirHandleAndMayChangeDuringNotify) {
    Observers<int> observers;
    std::vector<int> seen;
    auto a = observers.add([&](int v) { seen.push_back(v); });
    Observers<int>::Subscription b;
    b = observers.add([&](int v) {
        seen.push_back(v * 10);
        b.reset(); // removing itself while being notified
    });
    observers.notify(1);
    observers.notify(2);
    EXPECT_EQ(seen, (std::vector<int> { 1, 10, 2 }));
    {
        auto dropped = std::move(a);
    }
    observers.notify(3);
    EXPECT_EQ(seen.size(), 3u);

    Observers<int>::Subscription outlives;
    {
        Observers<int> shortLived;
        outlives = shortLived.add([](int) { });
    }
    outlives.reset(); // the list is gone: nothing happens
}

TEST(PageScripts, ServesBundledScriptsOnceAndNothingForUnknownNames) {
    EXPECT_TRUE(PageScripts::text("no/such/script.js").empty());
    EXPECT_EQ(PageScripts::sourceURI("services/x.js"), "resource:///app/orvane/Orvane/services/x.js");
}

} // namespace
} // namespace orvane
