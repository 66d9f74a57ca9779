// An output that the program which asked for it holds while it waits: when that program is gone,
// however it went, whoever makes the output knows that nobody wants it any more.
//
// The program makes an empty file under a hidden name that begins as kHeldPrefix does, keeps a lock
// on it and asks for an output of that name. The name promises the lock: a file of such a name that
// is missing or not locked has been withdrawn. Other names promise nothing and are never withdrawn.
#ifndef PLATFORM_HELD_HELD_FILE_H
#define PLATFORM_HELD_HELD_FILE_H

#include <string>

constexpr char kHeldPrefix[] = ".tarn-held-";

bool hasHeldName(const std::string& path);

// Locks the open file for as long as a descriptor of this opening lives. False where it is locked
// already or the file system has no locks.
bool holdFile(int fd);

// Whether the output at `path` was withdrawn.
bool isWithdrawn(const std::string& path);
// Whether nobody holds the open file.
bool isLetGo(int fd);
// Returns when nobody holds the open file any more, and false when that cannot be waited for.
bool awaitLetGo(int fd);

#endif
