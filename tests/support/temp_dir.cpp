#include "tests/support/temp_dir.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

TempDir::TempDir() : root((fs::temp_directory_path() / "tarn-test-XXXXXX").string()) {
  if (mkdtemp(root.data()) == nullptr) throw std::runtime_error("no temporary folder");
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(root, ignored);
}

std::string TempDir::write(const std::string& name, const std::string& content) const {
  writeFile(*this / name, content);
  return *this / name;
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code gone;
  for (fs::directory_iterator entry(folder, gone); !gone && entry != fs::directory_iterator();
       entry.increment(gone)) {
    names.push_back(entry->path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string readFile(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}
