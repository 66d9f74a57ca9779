// One worker at its work: a process that holds the descriptors it was given and nothing else.
//
// Thread: that of the main context. The process is ended when its object goes.
#ifndef FIT_SERVICE_WORKER_PROCESS_H
#define FIT_SERVICE_WORKER_PROCESS_H

#include <glib.h>

#include <functional>
#include <string>

#include "fit/service/glib_ref.h"
#include "fit/wire/report_lines.h"
#include "fit/wire/request_words.h"

class WorkerProcess {
 public:
  // Both are called from the main context; the object may be deleted in onEnd.
  struct Listener {
    std::function<void(const WorkerReport&)> onReport;
    // Everything that was told is told, and the process is gone.
    std::function<void(const WorkerReport&)> onEnd;
  };

  explicit WorkerProcess(Listener listener);
  ~WorkerProcess();
  WorkerProcess(const WorkerProcess&) = delete;
  WorkerProcess& operator=(const WorkerProcess&) = delete;

  // The kind's program is in `folder`. The descriptors are borrowed; output may be -1. False when
  // it cannot be started; *error says why.
  bool start(const std::string& folder, const WorkerRequest& request, int input, int output,
             std::string* error);
  // Ends it at once; onEnd comes as ever.
  void kill() const;

 private:
  static gboolean onReadable(gint, GIOCondition, gpointer self);
  static void onExit(GPid, gint, gpointer self);
  bool readLines();
  void endWhenDone();

  Listener listener;
  WorkerReport report;
  std::string unfinishedLine;
  Descriptor lines;
  guint readSource = 0;
  guint exitSource = 0;
  GPid process = 0;
};

#endif
