#include "tests/support/fake_vela.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>

struct VSHandle {
  std::string name;
};

struct VSMessage {
  explicit VSMessage(const std::string& text) : payload(text) {}

  std::string payload;
  int references = 0;
  int referencesEverTaken = 0;
  std::vector<std::string> replies;
  std::function<void()> whenReleased;
};

namespace {

struct Bus {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> operations;
  std::vector<std::string> failures;
  std::vector<fake_vela::Call> calls;
  const VSMethod* methods = nullptr;
  void* categoryData = nullptr;
  GMainLoop* loop = nullptr;
  int errorsPrinted = 0;
  int errorsHeld = 0;
  std::function<void()> whenCalled;
};

// Never destroyed: a detached thread may still drop a reference while the process ends.
Bus& bus() {
  static Bus* theBus = new Bus;
  return *theBus;
}

using Lock = std::unique_lock<std::mutex>;

[[noreturn]] void misuse(const char* what) {
  fprintf(stderr, "fake_vela: %s\n", what);
  abort();
}

void fillError(VSError* error) {
  if (error == nullptr) return;
  bus().errorsHeld++;
  error->code = 1;
  error->name = strdup("fake.Error");
  error->message = strdup("as the test wished");
}

// Records the operation and returns whether it is to succeed. The bus is locked.
bool record(const std::string& operation, const std::string& arguments, VSError* error) {
  bus().operations.push_back(arguments.empty() ? operation : operation + " " + arguments);
  const auto planned = std::find(bus().failures.begin(), bus().failures.end(), operation);
  if (planned == bus().failures.end()) return true;
  bus().failures.erase(planned);
  fillError(error);
  return false;
}

}  // namespace

void VSErrorInit(VSError* error) {
  *error = VSError{};
}

void VSErrorPrint(const VSError* error, FILE* stream) {
  const Lock lock(bus().mutex);
  if (error->code == 0) return;
  bus().errorsPrinted++;
  fprintf(stream, "%s: %s\n", error->name, error->message);
}

void VSErrorFree(VSError* error) {
  const Lock lock(bus().mutex);
  if (error->code != 0) bus().errorsHeld--;
  free(error->name);
  free(error->message);
  *error = VSError{};
}

bool VSRegisterPubPriv(const char* name, VSHandle** handle, bool publicBus, VSError* error) {
  const Lock lock(bus().mutex);
  *handle = nullptr;
  const std::string arguments = name == nullptr ? "client" : name;
  if (!record("VSRegisterPubPriv", arguments + (publicBus ? " public" : " private"), error)) {
    return false;
  }
  *handle = new VSHandle{arguments};
  return true;
}

bool VSRegisterCategory(VSHandle*, const char* category, const VSMethod* methods, const VSSignal*,
                        const VSProperty*, VSError* error) {
  const Lock lock(bus().mutex);
  if (!record("VSRegisterCategory", category, error)) return false;
  bus().methods = methods;
  return true;
}

bool VSCategorySetData(VSHandle*, const char* category, void* data, VSError* error) {
  const Lock lock(bus().mutex);
  if (!record("VSCategorySetData", category, error)) return false;
  bus().categoryData = data;
  return true;
}

bool VSGmainAttach(VSHandle*, GMainLoop* loop, VSError* error) {
  const Lock lock(bus().mutex);
  if (!record("VSGmainAttach", "", error)) return false;
  bus().loop = loop;
  return true;
}

bool VSUnregister(VSHandle* handle, VSError* error) {
  const Lock lock(bus().mutex);
  if (handle == nullptr) misuse("VSUnregister of a null handle");
  if (handle != fake_vela::handle()) delete handle;
  return record("VSUnregister", "", error);
}

bool VSCall(VSHandle* handle, const char* uri, const char* payload, VSMethodFunction callback,
            void* data, VSMessageToken* token, VSError* error) {
  const Lock lock(bus().mutex);
  bus().calls.push_back({handle, uri, payload, callback, data});
  if (bus().whenCalled) bus().whenCalled();
  if (!record("VSCall", uri, error)) return false;
  if (token != nullptr) *token = bus().calls.size();
  return true;
}

void VSMessageRef(VSMessage* message) {
  const Lock lock(bus().mutex);
  message->references++;
  message->referencesEverTaken++;
}

void VSMessageUnref(VSMessage* message) {
  const Lock lock(bus().mutex);
  if (message->references == 0) misuse("a message was dropped more often than taken");
  message->references--;
  if (message->references == 0 && message->whenReleased) message->whenReleased();
  bus().changed.notify_all();
}

const char* VSMessageGetPayload(VSMessage* message) {
  return message == nullptr ? "" : message->payload.c_str();
}

const char* VSMessageGetErrorName(VSMessage*) {
  return nullptr;
}

bool VSMessageReply(VSHandle*, VSMessage* message, const char* payload, VSError* error) {
  const Lock lock(bus().mutex);
  if (message == nullptr) {
    bus().operations.emplace_back("VSMessageReply to nobody");
    fillError(error);
    return false;
  }
  message->replies.emplace_back(payload);
  if (message->replies.size() > 1) fillError(error);
  return message->replies.size() == 1;
}

namespace fake_vela {

Request::Request(const std::string& payload) : request(new VSMessage(payload)) {}

Request::~Request() {
  if (references() != 0) misuse("a request ended while its message was still referenced");
  delete request;
}

int Request::references() const {
  const Lock lock(bus().mutex);
  return request->references;
}

int Request::referencesEverTaken() const {
  const Lock lock(bus().mutex);
  return request->referencesEverTaken;
}

std::vector<std::string> Request::replies() const {
  const Lock lock(bus().mutex);
  return request->replies;
}

void Request::whenReleased(std::function<void()> action) {
  const Lock lock(bus().mutex);
  request->whenReleased = std::move(action);
}

bool Request::waitUntilReleased(std::chrono::milliseconds timeout) const {
  Lock lock(bus().mutex);
  return bus().changed.wait_for(lock, timeout, [this] {
    return request->referencesEverTaken > 0 && request->references == 0;
  });
}

VSHandle* handle() {
  static VSHandle* const theHandle = new VSHandle{"fake"};
  return theHandle;
}

void reset() {
  const Lock lock(bus().mutex);
  bus().operations.clear();
  bus().failures.clear();
  bus().calls.clear();
  bus().methods = nullptr;
  bus().categoryData = nullptr;
  bus().loop = nullptr;
  bus().errorsPrinted = 0;
  bus().errorsHeld = 0;
  bus().whenCalled = nullptr;
}

void failNext(const std::string& operation) {
  const Lock lock(bus().mutex);
  bus().failures.push_back(operation);
}

void whenCalled(std::function<void()> action) {
  const Lock lock(bus().mutex);
  bus().whenCalled = std::move(action);
}

std::vector<std::string> operations() {
  const Lock lock(bus().mutex);
  return bus().operations;
}

std::vector<Call> calls() {
  const Lock lock(bus().mutex);
  return bus().calls;
}

const VSMethod* methods() {
  const Lock lock(bus().mutex);
  return bus().methods;
}

void* categoryData() {
  const Lock lock(bus().mutex);
  return bus().categoryData;
}

GMainLoop* attachedLoop() {
  const Lock lock(bus().mutex);
  return bus().loop;
}

int errorsPrinted() {
  const Lock lock(bus().mutex);
  return bus().errorsPrinted;
}

int errorsHeld() {
  const Lock lock(bus().mutex);
  return bus().errorsHeld;
}

}  // namespace fake_vela
