#include "binding/callable_registry.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "binding/interpreter_test.h"

namespace Tarn::Binding {
namespace {

std::string Failure(const CallableRegistry& registry, const CallableType& type, std::int64_t id) {
  try {
    registry.Find(type, id);
    return "";
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

TEST(CallableRegistry, KeepsACallableAsLongAsItIsInUse) {
  Testing::NeedInterpreter();
  const PyRef first = PyRef::Steal(PyList_New(0));
  const PyRef second = PyRef::Steal(PyList_New(0));
  const Py_ssize_t before = Py_REFCNT(first.Get());

  CallableRegistry registry;
  EXPECT_EQ(Failure(registry, kImageRelease, 1), "no such callable type");
  registry.Store(kImageRelease, 1, first.Get());
  registry.Store(kImageRelease, 1, first.Get());
  EXPECT_EQ(Py_REFCNT(first.Get()), before + 1) << "one entry for one callable";
  EXPECT_EQ(registry.Find(kImageRelease, 1).Get(), first.Get());
  EXPECT_EQ(Failure(registry, kImageRelease, 2), "no such callable for this id");
  EXPECT_EQ(Failure(registry, kEventUpdated, 1), "no such callable type");

  registry.Drop(kImageRelease, 1);
  EXPECT_EQ(registry.Find(kImageRelease, 1).Get(), first.Get()) << "one use is left";
  registry.Store(kImageRelease, 1, second.Get());
  EXPECT_EQ(Py_REFCNT(first.Get()), before);
  EXPECT_EQ(registry.Find(kImageRelease, 1).Get(), second.Get());
  registry.Drop(kImageRelease, 1);
  registry.Drop(kImageRelease, 1);
  registry.Drop(kImageRelease, 1);  // unknown by now
  EXPECT_TRUE(registry.Empty());
  EXPECT_EQ(Failure(registry, kImageRelease, 1), "no such callable type");
}

}  // namespace
}  // namespace Tarn::Binding
