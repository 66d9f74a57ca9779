#include "fit/service/job_queue.h"

#include <algorithm>
#include <utility>

JobQueue::JobQueue(GDBusConnection* bus, std::string folder, size_t count,
                   std::function<void()> onChanged)
    : connection(bus),
      workerFolder(std::move(folder)),
      atATime(count),
      changed(std::move(onChanged)) {}

JobQueue::~JobQueue() {
  if (removal != 0) g_source_remove(removal);
  for (const Entry& entry : entries) {
    g_bus_unwatch_name(entry.callerWatch);
  }
}

bool JobQueue::isFull(const std::string& caller) const {
  const auto isTheirs = [&](const Entry& entry) { return entry.job->caller() == caller; };
  return entries.size() >= kMost ||
         static_cast<size_t>(std::count_if(entries.begin(), entries.end(), isTheirs)) >=
             kMostOfOneCaller;
}

void JobQueue::add(std::unique_ptr<FitJob> job) {
  FitJob* const added = job.get();
  Entry entry = {std::move(job), 0};
  // Told also when the caller has left before we got to its request.
  entry.callerWatch = g_bus_watch_name_on_connection(connection, added->caller().c_str(),
                                                     G_BUS_NAME_WATCHER_FLAGS_NONE, nullptr,
                                                     onCallerGone, added, nullptr);
  entries.push_back(std::move(entry));
}

void JobQueue::onCallerGone(GDBusConnection*, const char*, gpointer data) {
  static_cast<FitJob*>(data)->callerLeft();
}

void JobQueue::update() {
  size_t running = 0;
  guint place = 0;
  for (const Entry& entry : entries) {
    if (entry.job->isOver()) continue;
    if (!entry.job->isRunning() && running < atATime) entry.job->run(workerFolder);
    if (entry.job->isRunning()) {
      ++running;
    } else {
      entry.job->setQueuePlace(++place);
    }
  }
  changed();
}

void JobQueue::scheduleRemoval() {
  if (removal == 0) removal = g_idle_add(onRemoval, this);
}

gboolean JobQueue::onRemoval(gpointer data) {
  auto* self = static_cast<JobQueue*>(data);
  self->removal = 0;
  self->removeFinished();
  self->update();
  return G_SOURCE_REMOVE;
}

void JobQueue::removeFinished() {
  for (auto entry = entries.begin(); entry != entries.end();) {
    if (!entry->job->isOver()) {
      ++entry;
      continue;
    }
    g_bus_unwatch_name(entry->callerWatch);
    entry = entries.erase(entry);
  }
}
