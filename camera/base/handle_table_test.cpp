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

class HandleTableTest : public ::testing::Test {
 protected:
  // Far too large for the stack.
  /// A table never frees its chunks, so that it is kept, as the one of the library is.
  static HandleTable& NewTable() {
    static auto& kept = *new std::vector<std::unique_ptr<HandleTable>>;
    return *kept.emplace_back(std::make_unique<HandleTable>());
  }

  HandleTable& table_ = NewTable();
  Counted object_;
  Counted other_;
};

TEST_F(HandleTableTest, DestroysOnceWithTheLastReference) {
  const auto handle = table_.Create(&object_, kKind, Counted::Destroy);
  EXPECT_TRUE(table_.Share(handle));
  EXPECT_EQ(table_.Pin(handle, kKind), &object_);
  EXPECT_TRUE(table_.Release(handle));
  EXPECT_TRUE(table_.Release(handle));
  EXPECT_EQ(object_.destroyed, 0);
  EXPECT_EQ(table_.LiveCount(), 1u);
  EXPECT_TRUE(table_.Release(handle));
  EXPECT_EQ(object_.destroyed, 1);
  EXPECT_EQ(table_.LiveCount(), 0u);
}

TEST_F(HandleTableTest, RefusesWhatIsNoLiveHandle) {
  const auto stale = table_.Create(&object_, kKind, Counted::Destroy);
  ASSERT_TRUE(table_.Release(stale));
  const auto live = table_.Create(&other_, kKind, Counted::Destroy);  // in the very slot of the stale one
  ASSERT_EQ(stale & 0xFFFF'FFFF, live & 0xFFFF'FFFF);

  const HandleTable::Handle bad[] = {0,
                                     stale,
                                     live + 1,
                                     live ^ 1,
                                     live + (1ull << 32),
                                     live + (1ull << 8),
                                     ~0ull,
                                     reinterpret_cast<std::uintptr_t>(&object_)};
  for (const auto handle : bad) {
    EXPECT_FALSE(table_.Share(handle)) << std::hex << handle;
    EXPECT_EQ(table_.Pin(handle, kKind), nullptr) << std::hex << handle;
    EXPECT_FALSE(table_.Release(handle)) << std::hex << handle;
  }
  EXPECT_EQ(table_.Pin(live, kKind + 1), nullptr);
  EXPECT_TRUE(table_.Release(live)) << "refusals must not have touched the count";
  EXPECT_EQ(other_.destroyed, 1);
}

TEST_F(HandleTableTest, GivesDistinctHandlesBeyondOneChunk) {
  std::set<HandleTable::Handle> handles;
  for (int i = 0; i < 3000; ++i) handles.insert(table_.Create(&object_, kKind, Counted::Destroy));
  EXPECT_EQ(handles.size(), 3000u);
  for (const auto handle : handles) EXPECT_TRUE(table_.Release(handle));
  EXPECT_EQ(object_.destroyed, 3000);
}

// Threads race for the last reference of short-lived objects: each must die exactly once, and nobody may pin
// a dead one.
TEST_F(HandleTableTest, SurvivesConcurrentUse) {
  struct Tracked {
    explicit Tracked(std::atomic<int>& deaths) : deaths_(deaths) {}
    ~Tracked() {
      alive = false;
      ++deaths_;
    }
    std::atomic<bool> alive{true};
    std::atomic<int>& deaths_;
  };
  constexpr int kRounds = 2000;
  constexpr int kThreads = 4;
  std::atomic<int> deaths{0};
  std::atomic<HandleTable::Handle> published{0};
  std::atomic<bool> done{false};
  std::atomic<int> dead_pins{0};

  std::vector<std::jthread> users;
  for (int t = 0; t < kThreads; ++t) {
    users.emplace_back([&] {
      while (!done) {
        const HandleTable::Handle handle = published;  // soon stale
        if (auto* object = static_cast<Tracked*>(table_.Pin(handle, kKind))) {
          if (!object->alive) ++dead_pins;
          if (table_.Share(handle) && !table_.Release(handle)) ++dead_pins;
          if (!table_.Release(handle)) ++dead_pins;
        }
        if (table_.Pin(handle, kKind + 1) != nullptr) ++dead_pins;
        auto* own = new Tracked(deaths);
        const auto mine = table_.Create(own, kKind, [](void* dead) { delete static_cast<Tracked*>(dead); });
        if (!table_.Release(mine)) ++dead_pins;
        --deaths;  // counts only the published ones
      }
    });
  }
  for (int i = 0; i < kRounds; ++i) {
    const auto handle =
        table_.Create(new Tracked(deaths), kKind, [](void* dead) { delete static_cast<Tracked*>(dead); });
    published = handle;
    std::this_thread::yield();
    EXPECT_TRUE(table_.Release(handle));
  }
  done = true;
  users.clear();
  EXPECT_EQ(deaths, kRounds);
  EXPECT_EQ(dead_pins, 0);
  EXPECT_EQ(table_.LiveCount(), 0u);
}

}  // namespace
}  // namespace Tarn
