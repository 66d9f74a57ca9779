#include "packaging/machine_plugins.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr const char* kLibraries[] = {"libgstcoreelements.so", "libgstjpeg.so",
                                      "libgstvideocrop.so"};

// Absolute folders, in the order in which they are looked at.
std::vector<std::string> machineFolders() {
  const char* told = getenv("GST_PLUGIN_SYSTEM_PATH_1_0");
  std::string list = told != nullptr ? told : "";
  list += ":" GST_PLUGINS_DIR ":/usr/lib64/gstreamer-" GSTREAMER_API
          ":/usr/lib/gstreamer-" GSTREAMER_API ":";
  std::vector<std::string> folders;
  for (size_t begin = 0, end; (end = list.find(':', begin)) != std::string::npos; begin = end + 1) {
    if (list[begin] == '/') folders.push_back(list.substr(begin, end - begin));
  }
  return folders;
}

bool leadsTo(const std::string& link, const std::string& path) {
  char target[PATH_MAX];
  const ssize_t length = readlink(link.c_str(), target, sizeof(target));
  return length >= 0 &&
         path.compare(0, std::string::npos, target, static_cast<size_t>(length)) == 0;
}

// Whoever looks meanwhile sees the old link or the new one.
bool replaceLink(const std::string& link, const std::string& path) {
  const std::string made = link + "." + std::to_string(getpid());
  unlink(made.c_str());
  if (symlink(path.c_str(), made.c_str()) != 0) return false;
  if (rename(made.c_str(), link.c_str()) == 0) return true;
  unlink(made.c_str());
  return false;
}

}  // namespace

std::vector<MachinePlugin> findMachinePlugins() {
  const std::vector<std::string> folders = machineFolders();
  std::vector<MachinePlugin> plugins;
  for (const char* library : kLibraries) {
    MachinePlugin plugin = {library, ""};
    for (size_t i = 0; i < folders.size() && plugin.path.empty(); ++i) {
      const std::string path = folders[i] + "/" + library;
      if (access(path.c_str(), R_OK) == 0) plugin.path = path;
    }
    plugins.push_back(plugin);
  }
  return plugins;
}

bool linkPlugins(const std::string& folder, const std::vector<MachinePlugin>& plugins) {
  mkdir(folder.c_str(), 0700);
  bool whole = access(folder.c_str(), X_OK) == 0;
  for (const MachinePlugin& plugin : plugins) {
    const std::string link = folder + "/" + plugin.library;
    if (plugin.path.empty()) {
      unlink(link.c_str());
    } else if (!leadsTo(link, plugin.path)) {
      whole = whole && replaceLink(link, plugin.path);
    }
  }
  return whole;
}
