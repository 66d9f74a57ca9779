// The Vela service bus: register a service, answer calls, make calls.
//
// On the device this is the device's own library; here it stands on D-Bus:
//   service name        the well-known name
//   category            the object path ("/" is "/")
//   method(payload)     method of the interface named like the service, (s payload) -> (s reply)
//   tarn://SERVICE/CATEGORY/METHOD   destination SERVICE, path /CATEGORY, member METHOD
//
// Payloads are texts, by convention one JSON object each; the bus never looks inside.
//
// Thread: VSMessageReply, VSMessageRef, VSMessageUnref and VSMessageGetPayload may be called from
// any thread; all else from the thread that runs the attached main loop.
// Errors: an operation that can fail returns false and fills the error record, which may come
// uninitialised and is left untouched on success. A null record is allowed.
#ifndef VELA_VELA_H
#define VELA_VELA_H

#include <glib.h>
#include <stdbool.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VELA_EXPORT __attribute__((visibility("default")))

// One connection to the bus, with or without a service name.
typedef struct VSHandle VSHandle;
// One request or one reply, reference-counted.
typedef struct VSMessage VSMessage;
// Identifies one outgoing call of a handle; never 0.
typedef unsigned long VSMessageToken;

// Why an operation failed.
typedef struct VSError {
  int code;       // 0 when no error is recorded
  char* name;     // the D-Bus error name, owned by the record
  char* message;  // for people, owned by the record
} VSError;

// Handles one request, or one reply of VSCall. The message is borrowed: keep it with VSMessageRef.
// A handler's result says whether it took the message; false answers a request with an error.
typedef bool (*VSMethodFunction)(VSHandle* handle, VSMessage* message, void* data);

// A row of a method table; the table ends with an all-zero row and outlives the handle.
typedef struct VSMethod {
  const char* name;
  VSMethodFunction function;
  int flags;  // 0
} VSMethod;

typedef struct VSSignal VSSignal;      // unused; pass NULL
typedef struct VSProperty VSProperty;  // unused; pass NULL

// Makes the record empty.
VELA_EXPORT void VSErrorInit(VSError* error);
// Writes "name: message" and a line end; prints nothing for an empty record.
VELA_EXPORT void VSErrorPrint(const VSError* error, FILE* stream);
// Releases what the record holds and makes it empty.
VELA_EXPORT void VSErrorFree(VSError* error);

// Connects to the user's bus and takes the name; a null name makes a client handle. Requests that
// arrive from here on are kept until VSGmainAttach. On success *handle is the new handle, released
// by VSUnregister; on failure *handle is NULL. The name being taken already is a failure.
// publicBus asks for the system bus instead.
VELA_EXPORT bool VSRegisterPubPriv(const char* name, VSHandle** handle, bool publicBus,
                                   VSError* error);

// Publishes the methods in the category. The table is borrowed.
VELA_EXPORT bool VSRegisterCategory(VSHandle* handle, const char* category, const VSMethod* methods,
                                    const VSSignal* signals, const VSProperty* properties,
                                    VSError* error);
// Sets the data pointer that the category's handlers are given.
VELA_EXPORT bool VSCategorySetData(VSHandle* handle, const char* category, void* data,
                                   VSError* error);

// Hands requests and replies out on the loop's context from now on, one a dispatch. Dispatch is
// re-entrant: a handler that runs a nested loop on the context lets further requests in, at most 8
// handlers deep; what comes beyond waits in order. When the bus connection is lost the process
// ends with EXIT_FAILURE, from the loop.
VELA_EXPORT bool VSGmainAttach(VSHandle* handle, GMainLoop* loop, VSError* error);

// Gives the name back, sees everything received to its end, and closes. What has begun is waited
// for; what has not is handed over to the service's next process, which the bus starts if it can:
// its replies are relayed. Where the bus delivers to nobody, the handlers run here. Returns when
// all is answered and nobody has called the unique name for 100 ms. Messages still referenced by a
// handler below this call on the stack are not waited for. The handle is released either way.
//
// A process that ends by exit() without this, on any thread, does the same first. The request whose
// handler called exit() gets NoReply; those that it interrupted are handed over too. When exit()
// was called on another thread than the loop's, every request with a handler on the stack gets
// Disconnected.
VELA_EXPORT bool VSUnregister(VSHandle* handle, VSError* error);

// Calls a method of another service. Never waits: the reply, or the failure of the call, goes to
// the callback on the attached context; a null callback drops it. On success *token (which may be
// null) names the call. Fails only when the URI is malformed or the bus is gone.
VELA_EXPORT bool VSCall(VSHandle* handle, const char* uri, const char* payload,
                        VSMethodFunction callback, void* data, VSMessageToken* token,
                        VSError* error);

VELA_EXPORT void VSMessageRef(VSMessage* message);
// Drops a reference. A request whose last reference goes without a reply is answered with the bus
// error org.freedesktop.DBus.Error.NoReply, so that its caller does not hang.
VELA_EXPORT void VSMessageUnref(VSMessage* message);
// The payload of a request or reply, valid as long as the message; "" for a failed call.
VELA_EXPORT const char* VSMessageGetPayload(VSMessage* message);
// The D-Bus error name when the message is a failed call, else NULL. Valid as long as the message.
VELA_EXPORT const char* VSMessageGetErrorName(VSMessage* message);
// What the error of a failed call says, for people; "" where it says nothing, NULL when the message
// is no failed call. Valid as long as the message.
VELA_EXPORT const char* VSMessageGetErrorMessage(VSMessage* message);
// The unique bus name of who sent the message, which is the service's last process for a request
// that was handed over, "org.freedesktop.DBus" for the bus itself; "" for a
// call that failed before it reached the bus. Valid as long as the message.
VELA_EXPORT const char* VSMessageGetSender(VSMessage* message);
// Answers a request, once: a second reply to the same message fails. What is not UTF-8 in the
// payload goes out as U+FFFD. The reply has left the process when the call returns.
VELA_EXPORT bool VSMessageReply(VSHandle* handle, VSMessage* message, const char* payload,
                                VSError* error);

#ifdef __cplusplus
}
#endif

#endif
