#include "platform/vela/handle.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/vela/error_record.h"
#include "platform/vela/exit_registry.h"
#include "platform/vela/introspection.h"
#include "platform/vela/limits.h"
#include "platform/vela/receiver.h"
#include "platform/vela/stop_notice.h"

using vela::fail;

namespace {

// Callers that know the unique name do not see that the well-known one has gone: the handle closes
// when none of them has been heard of for so long.
constexpr std::chrono::milliseconds kSilence{100};

GSourceFuncs gInboxSource = {
    .prepare = nullptr,
    .check = nullptr,
    .dispatch = [](GSource*, GSourceFunc callback, gpointer data) { return callback(data); },
    .finalize = nullptr,
    .closure_callback = nullptr,
    .closure_marshal = nullptr,
};

}  // namespace

VSHandle::VSHandle(const std::string& serviceName, std::shared_ptr<vela::BusLink> busLink)
    : name(serviceName),
      link(std::move(busLink)),
      context(g_main_context_ref_thread_default()),
      openRequests(std::make_shared<vela::OpenRequests>(context.get())),
      inbox(std::make_shared<vela::Inbox>()),
      handover(std::make_shared<vela::Handover>(serviceName, inbox)),
      calls(std::make_shared<vela::PendingCalls>()),
      table(serviceName) {
  receiverId = vela::Receiver::install(link, inbox, handover, calls, openRequests);
  const auto closed = +[](GDBusConnection*, gboolean, GError*, VSHandle* handle) noexcept {
    handle->onConnectionClosed();
  };
  closedSignalId =
      g_signal_connect(link->connection(), "closed", G_CALLBACK(closed), this);  // on context
}

VSHandle* VSHandle::open(const std::string& name, bool publicBus, VSError* error) {
  std::shared_ptr<vela::BusLink> link = vela::BusLink::open(publicBus, error);
  if (link == nullptr) {
    return nullptr;
  }
  // The inbox is there before the name is: the request that started the process is not lost.
  const std::shared_ptr<VSHandle> handle(new VSHandle(name, std::move(link)));
  if (!name.empty() && !handle->link->requestName(name, error)) {
    handle->disconnect();
    return nullptr;
  }
  handle->self = handle;
  vela::finishAtExit(handle);
  return handle.get();
}

bool VSHandle::attach(GMainLoop* loop, VSError* error) {
  if (source != nullptr) {
    return fail(error, vela::kInvalidArgs, "the handle is attached already");
  }
  if (g_main_loop_get_context(loop) != context.get()) {
    return fail(error, vela::kInvalidArgs,
                "the loop's context is not the one the handle was registered under");
  }
  if (link->isClosed()) {
    return fail(error, vela::kDisconnected, "the connection to the bus is lost");
  }
  startDispatch();
  return true;
}

void VSHandle::startDispatch() {
  source.reset(g_source_new(&gInboxSource, sizeof(GSource)));
  g_source_set_name(source.get(), "vela");
  g_source_set_can_recurse(source.get(), TRUE);
  const GSourceFunc dispatch = [](gpointer data) -> gboolean {
    return static_cast<VSHandle*>(data)->dispatchOne();
  };
  g_source_set_callback(source.get(), dispatch, this, nullptr);
  g_source_attach(source.get(), context.get());
  inbox->setSource(source.get());
}

void VSHandle::stopDispatch() {
  if (source != nullptr) {
    inbox->setSource(nullptr);
    g_source_destroy(source.get());
    source.reset();
  }
}

bool VSHandle::dispatchOne() {
  using Kind = vela::Inbox::Item::Kind;
  const std::shared_ptr<VSHandle> keep = shared_from_this();
  const vela::Inbox::Item item = inbox->take();
  switch (item.kind) {
    case Kind::Request:
      runRequest(item.message.get());
      break;
    case Kind::Outcome:
      item.callback.function(this, item.message.get(), item.callback.data);
      break;
    case Kind::Loss:
      if (!unregistering) {
        fprintf(stderr, "vela: the connection to the bus is lost\n");
        exit(EXIT_FAILURE);
      }
      break;
    case Kind::Nothing:
      break;
  }
  return G_SOURCE_CONTINUE;
}

void VSHandle::runRequest(VSMessage* request) {
  running.push(request);
  holdAtDepth();
  serve(*request);
  running.pop();
  holdAtDepth();
}

void VSHandle::holdAtDepth() {
  inbox->hold(running.depth() >= vela::kMaxHandlersDeep);
}

void VSHandle::serve(VSMessage& request) {
  const vela::MethodTable::Target target =
      table.find(request.path(), request.interface(), request.member());
  if (target.method == nullptr) {
    if (!vela::answerStandardCall(table, request)) {
      request.answerError(target.errorName, target.description);
    }
  } else if (!request.hasOneText()) {
    request.answerError(vela::kInvalidArgs, "A method takes exactly one string");
  } else if (!target.method->function(this, &request, target.data)) {
    request.answerError(vela::kUnknownMethod, "The service refused the request");
  }
}

bool VSHandle::call(const vela::Uri& uri, const char* payload, const vela::Callback& callback,
                    VSMessageToken* token, VSError* error) {
  g_autofree char* valid = g_utf8_make_valid(payload, -1);
  if (strlen(valid) > vela::kMaxReplyBytes) {
    return fail(error, vela::kLimitsExceeded, "the payload is too large for the bus");
  }
  g_autoptr(GDBusMessage) message = g_dbus_message_new_method_call(
      uri.service.c_str(), uri.category.c_str(), uri.service.c_str(), uri.method.c_str());
  g_dbus_message_set_body(message, g_variant_new("(s)", valid));
  if (callback.function == nullptr) {
    g_dbus_message_set_flags(message, G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    if (!link->send(message, nullptr, error)) {
      return false;
    }
  } else if (vela::Callback kept = callback; !calls->send(*link, message, kept, error)) {
    return false;
  }
  ++lastToken;
  if (token != nullptr) {
    *token = lastToken;
  }
  return true;
}

void VSHandle::failPendingCalls() {
  for (const vela::Callback& callback : calls->takeAll()) {
    inbox->addOutcome(
        vela::MessageRef(new VSMessage(vela::kDisconnected, "The connection to the bus is closed")),
        callback);
  }
}

void VSHandle::onConnectionClosed() {
  failPendingCalls();
  handover->drop();
  inbox->setLost();
}

bool VSHandle::unregister(VSError* error) {
  if (unregistering.exchange(true)) {
    return fail(error, vela::kFailed, "the handle is being unregistered already");
  }
  const std::shared_ptr<VSHandle> keep = std::move(self);
  for (const vela::MessageRef& below : running.cutOff()) {
    below->stopCounting();  // its handler goes on only when this call has returned
  }
  const bool ended = end({}, error);
  failPendingCalls();
  while (inbox->hasOutcome()) {
    dispatchOne();
  }
  stopDispatch();
  return ended;
}

// Everything received is answered when this returns.
bool VSHandle::end(std::vector<vela::MessageRef> interrupted, VSError* error) {
  holdAtDepth();
  if (source == nullptr) {
    startDispatch();
  }
  const bool released = name.empty() || handOver(error);
  for (vela::MessageRef& request : interrupted) {
    handover->addInterrupted(std::move(request));
  }
  finishReceived();
  const bool lost = link->isClosed();
  disconnect();
  return released && (!lost || fail(error, vela::kDisconnected, "the bus connection was lost"));
}

// Gives the name back. From then on requests are the next process's.
bool VSHandle::handOver(VSError* error) {
  vela::notifyStopping();
  if (!link->releaseName(name, error)) {
    return false;
  }
  for (vela::Inbox::Request& waiting : inbox->close()) {
    handover->add(std::move(waiting.message), waiting.sizeBytes);
  }
  return true;
}

bool VSHandle::isFinished() {
  const auto silence = vela::OpenRequests::Clock::now() - openRequests->lastBeginning();
  return link->isClosed() || (openRequests->none() && (name.empty() || silence >= kSilence));
}

// On a busy machine silence may be that of our own worker thread, which did not come to read.
void VSHandle::finishReceived() {
  openRequests->startSilence();
  do {
    awaitSilence();
    if (!name.empty()) link->awaitBus();
  } while (!isFinished());
}

void VSHandle::awaitSilence() {
  while (!isFinished()) {
    // The end of a request wakes the loop by itself, the end of the silence does not.
    const vela::GlibRef<GSource> alarm(g_timeout_source_new(kSilence.count()));
    const GSourceFunc stop = [](gpointer) -> gboolean { return G_SOURCE_REMOVE; };
    g_source_set_callback(alarm.get(), stop, nullptr, nullptr);
    if (openRequests->none()) {
      g_source_attach(alarm.get(), context.get());
    }
    g_main_context_iteration(context.get(), TRUE);
    g_source_destroy(alarm.get());
  }
}

void VSHandle::finishAtExit() {
  if (name.empty()) {
    link->flush(nullptr);
  } else if (g_main_context_acquire(context.get())) {
    finishOnLoop();
    g_main_context_release(context.get());
  } else {
    finishElsewhere();
  }
  vela::dontFinishAtExit(this);
}

void VSHandle::finishOnLoop() {
  std::vector<vela::MessageRef> cut = running.cutOff();
  if (!cut.empty()) {
    cut.back()->answerError(vela::kNoReply, "The service ended while it handled the request");
    cut.back()->stopCounting();
    cut.pop_back();
  }
  // Already unregistering: a handler that ran meanwhile has called exit(), and the call that was
  // unregistering will never go on.
  unregistering = true;
  end(std::move(cut), nullptr);
}

void VSHandle::finishElsewhere() {
  handover->refuseUndelivered();
  if (!unregistering.exchange(true)) {
    handOver(nullptr);
    for (const vela::MessageRef& cut : running.cutOff()) {
      cut->answerError(vela::kDisconnected, "The service ended while it handled requests");
      cut->stopCounting();
    }
  }
  openRequests->startSilence();
  do {
    while (!isFinished()) {
      openRequests->waitForEnd(kSilence);
    }
    link->awaitBus();
  } while (!isFinished());
  link->close();
}

// The receiver goes last: without it GDBus would answer requests itself, with an error.
void VSHandle::disconnect() {
  if (receiverId == 0) {
    return;
  }
  vela::dontFinishAtExit(this);
  g_signal_handler_disconnect(link->connection(), closedSignalId);
  link->close();
  vela::Receiver::uninstall(*link, std::exchange(receiverId, 0));
  handover->drop();
  inbox->setLost();
}
