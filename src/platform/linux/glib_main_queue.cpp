#include "platform/linux/glib_main_queue.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <mutex>
#include <set>

namespace mirlo::linuxdesk {

struct GLibMainQueue::State {
  GMainContext* context = nullptr;
  GMainLoop* loop = nullptr;
  std::mutex mutex;
  std::deque<Task> tasks;
  GSource* drain = nullptr;           // the idle source that empties `tasks`, while one is pending
  std::set<GSource*> timeouts;        // delays and timers still attached (main thread only)
  bool closed = false;
};

namespace {

using State = GLibMainQueue::State;

// Runs the tasks present when the source fired; those posted meanwhile wait for the next round,
// so a task that posts itself does not starve the loop.
gboolean drainTasks(gpointer data) {
  auto* weak = static_cast<std::weak_ptr<State>*>(data);
  auto state = weak->lock();
  if (!state) return G_SOURCE_REMOVE;
  std::size_t count = 0;
  {
    std::lock_guard lock(state->mutex);
    count = state->tasks.size();
  }
  for (std::size_t i = 0; i < count; ++i) {
    Task task;
    {
      std::lock_guard lock(state->mutex);
      if (state->tasks.empty()) break;
      task = std::move(state->tasks.front());
      state->tasks.pop_front();
    }
    task();
  }
  std::lock_guard lock(state->mutex);
  if (!state->tasks.empty() && !state->closed) return G_SOURCE_CONTINUE;
  if (state->drain) {
    g_source_unref(state->drain);
    state->drain = nullptr;
  }
  return G_SOURCE_REMOVE;
}

void deleteWeak(gpointer data) { delete static_cast<std::weak_ptr<State>*>(data); }

guint milliseconds(double seconds) {
  if (!(seconds > 0)) return 0;
  return static_cast<guint>(std::min(std::ceil(seconds * 1000.0), 4.0e9));
}

struct TimeoutData {
  std::weak_ptr<State> state;
  Task action;
  bool repeats = false;
  GSource* source = nullptr;
};

gboolean fireTimeout(gpointer data) {
  auto* timeout = static_cast<TimeoutData*>(data);
  auto state = timeout->state.lock();
  if (!state) return G_SOURCE_REMOVE;
  bool repeats = timeout->repeats;
  GSource* source = timeout->source;
  if (!repeats) state->timeouts.erase(source);
  // Copy: the action may invalidate its own timer, which frees `timeout`.
  Task action = timeout->action;
  action();
  return repeats && state->timeouts.count(source) ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

void deleteTimeout(gpointer data) { delete static_cast<TimeoutData*>(data); }

GSource* attachTimeout(const std::shared_ptr<State>& state, double seconds, bool repeats, Task action) {
  GSource* source = g_timeout_source_new(milliseconds(seconds));
  auto* data = new TimeoutData{state, std::move(action), repeats, source};
  g_source_set_callback(source, fireTimeout, data, deleteTimeout);
  state->timeouts.insert(source);
  g_source_attach(source, state->context);
  g_source_unref(source);  // the context holds it while attached
  return source;
}

class GLibTimer final : public Timer {
 public:
  GLibTimer(std::weak_ptr<State> state, GSource* source) : state_(std::move(state)), source_(source) {}
  ~GLibTimer() override = default;
  void invalidate() override {
    auto state = state_.lock();
    if (!state || !source_) return;
    if (state->timeouts.erase(source_)) g_source_destroy(source_);
    source_ = nullptr;
  }
  bool isValid() const override {
    auto state = state_.lock();
    return state && source_ && state->timeouts.count(source_) > 0;
  }

 private:
  std::weak_ptr<State> state_;
  GSource* source_;
};

}  // namespace

GLibMainQueue::GLibMainQueue() : state_(std::make_shared<State>()) {
  state_->context = g_main_context_ref(g_main_context_default());
  state_->loop = g_main_loop_new(state_->context, FALSE);
}

GLibMainQueue::~GLibMainQueue() {
  for (GSource* source : state_->timeouts) g_source_destroy(source);
  state_->timeouts.clear();
  {
    std::lock_guard lock(state_->mutex);
    state_->closed = true;
    if (state_->drain) {
      g_source_destroy(state_->drain);
      g_source_unref(state_->drain);
      state_->drain = nullptr;
    }
    state_->tasks.clear();
  }
  g_main_loop_unref(state_->loop);
  g_main_context_unref(state_->context);
}

void GLibMainQueue::post(Task task) {
  std::lock_guard lock(state_->mutex);
  if (state_->closed) return;
  state_->tasks.push_back(std::move(task));
  if (state_->drain) return;
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(source, drainTasks, new std::weak_ptr<State>(state_), deleteWeak);
  state_->drain = source;  // keeps the creation reference until drained
  g_source_attach(source, state_->context);
}

void GLibMainQueue::postAfter(double seconds, Task task) { attachTimeout(state_, seconds, false, std::move(task)); }

std::shared_ptr<Timer> GLibMainQueue::scheduleTimer(double interval, bool repeats, Task action) {
  GSource* source = attachTimeout(state_, interval, repeats, std::move(action));
  return std::make_shared<GLibTimer>(state_, source);
}

double GLibMainQueue::now() const { return static_cast<double>(g_get_monotonic_time()) / 1e6; }

void GLibMainQueue::block(double seconds) {
  if (seconds > 0) g_usleep(static_cast<gulong>(seconds * 1e6));
}

void GLibMainQueue::run() { g_main_loop_run(state_->loop); }

void GLibMainQueue::quit() { g_main_loop_quit(state_->loop); }

bool GLibMainQueue::iterate(bool mayBlock) { return g_main_context_iteration(state_->context, mayBlock); }

}  // namespace mirlo::linuxdesk
