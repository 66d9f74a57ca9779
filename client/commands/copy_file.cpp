#include "client/commands/copy_file.h"

#include <filesystem>

namespace fs = std::filesystem;

bool copyAsItIs(const FileTask& task, StagedOutput* output, Outcome* outcome) {
  std::error_code code;
  std::error_code unknown;
  fs::copy_file(task.in, output->temporaryPath(), fs::copy_options::overwrite_existing, code);
  if (code && !output->hasRoomFor(fs::file_size(task.in, unknown))) return outcome->failForSpace();
  if (code) return outcome->fail("cannot copy " + task.in + ": " + code.message());
  return output->commit() || outcome->fail(output->errorText());
}
