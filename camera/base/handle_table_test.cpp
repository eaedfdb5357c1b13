#include "camera/base/handle_table.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace Tarn {
namespace {

constexpr std::uint32_t kKind = 7;

struct Counted {
  static void Destroy(void* object) { ++static_cast<Counted*>(object)->destroyed; }
  std::atomic<int> destroyed{0};
};

/// Far too large for the stack, and kept as the library's is: a table never frees its chunks.
HandleTable& table = *new HandleTable;

TEST(HandleTable, DestroysOnceWithTheLastReferenceAndRefusesWhatIsNoLiveHandle) {
  Counted object;
  const auto stale = table.Create(&object, kKind, Counted::Destroy);
  EXPECT_TRUE(table.Share(stale));
  EXPECT_EQ(table.Pin(stale, kKind), &object);
  for (const int destroyed : {0, 0, 1}) {
    EXPECT_EQ(table.LiveCount(), 1u);
    EXPECT_TRUE(table.Release(stale));
    EXPECT_EQ(object.destroyed, destroyed);
  }
  EXPECT_EQ(table.LiveCount(), 0u);

  const auto live = table.Create(&object, kKind, Counted::Destroy);  // in the very slot of the stale one
  ASSERT_EQ(stale & 0xFFFF'FFFF, live & 0xFFFF'FFFF);
  const HandleTable::Handle pointer = reinterpret_cast<std::uintptr_t>(&object);
  for (const HandleTable::Handle bad :
       {0ul, stale, live + 1, live + (1ul << 8), live + (1ul << 32), ~0ul, pointer}) {
    EXPECT_FALSE(table.Share(bad)) << std::hex << bad;
    EXPECT_EQ(table.Pin(bad, kKind), nullptr) << std::hex << bad;
    EXPECT_FALSE(table.Release(bad)) << std::hex << bad;
  }
  EXPECT_EQ(table.Pin(live, kKind + 1), nullptr);
  EXPECT_TRUE(table.Release(live)) << "refusals must not have touched the count";
  EXPECT_EQ(object.destroyed, 2);
}

TEST(HandleTable, GivesDistinctHandlesBeyondOneChunk) {
  Counted object;
  std::set<HandleTable::Handle> handles;
  for (int i = 0; i < 3000; ++i) handles.insert(table.Create(&object, kKind, Counted::Destroy));
  EXPECT_EQ(handles.size(), 3000u);
  for (const auto handle : handles) EXPECT_TRUE(table.Release(handle));
  EXPECT_EQ(object.destroyed, 3000);
}

// Threads race for the last reference of short-lived objects: each must die exactly once, and nobody may pin
// a dead one.
TEST(HandleTable, SurvivesConcurrentUse) {
  struct Tracked {
    std::atomic<int>& deaths;
    std::atomic<bool> alive{true};
  };
  constexpr int kRounds = 2000;
  std::atomic<int> deaths{0}, own_deaths{0}, faults{0};
  std::atomic<HandleTable::Handle> published{0};
  std::atomic<bool> done{false};
  const auto create = [](std::atomic<int>& count) {
    return table.Create(new Tracked{count}, kKind, [](void* dead) {
      const std::unique_ptr<Tracked> object(static_cast<Tracked*>(dead));
      object->alive = false;
      ++object->deaths;
    });
  };
  std::vector<std::jthread> users;
  for (int t = 0; t < 4; ++t) {
    users.emplace_back([&] {
      while (!done) {
        const HandleTable::Handle handle = published;  // soon stale
        if (const auto* object = static_cast<Tracked*>(table.Pin(handle, kKind))) {
          if (!object->alive) ++faults;
          if (table.Share(handle) && !table.Release(handle)) ++faults;
          if (!table.Release(handle)) ++faults;
        }
        if (table.Pin(handle, kKind + 1) != nullptr) ++faults;
        if (!table.Release(create(own_deaths))) ++faults;
      }
    });
  }
  for (int i = 0; i < kRounds; ++i) {
    const auto handle = create(deaths);
    published = handle;
    std::this_thread::yield();
    EXPECT_TRUE(table.Release(handle));
  }
  done = true;
  users.clear();
  EXPECT_EQ(deaths, kRounds);
  EXPECT_EQ(faults, 0);
  EXPECT_EQ(table.LiveCount(), 0u);
}

}  // namespace
}  // namespace Tarn
