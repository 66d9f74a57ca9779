// The words of one client command: positional ones, and options with their values.
#ifndef CLIENT_COMMANDS_ARGUMENTS_H
#define CLIENT_COMMANDS_ARGUMENTS_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

class Arguments {
 public:
  // Splits the words behind a command's name. `valued` are the options that take a value
  // ("--size 300k" or "--size=300k"), `flags` those that take none; "--" ends the options. On a
  // word that is neither, errorText() says what is wrong.
  Arguments(const std::vector<std::string>& words, const std::set<std::string>& valued,
            const std::set<std::string>& flags);

  const std::vector<std::string>& positional() const { return words; }
  std::optional<std::string> value(const std::string& option) const;
  bool has(const std::string& option) const { return options.count(option) != 0; }
  const std::string& errorText() const { return error; }

 private:
  std::vector<std::string> words;
  std::map<std::string, std::string> options;
  std::string error;
};

#endif
