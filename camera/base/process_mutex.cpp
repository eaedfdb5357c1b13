#include "camera/base/process_mutex.h"

#include <pthread.h>
#include <system_error>

#include <atomic>
#include <utility>
#include <vector>

namespace Tarn {
namespace {

/// Never destroyed: forks may happen until the very end.
struct ForkHandling {
  Mutex mutex;  // taken first
  std::vector<Mutex*> locks;
  std::vector<std::function<void()>> handlers;
};

ForkHandling& TheHandling() {
  static ForkHandling& handling = *new ForkHandling;
  return handling;
}

std::atomic<unsigned> generation = 0;  // written in a child with one thread, read anywhere

// The locks that these take and open are known at run time only.
void BeforeFork() TARN_NO_THREAD_SAFETY_ANALYSIS {
  TheHandling().mutex.lock();
  for (Mutex* lock : TheHandling().locks) lock->lock();
}

void AfterFork() TARN_NO_THREAD_SAFETY_ANALYSIS {
  for (Mutex* lock : TheHandling().locks) lock->unlock();
  TheHandling().mutex.unlock();
}

void AfterForkInChild() {
  ++generation;
  for (const auto& handler : TheHandling().handlers) handler();
  AfterFork();
}

void RegisterOnce() {
  static const int failure = pthread_atfork(BeforeFork, AfterFork, AfterForkInChild);
  if (failure != 0) throw std::system_error(failure, std::generic_category(), "pthread_atfork");
}

}  // namespace

ProcessMutex::ProcessMutex() { GuardAtForks(*this); }

ProcessMutex::~ProcessMutex() {
  const MutexLock lock(TheHandling().mutex);
  std::erase(TheHandling().locks, static_cast<Mutex*>(this));
}

void GuardAtForks(Mutex& mutex) {
  RegisterOnce();
  const MutexLock lock(TheHandling().mutex);
  TheHandling().locks.push_back(&mutex);
}

unsigned ForkGeneration() noexcept { return generation.load(std::memory_order_relaxed); }

void OnForkedChild(std::function<void()> handler) {
  RegisterOnce();
  const MutexLock lock(TheHandling().mutex);
  TheHandling().handlers.push_back(std::move(handler));
}

}  // namespace Tarn
