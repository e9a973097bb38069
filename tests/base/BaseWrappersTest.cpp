#include "GRef.h"
#include "Observers.h"
#include "SignalConnection.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

TEST(GRef, CopiesMovesAndAdoptsWithoutLeaksOrDoubleFrees) {
    GObject* raw = G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr));
    GObject* watch = raw;
    g_object_add_weak_pointer(raw, reinterpret_cast<gpointer*>(&watch));
    {
        Ref<GObject> owner = adopt(raw);
        Ref<GObject> copy(owner);
        Ref<GObject> assigned;
        assigned = copy;
        assigned = assigned;
        EXPECT_EQ(raw->ref_count, 3u) << "copies take a reference, self-assignment keeps it";
        Ref<GObject> moved(std::move(copy));
        EXPECT_FALSE(copy);
        moved = std::move(assigned);
        EXPECT_EQ(raw->ref_count, 2u) << "moves take none";
        EXPECT_TRUE(moved == owner);
        Ref<GObject> taken(raw);
        EXPECT_EQ(raw->ref_count, 3u);
    }
    EXPECT_FALSE(watch) << "every reference was dropped";

    GObject* floating = G_OBJECT(g_object_new(G_TYPE_INITIALLY_UNOWNED, nullptr));
    g_object_add_weak_pointer(floating, reinterpret_cast<gpointer*>(&floating));
    {
        Ref<GInitiallyUnowned> sunk(G_INITIALLY_UNOWNED(floating));
        EXPECT_FALSE(g_object_is_floating(floating));
    }
    EXPECT_FALSE(floating) << "a floating reference is sunk, not leaked";
}

TEST(SignalConnection, DisconnectsWhenDestroyedAndSurvivesItsInstance) {
    GObject* object = G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr));
    int calls = 0;
    auto notify = [](GObject*, GParamSpec*, gpointer data) { ++*static_cast<int*>(data); };
    {
        auto connection = SignalConnection::connect(object, "notify", +notify, &calls);
        SignalConnection moved = std::move(connection);
        EXPECT_FALSE(connection.isConnected());
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
    a.reset();
    observers.notify(3);
    EXPECT_EQ(seen, (std::vector<int> { 1, 10, 2 }));

    Observers<int>::Subscription outlives;
    {
        Observers<int> shortLived;
        outlives = shortLived.add([](int) { });
    }
    outlives.reset(); // the list is gone: nothing happens
}

} // namespace
} // namespace orvane
