#include "HalvernApi/Platform/Foundation/CompletionQueue.hpp"

#include <map>
#include <utility>

#include "HalvernApi/Platform/Foundation/Thread.hpp"

namespace HalvernApi::Foundation {

DispatchQueue::~DispatchQueue() = default;

namespace {

// A thread that runs what it is handed. What it works on outlives its owner, so a task may drop the owner.
class ThreadQueue final : public DispatchQueue {
 public:
  ~ThreadQueue() override {
    if (!thread_.started() || forkCount() != forkCount_) return;  // a child may have inherited the mutex locked
    const std::lock_guard lock(state_->mutex);
    state_->stopping = true;
    state_->changed.notify_one();
  }

  void async(std::function<void()> task) override {
    std::unique_lock lock(state_->mutex);
    if (!thread_.started() && !thread_.start([state = state_] { run(*state); })) {
      lock.unlock();  // the system is out of threads: on the wrong thread is better than never
      return task();
    }
    state_->tasks.push_back(std::move(task));
    lock.unlock();  // first, or the thread wakes only to wait for the lock
    state_->changed.notify_one();
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> tasks;
    bool stopping = false;
  };

  static void run(State& state) {
    for (;;) {
      std::function<void()> task;
      {
        std::unique_lock lock(state.mutex);
        state.changed.wait(lock, [&] { return state.stopping || !state.tasks.empty(); });
        if (state.tasks.empty()) return;
        task = std::move(state.tasks.front());
        state.tasks.pop_front();
      }
      task();
    }
  }

  const std::shared_ptr<State> state_ = std::make_shared<State>();
  const int forkCount_ = forkCount();
  Thread thread_;
};

thread_local CompletionQueue* currentQueue = nullptr;

class CurrentScope {
 public:
  explicit CurrentScope(CompletionQueue* queue) : before_(std::exchange(currentQueue, queue)) {}
  ~CurrentScope() { currentQueue = before_; }
  CurrentScope(const CurrentScope&) = delete;
  CurrentScope& operator=(const CurrentScope&) = delete;

 private:
  CompletionQueue* before_;
};

}  // namespace

CompletionQueue::CompletionQueue(std::shared_ptr<DispatchQueue> executor)
    : executor_(executor ? std::move(executor) : std::make_shared<ThreadQueue>()) {}

const std::shared_ptr<CompletionQueue>& CompletionQueue::shared() {
  // Never destroyed: its thread may be in a task until the process is gone.
  static const auto& queue = *new std::shared_ptr<CompletionQueue>(std::make_shared<CompletionQueue>(nullptr));
  return queue;
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

void CompletionQueue::post(Task task) {
  std::vector<Task> tasks;
  tasks.push_back(std::move(task));
  post(std::move(tasks));
}

void CompletionQueue::post(std::vector<Task> tasks) {
  bool first = false;
  {
    const std::lock_guard lock(mutex_);
    if (incoming_.empty())
      incoming_ = std::move(tasks);
    else
      std::move(tasks.begin(), tasks.end(), std::back_inserter(incoming_));
    first = !std::exchange(scheduled_, true);
  }
  if (first)
    schedule();
  else
    arrived_.notify_one();
}

void CompletionQueue::schedule() {
  if (ProcessExit::begun()) return ProcessExit::keep(shared_from_this());
  executor_->async([self = shared_from_this()] { self->runScheduled(); });
}

void CompletionQueue::runScheduled() {
  if (!ProcessExit::enter()) return ProcessExit::keep(shared_from_this());
  const CurrentScope scope(this);
  {
    const std::lock_guard lock(mutex_);
    std::move(incoming_.begin(), incoming_.end(), std::back_inserter(running_));
    incoming_.clear();
  }
  while (!ProcessExit::begun() && runNext()) {
  }
  ProcessExit::leave();
  {
    const std::lock_guard lock(mutex_);
    scheduled_ = !running_.empty() || !incoming_.empty();
    if (!scheduled_) return;
  }
  schedule();  // anew rather than on and on: the executor has other work
}

bool CompletionQueue::runNext() {
  if (running_.empty()) return false;
  const Task task = std::move(running_.front());
  running_.pop_front();
  [&]() noexcept { task(); }();
  return true;
}

bool CompletionQueue::runUntil(const std::function<bool()>& done, Deadline deadline) {
  const CurrentScope scope(this);
  while (!done()) {
    if (runNext()) continue;
    std::unique_lock lock(mutex_);
    const auto ready = [this] { return !incoming_.empty(); };
    if (!deadline)
      arrived_.wait(lock, ready);
    else if (!arrived_.wait_until(lock, *deadline, ready))
      return false;
    std::move(incoming_.begin(), incoming_.end(), std::back_inserter(running_));
    incoming_.clear();
  }
  return true;
}

}  // namespace HalvernApi::Foundation
