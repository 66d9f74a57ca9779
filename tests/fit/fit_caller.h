// A program that has photos and movies made to fit, over a connection of its own.
//
// Thread: one at a time; waiting runs the connection's own main context.
#ifndef TESTS_FIT_FIT_CALLER_H
#define TESTS_FIT_FIT_CALLER_H

#include <gio/gio.h>

#include <map>
#include <string>
#include <vector>

constexpr char kName[] = "com.tarn.Fit1";
constexpr char kPath[] = "/com/tarn/Fit1";
constexpr char kError[] = "com.tarn.Fit1.Error.";  // the errors' names go on with their own
constexpr char kJob[] = "com.tarn.Fit1.Job";

struct CallOutcome {
  bool ok = false;
  std::string path;       // of the job
  std::string errorName;  // of a bus error
  std::string errorMessage;
};

struct JobEnd {
  bool success = false;
  std::map<std::string, double> numbers;
  std::string error;
  std::string message;
};

class FitCaller {
 public:
  explicit FitCaller(const std::string& busAddress);
  ~FitCaller();
  FitCaller(const FitCaller&) = delete;
  FitCaller& operator=(const FitCaller&) = delete;

  // FitImage unless told.
  void setMethod(const std::string& name) { fitMethod = name; }
  // Calls it with the two files opened for it; `options` is GVariant text, such as
  // "{'wait': <true>}".
  CallOutcome fit(const std::string& input, const std::string& output, uint64_t maxBytes,
                  const std::string& options = "{}");
  // The same with descriptors; -1 sends none.
  CallOutcome fitDescriptors(int input, int output, uint64_t maxBytes, const std::string& options);
  // Calls a method with one descriptor, or none; the reply as text, or the error's name.
  std::string call(const std::string& path, const std::string& interface, const std::string& method,
                   GVariant* arguments, int descriptor = -1);

  std::string pathOf(const std::string& token) const;
  // Waits for the job's Completed. False when none came within 30 s.
  bool awaitEnd(const std::string& path, JobEnd* end);
  // The same; false also as soon as the service has lost its name.
  bool awaitEndOrOwnerChange(const std::string& path, JobEnd* end);
  // Waits until one of the job's properties was told to be that, as text. False after 30 s.
  bool awaitProperty(const std::string& path, const std::string& name, const std::string& value);
  // How many Completed came, of whatever job.
  size_t endCount() const { return ends.size(); }
  // What was told of a property, in order.
  std::vector<double> toldOf(const std::string& path, const std::string& name) const;
  void sync();

  GDBusConnection* raw() const { return connection; }

 private:
  struct Change {
    std::string path;
    std::string name;
    std::string text;
    double number;
  };

  static void onSignal(GDBusConnection*, const char*, const char* path, const char*,
                       const char* name, GVariant* arguments, gpointer self);
  template <typename Condition>
  bool runUntil(const Condition& condition);
  CallOutcome send(GVariant* arguments, const std::string& path, const std::string& interface,
                   const std::string& method, const std::vector<int>& descriptors,
                   std::string* reply);

  std::string fitMethod = "FitImage";
  GMainContext* context;
  GDBusConnection* connection;
  std::multimap<std::string, JobEnd> ends;
  std::vector<Change> changes;
  bool ownerLost = false;
};

#endif
