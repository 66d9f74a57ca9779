// A reply of the service, read.
#ifndef CLIENT_SERVICE_SERVICE_REPLY_H
#define CLIENT_SERVICE_SERVICE_REPLY_H

#include <string>

#include "dsjson/dsjson.h"

struct ServiceReply {
  bool succeeded = false;
  std::string errorText;    // trimmed; "" when the service gave no reason
  std::string errorDetail;  // trimmed
  dsjson::JValue members;   // null when the reply was no JSON
};

// Reads the payload of a reply. What is no JSON reads as a failure without a reason.
ServiceReply parseServiceReply(const std::string& payload);

// The JSON text of a request.
std::string requestText(const dsjson::JValue& request);

#endif
