#include "platform/vela/handle.h"

#include <algorithm>
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

constexpr guint kLingerMs = 100;

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
      calls(std::make_shared<vela::PendingCalls>()),
      table(serviceName) {
  receiverId = vela::Receiver::install(link, inbox, calls, openRequests);
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
  running.push_back(request);
  holdAtDepth();
  serve(*request);
  running.pop_back();
  // A handler that unregistered has returned: nothing is below any more.
  depthBase = std::min(depthBase, running.size());
  holdAtDepth();
}

void VSHandle::holdAtDepth() {
  inbox->hold(running.size() - depthBase >= vela::kMaxHandlersDeep);
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
  } else if (!calls->send(*link, message, callback, error)) {
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
    inbox->addOutcome(vela::MessageRef(new VSMessage(vela::kDisconnected)), callback);
  }
}

void VSHandle::onConnectionClosed() {
  failPendingCalls();
  inbox->setLost();
}

bool VSHandle::unregister(VSError* error) {
  if (unregistering) {
    return fail(error, vela::kFailed, "the handle is being unregistered already");
  }
  const std::shared_ptr<VSHandle> keep = std::move(self);
  unregistering = true;
  depthBase = running.size();
  for (VSMessage* below : running) {
    below->stopCounting();  // its handler goes on only when this call has returned
  }
  holdAtDepth();
  if (source == nullptr) {
    startDispatch();
  }
  bool released = true;
  if (!name.empty()) {
    vela::notifyStopping();
    released = link->releaseName(name, error);
    answerAllReceived();
    linger();
  }
  answerAllReceived();
  const bool lost = link->isClosed();
  disconnect();
  return released && (!lost || fail(error, vela::kDisconnected, "the bus connection was lost"));
}

void VSHandle::finishAtExit() {
  if (!g_main_context_is_owner(context.get()) || running.size() == depthBase) {
    link->flush(nullptr);
    vela::dontFinishAtExit(this);
    return;
  }
  while (running.size() > depthBase) {
    VSMessage* cut = running[depthBase++];
    if (depthBase == running.size()) {
      cut->answerError(vela::kNoReply, "The service ended while it handled the request");
    } else {
      cut->answerError(vela::kDisconnected, "The service ended while it handled another request");
    }
    cut->stopCounting();
  }
  if (!unregistering) {
    unregister(nullptr);
    return;
  }
  holdAtDepth();
  answerAllReceived();
  disconnect();
}

void VSHandle::answerAllReceived() {
  while (!openRequests->none() && !link->isClosed()) {
    g_main_context_iteration(context.get(), TRUE);
  }
}

// Callers that know the unique name do not see that the well-known one has gone.
void VSHandle::linger() {
  bool over = false;
  const vela::GlibRef<GSource> timeout(g_timeout_source_new(kLingerMs));
  const GSourceFunc end = [](gpointer data) -> gboolean {
    *static_cast<bool*>(data) = true;
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(timeout.get(), end, &over, nullptr);
  g_source_attach(timeout.get(), context.get());
  while (!over && !link->isClosed()) {
    g_main_context_iteration(context.get(), TRUE);
  }
  g_source_destroy(timeout.get());
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
  failPendingCalls();
  inbox->setLost();
  while (inbox->hasOutcome()) {
    dispatchOne();
  }
  stopDispatch();
}
