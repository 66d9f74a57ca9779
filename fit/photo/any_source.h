// The source of any photo that there is a reader for.
#ifndef FIT_PHOTO_ANY_SOURCE_H
#define FIT_PHOTO_ANY_SOURCE_H

#include <cstdint>
#include <memory>
#include <span>

#include "fit/failure/fit_failure.h"
#include "fit/photo/photo_formats.h"

// Borrows both; `formats` are what there is beside JPEG, nullptr: nothing. nullptr where there is
// no reader for such a file; *failure then says what it is and what would do.
std::unique_ptr<PhotoSource> anySource(std::span<const uint8_t> file, PhotoFormats* formats,
                                       FitFailure* failure);

#endif
