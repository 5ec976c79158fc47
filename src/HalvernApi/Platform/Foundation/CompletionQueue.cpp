#include "HalvernApi/Platform/Foundation/CompletionQueue.hpp"

#include <atomic>
#include <map>
#include <vector>

namespace HalvernApi::Foundation {

DispatchQueue::~DispatchQueue() = default;
Task::~Task() = default;

namespace {

thread_local CompletionQueue* currentQueue = nullptr;

// What is not to run any more nor to be destroyed, for it holds objects of the application.
void keepUntilTheEnd(Task::Pointer task) {
  static auto& mutex = *new std::mutex;
  static auto& kept = *new std::vector<Task::Pointer>;
  const std::lock_guard lock(mutex);
  kept.push_back(std::move(task));
}

}  // namespace

struct CompletionQueue::State {
  std::mutex mutex;
  std::condition_variable arrived;
  TaskList incoming;                     // under mutex
  std::vector<Task::Pointer> unhandled;  // under mutex; settled, but their handlers wait for a thread
  bool scheduled = false;                // under mutex; the application's queue has been asked to run the tasks
  bool woken = false;                    // under mutex
  bool stopping = false;                 // under mutex
  TaskList next;                         // the thread that runs tasks
  TaskList running;                      // the thread that runs tasks

  TaskList take() {
    const std::lock_guard lock(mutex);
    return std::move(incoming);
  }

  bool runNext() {
    Task::Pointer task = next.pop();
    if (!task) task = running.pop();
    if (!task) return false;
    if (!task->run()) keepUntilTheEnd(std::move(task));
    return true;
  }

  void runAll(CompletionQueue* queue) {
    CompletionQueue* const before = std::exchange(currentQueue, queue);
    const bool entered = ProcessExit::enter();
    running.append(take());
    while (runNext()) {
    }
    if (entered) ProcessExit::leave();
    currentQueue = before;
  }

  void serve(const std::weak_ptr<CompletionQueue>& self) {
    for (;;) {
      {
        std::unique_lock lock(mutex);
        arrived.wait(lock, [this] { return stopping || !incoming.empty(); });
        if (incoming.empty()) return;
      }
      const auto queue = self.lock();  // there is one as long as there are tasks
      runAll(queue.get());
    }
  }
};

CompletionQueue::CompletionQueue(std::shared_ptr<DispatchQueue> executor)
    : executor_(std::move(executor)), state_(std::make_shared<State>()) {}

CompletionQueue::~CompletionQueue() {
  if (executor_ || origin_.inForkedChild()) return;  // a child may have inherited the mutex locked
  {
    const std::lock_guard lock(state_->mutex);
    state_->stopping = true;
  }
  state_->arrived.notify_one();
}

const std::shared_ptr<CompletionQueue>& CompletionQueue::shared() {
  struct Shared {
    const std::shared_ptr<CompletionQueue> queue = std::make_shared<CompletionQueue>(nullptr);
    const OriginalProcess origin{};
  };
  static std::atomic<Shared*> current = nullptr;  // what it points to is never destroyed: exit may need it
  Shared* known = current;
  while (known == nullptr || known->origin.inForkedChild()) {
    auto made = std::make_unique<Shared>();
    if (current.compare_exchange_strong(known, made.get())) known = made.release();
  }
  return known->queue;
}

std::shared_ptr<CompletionQueue> CompletionQueue::on(const std::shared_ptr<DispatchQueue>& executor) {
  if (!executor) return std::make_shared<CompletionQueue>(nullptr);
  static auto& mutex = *new std::mutex;
  static auto& known = *new std::map<DispatchQueue*, std::weak_ptr<CompletionQueue>>;
  const std::lock_guard lock(mutex);
  std::erase_if(known, [](const auto& entry) { return entry.second.expired(); });
  auto queue = known[executor.get()].lock();
  if (!queue) known[executor.get()] = queue = std::make_shared<CompletionQueue>(executor);
  return queue;
}

CompletionQueue* CompletionQueue::current() { return currentQueue; }

bool CompletionQueue::prepare() {
  if (executor_) ProcessExit::stopAtExit(weak_from_this());
  const std::lock_guard lock(state_->mutex);
  return hasThread();
}

// Under the state's mutex.
bool CompletionQueue::hasThread() {
  if (executor_) return !ProcessExit::begun();
  return thread_.started() || thread_.start([state = state_, self = weak_from_this()] { state->serve(self); });
}

void CompletionQueue::post(TaskList tasks) {
  bool scheduled = false;
  std::vector<Task::Pointer> unhandled;  // goes after the lock: a task may hold objects of the application
  {
    const std::lock_guard lock(state_->mutex);
    if (hasThread()) {
      unhandled.swap(state_->unhandled);
      for (const Task::Pointer& task : unhandled)
        if (task->claimPosting()) state_->incoming.push(task);
      state_->incoming.append(std::move(tasks));
      scheduled = std::exchange(state_->scheduled, executor_ != nullptr);
    }
  }
  if (!tasks.empty()) return runWithoutHandlers(std::move(tasks));  // NOLINT(bugprone-use-after-move): empty when moved
  if (executor_ && !scheduled)
    schedule();
  else
    state_->arrived.notify_one();
}

void CompletionQueue::postNext(Task::Pointer task) { state_->next.push(std::move(task)); }

// Asks the application's queue to run the tasks that wait. Asks again after each batch, for it has other work, too.
void CompletionQueue::schedule() {
  thread_local CompletionQueue* asking = nullptr;  // the queue whose executor this thread is asking
  CompletionQueue* const before = std::exchange(asking, this);
  executor_->async([self = shared_from_this()] {
    do {
      self->state_->runAll(self.get());
      const std::lock_guard lock(self->state_->mutex);
      self->state_->scheduled = !self->state_->incoming.empty();
      if (!self->state_->scheduled) return;
    } while (asking == self.get());  // inside `async`: to ask again would be a recursion without end
    self->schedule();
  });
  asking = before;
}

// On the calling thread, without handlers. Tasks that come of these are settled by the outermost call.
void CompletionQueue::runWithoutHandlers(TaskList tasks) {
  thread_local TaskList* pending = nullptr;
  if (pending != nullptr) return pending->append(std::move(tasks));
  pending = &tasks;
  while (Task::Pointer task = tasks.pop()) {
    if (task->runWithoutHandlers()) continue;
    if (ProcessExit::begun()) {
      keepUntilTheEnd(std::move(task));
    } else {
      const std::lock_guard lock(state_->mutex);
      state_->unhandled.push_back(std::move(task));
    }
  }
  pending = nullptr;
}

void CompletionQueue::stop() {
  // In the child of a fork the mutex may be locked for good, and the tasks belong to the parent.
  if (!origin_.inForkedChild()) runWithoutHandlers(state_->take());
}

bool CompletionQueue::runUntil(const std::function<bool()>& done, Deadline deadline) {
  State& state = *state_;
  while (!done()) {
    if (state.runNext()) continue;
    std::unique_lock lock(state.mutex);
    const auto ready = [&] { return state.woken || !state.incoming.empty(); };
    if (!deadline)
      state.arrived.wait(lock, ready);
    else if (!state.arrived.wait_until(lock, *deadline, ready))
      return false;
    state.woken = false;
    state.running.append(std::move(state.incoming));
  }
  return true;
}

void CompletionQueue::wake() {
  {
    const std::lock_guard lock(state_->mutex);
    state_->woken = true;
  }
  state_->arrived.notify_all();
}

}  // namespace HalvernApi::Foundation
