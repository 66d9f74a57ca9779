// The interfaces that every D-Bus object has: Introspectable and Peer.
//
// Thread: the loop's.
#ifndef PLATFORM_VELA_INTROSPECTION_H
#define PLATFORM_VELA_INTROSPECTION_H

#include "platform/vela/message.h"
#include "platform/vela/method_table.h"

namespace vela {

// Answers a call of Introspect, Ping or GetMachineId. False, with nothing done, when the call is
// for something else. A call that names no interface is a call by member name.
// Peer answers on every path; Introspect on "/", categories and the paths above them.
bool answerStandardCall(const MethodTable& table, VSMessage& request);

}  // namespace vela

#endif
