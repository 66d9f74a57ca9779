// Calls a method of the transcoding service and waits for what comes of it.
//
// Thread: one; the call runs the default main context while it waits.
#ifndef CLIENT_SERVICE_SERVICE_CALL_H
#define CLIENT_SERVICE_SERVICE_CALL_H

#include <functional>
#include <string>

#include "dsjson/dsjson.h"

struct Answer {
  enum Kind {
    Replied,    // the service replied; `payload` is its JSON
    Silent,     // the service ended the request without a reply: it could not read the file
    Died,       // the service ended under the request
    NoService,  // there is no bus, or no such service on it
    BusError,   // the bus or the service refused the message
    GivenUp,    // the caller waited no longer
  };
  Kind kind;
  std::string payload;    // Replied: the reply's text
  std::string errorText;  // all other kinds: what happened, in plain words
};

// Called a few times a second while a reply is awaited. False ends the wait.
using WhileWaiting = std::function<bool()>;

// Sends one request and waits for its end, however long it takes.
Answer callService(const std::string& method, const std::string& payload,
                   const WhileWaiting& whileWaiting = nullptr);

// The same, asking once more when the service died: it may have died of somebody else's request.
// For requests that may be run twice. `onRetry` is called before the second one.
Answer callServiceAgain(const std::string& method, const std::string& payload,
                        const WhileWaiting& whileWaiting = nullptr,
                        const std::function<void()>& onRetry = nullptr);

// What to say then.
inline constexpr char kAskedAgain[] =
    "the service ended while it worked on the request: asked once more";

// What is said where the bus knows no service of that name, and where there is no bus.
std::string notInstalledWords(const std::string& service);
std::string noBusWords(const std::string& reason);

#endif
