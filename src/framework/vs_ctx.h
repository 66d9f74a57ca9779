// VSCtx is one bus request: its parameters in, its one reply out.
//
// Thread: one at a time; a reply may be sent from any thread.
// Owns: one reference to the message.
#ifndef SRC_FRAMEWORK_VS_CTX_H
#define SRC_FRAMEWORK_VS_CTX_H

#include <string>

#include "dsjson/dsjson.h"
#include "vela/vela.h"

// Accepts any JSON.
extern const dsjson::JSchema emptySchema;

// The reply of a success without data.
extern const char* const syssnd_string_success;

class VSCtx {
 public:
  // Takes a reference to the message, which may be null.
  VSCtx(VSHandle* handle, VSMessage* message);
  ~VSCtx();
  VSCtx(const VSCtx&) = delete;
  VSCtx& operator=(const VSCtx&) = delete;

  // Sets the "errorText" of the failure reply, in place of an earlier one.
  void setLastErrorMessage(const char* text);
  // Sets the "errorDetail" of the failure reply, in place of an earlier one.
  void setLastErrorDetail(const char* text);

  // Parses the payload into out. On malformed JSON sets the error message, leaves out alone and
  // returns false; sends nothing.
  bool parseVSParameters(dsjson::JValue& out);

  // Each of these replies; the callers see to it that a request gets one reply. That a reply could
  // not be sent is nobody's concern: the caller is gone.
  void reply(const char* payload);
  void reply(const dsjson::JValue& value);
  void replySuccess();
  // "returnValue" false, with the error texts that are set.
  void replyFail();

 private:
  VSHandle* handle;
  VSMessage* message;
  std::string lastErrorMessage;
  std::string lastErrorDetail;
};

#endif
