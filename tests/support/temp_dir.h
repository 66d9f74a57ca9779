// A temporary directory of one test, removed with everything in it.
#ifndef TESTS_SUPPORT_TEMP_DIR_H
#define TESTS_SUPPORT_TEMP_DIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

class TempDir {
 public:
  TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "tarn-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    root = name;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return root; }
  // The path of something in the directory.
  std::string operator/(const std::string& name) const { return root + "/" + name; }

  // Writes a file into the directory and returns its path.
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(*this / name, std::ios::binary) << content;
    return *this / name;
  }

 private:
  std::string root;
};

// The whole content of a file; "" when there is none.
inline std::string readFile(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

#endif
