// All jobs, in the order they came: so many at a time run, the others wait and know their place.
//
// Thread: that of the main context.
#ifndef FIT_SERVICE_JOB_QUEUE_H
#define FIT_SERVICE_JOB_QUEUE_H

#include <functional>
#include <list>
#include <memory>
#include <string>

#include "fit/service/fit_job.h"

class JobQueue {
 public:
  // More of one caller, or of all, are refused: each holds two descriptors.
  static constexpr size_t kMostOfOneCaller = 64;
  static constexpr size_t kMost = 1024;

  // `changed` is called when jobs came, began or went.
  JobQueue(GDBusConnection* connection, std::string workerFolder, size_t atATime,
           std::function<void()> changed);
  ~JobQueue();
  JobQueue(const JobQueue&) = delete;
  JobQueue& operator=(const JobQueue&) = delete;

  bool isEmpty() const { return entries.empty(); }
  // Whether another job of that caller's is too many.
  bool isFull(const std::string& caller) const;
  // Takes the job and watches its caller. It begins when update() is called next.
  void add(std::unique_ptr<FitJob> job);
  // Begins what may begin.
  void update();
  // To be called at a job's end; it is deleted a little later.
  void scheduleRemoval();

 private:
  struct Entry {
    std::unique_ptr<FitJob> job;
    guint callerWatch = 0;
  };

  static void onCallerGone(GDBusConnection*, const char* name, gpointer job);
  static gboolean onRemoval(gpointer self);
  void removeFinished();

  GDBusConnection* const connection;
  const std::string workerFolder;
  const size_t atATime;
  const std::function<void()> changed;
  std::list<Entry> entries;
  guint removal = 0;
};

#endif
