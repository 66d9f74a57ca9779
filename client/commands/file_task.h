// What is to become of one file, and the tasks that the words of a command make.
#ifndef CLIENT_COMMANDS_FILE_TASK_H
#define CLIENT_COMMANDS_FILE_TASK_H

#include <string>
#include <vector>

#include "client/commands/options.h"

// What a command makes of files.
enum class Media { Photos, Movies, Both };

struct FileTask {
  std::string in;  // both absolute
  std::string out;
  int32_t maxBytes = 0;  // 0: no limit
};

// The absolute path of what the user called `path`.
std::string absolutePath(const std::string& path);

// IN and OUT, where "-" stays as it is, with the most that OUT may have.
FileTask taskOf(const Options& options);

// IN and OUT, or each of FILES and a file of its name in the folder of --out-dir, where a movie is
// an .mp4 unless it is a .3gp; with the size that each may have, or its share of the total. On
// failure *error says why.
bool takeTasks(const Options& options, Media media, std::vector<FileTask>* tasks,
               std::string* error);

// An extension is told with its dot; upper and lower case are the same.
bool hasExtension(const std::string& path, const std::string& extension);

// Whether the name is none of a kind of picture that is read and never made, such as ".png".
bool isMadePictureName(const std::string& path);

// Whether the name ends in an extension that the service makes a movie for, in any case.
bool isMovieName(const std::string& path);

#endif
