// Filling the caller's error record.
//
// Errors: a record is written on failure only and may come uninitialised, so what it held before is
// never read and never released here. A null record is allowed everywhere.
#ifndef PLATFORM_VELA_ERROR_RECORD_H
#define PLATFORM_VELA_ERROR_RECORD_H

#include <gio/gio.h>

#include <string>

#include "vela/vela.h"

namespace vela {

constexpr char kDisconnected[] = "org.freedesktop.DBus.Error.Disconnected";
constexpr char kFailed[] = "org.freedesktop.DBus.Error.Failed";
constexpr char kInvalidArgs[] = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr char kLimitsExceeded[] = "org.freedesktop.DBus.Error.LimitsExceeded";
constexpr char kNoReply[] = "org.freedesktop.DBus.Error.NoReply";
constexpr char kUnknownInterface[] = "org.freedesktop.DBus.Error.UnknownInterface";
constexpr char kUnknownMethod[] = "org.freedesktop.DBus.Error.UnknownMethod";
constexpr char kUnknownObject[] = "org.freedesktop.DBus.Error.UnknownObject";

// Fills the record. Returns false, for `return fail(...)`.
bool fail(VSError* error, const char* name, const std::string& message);

// The same from a GLib error: a peer's error keeps its name, a closed connection is Disconnected,
// all else gets fallbackName.
bool fail(VSError* error, const GError* cause, const char* fallbackName);

}  // namespace vela

#endif
