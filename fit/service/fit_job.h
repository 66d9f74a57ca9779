// One photo or movie on its way: the bus object of com.tarn.Fit1.Job and the worker behind it.
//
// Only its caller hears of it and may speak to it. It tells its end once, and does nothing more.
// Thread: that of the main context.
#ifndef FIT_SERVICE_FIT_JOB_H
#define FIT_SERVICE_FIT_JOB_H

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>

#include "fit/service/fit_options.h"
#include "fit/service/glib_ref.h"
#include "fit/service/worker_process.h"

class FitJob {
 public:
  struct Files {
    Descriptor input;
    Descriptor output;
  };

  // The connection is borrowed. `ended` is called once, when the end is told; the job may be
  // deleted then, though not from within. `invocation` is replied to at the end where the caller
  // waits.
  FitJob(GDBusConnection* connection, std::string caller, FitOptions options, Files files,
         std::function<void(FitJob*)> ended);
  ~FitJob();
  FitJob(const FitJob&) = delete;
  FitJob& operator=(const FitJob&) = delete;

  // Puts it on the bus under that path. False when the path is taken.
  bool appear(const std::string& path, std::string* error);
  // Who waits for the end gets the reply then; takes the invocation.
  void replyAtEnd(GDBusMethodInvocation* invocation) { waiting = invocation; }

  const std::string& caller() const { return callerName; }
  const std::string& path() const { return objectPath; }
  bool isRunning() const { return worker != nullptr; }
  bool isOver() const { return over; }

  void setQueuePlace(guint place);
  void run(const std::string& workerFolder);
  // Nobody is told any more when the caller has gone.
  void cancel();
  void callerLeft();

 private:
  static void onCall(GDBusConnection*, const char* sender, const char*, const char*, const char*,
                     GVariant*, GDBusMethodInvocation* invocation, gpointer self);
  static GVariant* onGet(GDBusConnection*, const char* sender, const char*, const char*,
                         const char* property, GError** error, gpointer self);
  static gboolean onTimeOver(gpointer self);
  static gboolean onTick(gpointer self);
  GVariant* property(const std::string& name) const;
  void tellChanged(std::initializer_list<const char*> names);
  void takeReport(const WorkerReport& report);
  void advanceTo(double share);
  double reckonedProgress() const;
  double secondsLeft() const;
  void workerEnded(const WorkerReport& report);
  bool isAsTold(const ReportedNumbers& numbers) const;
  void succeed(const ReportedNumbers& numbers);
  void fail(const FitFailure& failure);
  void end(bool success, GVariant* result, const FitFailure& failure);
  bool isMovie() const { return options.request.kind == MediaKind::Movie; }
  double elapsed() const;

  GDBusConnection* const connection;
  const std::string callerName;
  const FitOptions options;
  Files files;
  const std::function<void(FitJob*)> ended;
  GDBusMethodInvocation* waiting = nullptr;
  std::string objectPath;
  guint registration = 0;
  std::unique_ptr<WorkerProcess> worker;
  guint timeSource = 0;
  guint tickSource = 0;
  gint64 startUs = 0;
  gint64 toldUs = 0;
  guint queuePlace = 0;
  double reported = 0;       // of the work, by the worker
  double likelySeconds = 0;  // that the job takes, by its last report; 0: too early to tell
  double progress = 0;       // that was told last
  bool isCancelled = false;
  bool isTimeOver = false;
  bool over = false;
};

#endif
