// A temporary folder of one test, and what tests do with the files in it.
#ifndef TESTS_SUPPORT_TEMP_DIR_H
#define TESTS_SUPPORT_TEMP_DIR_H

#include <string>
#include <vector>

// Removed at the end with everything in it. The constructor throws std::runtime_error when there is
// no room for one.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return root; }
  // The path of something in the folder.
  std::string operator/(const std::string& name) const { return root + "/" + name; }
  // Writes a file into the folder and returns its path.
  std::string write(const std::string& name, const std::string& content) const;

 private:
  std::string root;
};

// The names in a folder, hidden ones too, sorted; none where there is no folder.
std::vector<std::string> namesIn(const std::string& folder);

// The whole content of a file; "" when there is none.
std::string readFile(const std::string& path);

void writeFile(const std::string& path, const std::string& content);

#endif
