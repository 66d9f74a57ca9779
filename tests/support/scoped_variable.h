// An environment variable of this process, set while this lives.
#ifndef TESTS_SUPPORT_SCOPED_VARIABLE_H
#define TESTS_SUPPORT_SCOPED_VARIABLE_H

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

class ScopedVariable {
 public:
  ScopedVariable(std::string variableName, const std::string& value)
      : name(std::move(variableName)) {
    if (const char* before = getenv(name.c_str()); before != nullptr) earlier = before;
    setenv(name.c_str(), value.c_str(), 1);
  }
  ~ScopedVariable() {
    if (earlier) {
      setenv(name.c_str(), earlier->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  std::string name;
  std::optional<std::string> earlier;
};

#endif
