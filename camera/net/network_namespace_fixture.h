#pragma once

/// A network of its own for a test.

#include <gtest/gtest.h>
#include <sched.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

namespace Tarn {

/// Runs `body` on a thread with a network namespace of its own, which goes with it, once the shell commands
/// that make the network have run there. Skips the test where these are not possible.
inline void InNetwork(const std::string& commands, const std::function<void()>& body) {
  std::string missing;
  std::thread([&] {
    if (::unshare(CLONE_NEWNET) != 0) {
      missing = "no right to make a network namespace";
    } else if (std::system(("set -e; ip link set lo up; " + commands).c_str()) != 0) {
      missing = "this system cannot: " + commands;
    } else {
      body();
    }
  }).join();
  if (!missing.empty()) GTEST_SKIP() << missing;
}

}  // namespace Tarn
