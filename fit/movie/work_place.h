// Where a movie is made before it goes to who asked for it.
#ifndef FIT_MOVIE_WORK_PLACE_H
#define FIT_MOVIE_WORK_PLACE_H

#include <string>

// A folder of this user's for files that may go at any time, made if need be: on a disk, since a
// movie may be larger than what there is of memory. Empty where none can be made; *error says why.
std::string workPlace(std::string* error);

#endif
