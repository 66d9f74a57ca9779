// Creates the directories above an output file.
#ifndef SRC_FRAMEWORK_MAKE_DEST_DIR_H
#define SRC_FRAMEWORK_MAKE_DEST_DIR_H

// Creates every missing directory above the last component of the path, with mode 0777 less the
// umask. Returns 0, or the errno of what failed; directories made before that stay.
//
// The directories are made from the root, also for a relative path: "a/b/c.jpg" makes /a and /a/b.
// Where no single "/" stands before the last component ("/x.jpg", "/a//b.jpg"), a directory of the
// whole path's name is made. A component that exists counts as present, whatever it is. The path
// must hold something else than separators.
int makeDestDir(const char* path);

#endif
