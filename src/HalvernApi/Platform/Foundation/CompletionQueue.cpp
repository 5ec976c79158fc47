#include "HalvernApi/Platform/Foundation/CompletionQueue.hpp"

#include <atomic>
#include <map>
#include <vector>

namespace HalvernApi::Foundation {

DispatchQueue::~DispatchQueue() = default;
Task::~Task() = default;

namespace {

thread_local CompletionQueue* currentQueue = nullptr;

// Keeps a task until the process ends. At exit, its handlers must not run, and destroying it would destroy objects of
// the application.
void keepUntilTheEnd(Task::Pointer task) {
  static auto& mutex = *new Mutex;
  static auto& kept = *new std::vector<Task::Pointer>;
  const MutexLock lock(mutex);
  try {
    kept.push_back(task);
  } catch (const std::bad_alloc&) {
    task.detach();
  }
}

}  // namespace

struct CompletionQueue::State {
  Mutex mutex;
  Condition arrived;
  TaskList incoming HALVERNAPI_GUARDED_BY(mutex);
  // Tasks of settled promises. Their handlers could not run, because threads or memory ran out.
  std::vector<Task::Pointer> unhandled HALVERNAPI_GUARDED_BY(mutex);
  TaskList later HALVERNAPI_GUARDED_BY(mutex);          // used if memory for `unhandled` ran out
  bool scheduled HALVERNAPI_GUARDED_BY(mutex) = false;  // a batch waits in the application's queue or runs
  bool woken HALVERNAPI_GUARDED_BY(mutex) = false;
  bool stopping HALVERNAPI_GUARDED_BY(mutex) = false;
  TaskList next, running;  // used only by the thread that runs tasks

  TaskList take() {
    const MutexLock lock(mutex);
    return std::move(incoming);
  }

  // Called after a batch. Returns whether another batch is needed.
  bool needsBatch() {
    const MutexLock lock(mutex);
    scheduled = !incoming.empty();
    return scheduled;
  }
  // Called when the application's queue drops a batch. The next task then requests another batch.
  void forgetBatch() {
    const MutexLock lock(mutex);
    scheduled = false;
  }

  // Returns false if no task can run. Without an executor, starts the thread of the queue unless it is running.
  bool ensureThread(CompletionQueue& queue) HALVERNAPI_REQUIRES(mutex) {
    if (queue.executor_) return !ProcessExit::begun();
    Thread& thread = queue.thread_;
    return thread.started() ||
           thread.start([state = queue.state_, self = queue.weak_from_this()] { state->serve(self); });
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
        MutexLock lock(mutex);
        while (!stopping && incoming.empty()) arrived.wait(lock);
        if (incoming.empty()) return;
      }
      const auto queue = self.lock();  // not null: the tasks keep the queue alive
      runAll(queue.get());
    }
  }
};

CompletionQueue::CompletionQueue(std::shared_ptr<DispatchQueue> executor)
    : executor_(std::move(executor)), state_(std::make_shared<State>()) {}

CompletionQueue::~CompletionQueue() {
  if (executor_ || origin_.inForkedChild()) return;  // in a child, the mutex may stay locked forever
  {
    const MutexLock lock(state_->mutex);
    state_->stopping = true;
  }
  state_->arrived.notifyOne();
}

const std::shared_ptr<CompletionQueue>& CompletionQueue::shared() {
  struct Shared {
    const std::shared_ptr<CompletionQueue> queue = std::make_shared<CompletionQueue>(nullptr);
    const OriginalProcess origin{};
  };
  static std::atomic<Shared*> current = nullptr;  // the object is never destroyed, because exit may use it
  Shared* known = current;
  while (known == nullptr || known->origin.inForkedChild()) {
    auto made = std::make_unique<Shared>();
    if (current.compare_exchange_strong(known, made.get())) known = made.release();
  }
  return known->queue;
}

std::shared_ptr<CompletionQueue> CompletionQueue::on(const std::shared_ptr<DispatchQueue>& executor) {
  if (!executor) return std::make_shared<CompletionQueue>(nullptr);
  static auto& mutex = *new Mutex;
  static auto& known = *new std::map<DispatchQueue*, std::weak_ptr<CompletionQueue>>;
  const MutexLock lock(mutex);
  std::erase_if(known, [](const auto& entry) { return entry.second.expired(); });
  auto queue = known[executor.get()].lock();
  if (!queue) known[executor.get()] = queue = std::make_shared<CompletionQueue>(executor);
  return queue;
}

CompletionQueue* CompletionQueue::current() { return currentQueue; }

bool CompletionQueue::prepare() {
  if (executor_ && !ProcessExit::stopAtExit(weak_from_this())) return false;
  const MutexLock lock(state_->mutex);
  return state_->ensureThread(*this);
}

void CompletionQueue::post(TaskList tasks) {
  bool scheduled = false;
  std::vector<Task::Pointer> unhandled;  // destroyed after unlocking, because a task may own objects of the application
  {
    const MutexLock lock(state_->mutex);
    if (state_->ensureThread(*this)) {
      unhandled.swap(state_->unhandled);
      for (const Task::Pointer& task : unhandled)
        if (task->claimPosting()) state_->incoming.push(task);
      state_->incoming.append(std::move(state_->later));
      state_->incoming.append(std::move(tasks));
      scheduled = std::exchange(state_->scheduled, executor_ != nullptr);
    }
  }
  if (!tasks.empty()) return runWithoutHandlers(std::move(tasks));  // NOLINT(bugprone-use-after-move): empty when moved
  if (executor_ && !scheduled)
    schedule();
  else
    state_->arrived.notifyOne();
}

void CompletionQueue::postNext(Task::Pointer task) { state_->next.push(std::move(task)); }

namespace {
thread_local const CompletionQueue* asking = nullptr;  // the queue for which this thread is calling `async`
}  // namespace

// The task that the application's queue runs. It runs all tasks that are waiting at that time. If more tasks have
// arrived meanwhile, it requests another batch, so that the application's queue can do other work in between.
struct CompletionQueue::Batch {
  explicit Batch(std::shared_ptr<CompletionQueue> itsQueue) : queue(std::move(itsQueue)) {}
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;
  ~Batch() {
    if (queue && !queue->origin_.inForkedChild()) queue->state_->forgetBatch();
  }

  void run() {
    const auto self = std::exchange(queue, nullptr);
    if (!self) return;
    do {
      self->state_->runAll(self.get());
      if (!self->state_->needsBatch()) return;
    } while (asking == self.get());  // inside `async`, another request could recurse
    self->schedule();
  }

  std::shared_ptr<CompletionQueue> queue;  // null after `run` was called
};

// Returns false if memory runs out.
bool CompletionQueue::requestBatch() {
  const CompletionQueue* const before = std::exchange(asking, this);
  std::shared_ptr<Batch> batch;
  bool isAccepted = false;
  try {
    batch = std::make_shared<Batch>(shared_from_this());
    executor_->async([batch] { batch->run(); });
    isAccepted = true;
  } catch (const std::bad_alloc&) {
    if (batch) batch->queue = nullptr;
  }
  asking = before;
  return isAccepted;
}

// If memory runs out, this thread settles the promises of all waiting tasks. Their handlers run after a later `post`.
void CompletionQueue::schedule() {
  while (!requestBatch()) {
    runWithoutHandlers(state_->take());
    if (!state_->needsBatch()) return;
  }
}

// Runs the tasks on the calling thread, without handlers. If a task posts further tasks, the outermost call of this
// function runs them.
void CompletionQueue::runWithoutHandlers(TaskList tasks) {
  thread_local TaskList* pending = nullptr;
  if (pending != nullptr) return pending->append(std::move(tasks));
  pending = &tasks;
  while (Task::Pointer task = tasks.pop()) {
    if (task->runWithoutHandlers()) continue;
    if (ProcessExit::begun()) {
      keepUntilTheEnd(std::move(task));
      continue;
    }
    State& state = *task->queue()->state_;
    const MutexLock lock(state.mutex);
    try {
      state.unhandled.push_back(task);
    } catch (const std::bad_alloc&) {
      if (task->claimPosting()) state.later.push(std::move(task));
    }
  }
  pending = nullptr;
}

void CompletionQueue::stop() {
  // In a forked child, the mutex may stay locked forever, and the tasks belong to the parent.
  if (!origin_.inForkedChild()) runWithoutHandlers(state_->take());
}

void CompletionQueue::runUntil(const std::function<bool()>& done, Deadline deadline) {
  State& state = *state_;
  while (!done()) {
    if (state.runNext()) continue;
    MutexLock lock(state.mutex);
    while (!state.woken && state.incoming.empty())
      if (!state.arrived.wait(lock, deadline)) return;
    state.woken = false;
    state.running.append(std::move(state.incoming));
  }
}

void CompletionQueue::wake() {
  {
    const MutexLock lock(state_->mutex);
    state_->woken = true;
  }
  state_->arrived.notifyAll();
}

}  // namespace HalvernApi::Foundation
