// A bus in memory behind the API of "vela/vela.h": tests make requests and read what was done.
//
// Thread: all of it may be used from any thread.
// Errors: misuse of a message (a reference dropped twice, a Request that ends while its message is
// still referenced) aborts the test program.
#ifndef TESTS_SUPPORT_FAKE_VELA_H
#define TESTS_SUPPORT_FAKE_VELA_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "vela/vela.h"

namespace fake_vela {

// One request message. It lives as long as this object; reference counting is only recorded.
class Request {
 public:
  explicit Request(const std::string& payload);
  // Nobody may still hold a reference.
  ~Request();
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  VSMessage* message() const { return request; }

  // The references that were taken with VSMessageRef and not dropped yet.
  int references() const;
  // How often VSMessageRef was called on it.
  int referencesEverTaken() const;
  // The payloads of all replies so far. A second reply is recorded, and fails, as on a real bus.
  std::vector<std::string> replies() const;

  // What is done when the last reference goes, in the middle of that. It must not use the bus.
  void whenReleased(std::function<void()> action);

  // Waits until the message was referenced and every reference is dropped again. Returns false
  // when that takes longer.
  bool waitUntilReleased(std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;

 private:
  VSMessage* const request;
};

// One outgoing VSCall.
struct Call {
  VSHandle* handle;
  std::string uri;
  std::string payload;
  VSMethodFunction callback;
  void* data;
};

// A handle outside any registration, for VSCtx and the handlers. Always the same.
VSHandle* handle();

// Forgets calls, operations, registrations, planned failures and what whenCalled() was given.
// Messages are left alone.
void reset();

// Lets the next call of that operation, such as "VSRegisterCategory", fail, with an error record
// of the name "fake.Error". Handlers and messages are not affected.
void failNext(const std::string& operation);

// What is done at each VSCall from now on. It must not use the bus.
void whenCalled(std::function<void()> action);

// The operations on handles since reset(), in order, each with its arguments:
//   "VSRegisterPubPriv com.tarn.transcode private"   "VSRegisterCategory /"
//   "VSCategorySetData /"   "VSGmainAttach"   "VSCall tarn://..."   "VSUnregister"
// A failed one is there too.
std::vector<std::string> operations();

// The successful and failed calls of VSCall since reset().
std::vector<Call> calls();

// What the last registrations of a category handed over; null before.
const VSMethod* methods();
void* categoryData();
GMainLoop* attachedLoop();

// How many error records that told of an error were printed with VSErrorPrint since reset().
int errorsPrinted();

// How many error records that were filled since reset() have not been freed.
int errorsHeld();

}  // namespace fake_vela

#endif
