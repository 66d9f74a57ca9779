// Those of GStreamer's own plug-ins that photos need, wherever this machine has them.
#ifndef PACKAGING_MACHINE_PLUGINS_H
#define PACKAGING_MACHINE_PLUGINS_H

#include <string>
#include <vector>

struct MachinePlugin {
  std::string library;  // the file's name
  std::string path;     // "" where the machine has none
};

// Looks where GST_PLUGIN_SYSTEM_PATH_1_0 says, then where the GStreamer that this was built with
// has its plug-ins, then in the usual folders.
std::vector<MachinePlugin> findMachinePlugins();

// Makes the folder, whose parent exists, hold a link to each that was found, and none to the
// others. Several processes may do so at once. Returns false when it does not hold them and cannot
// be written.
bool linkPlugins(const std::string& folder, const std::vector<MachinePlugin>& plugins);

#endif
