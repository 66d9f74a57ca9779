// A locale that writes a comma into numbers: the process's while this lives, then "C" again.
//
// Errors: isInUse() is false where the machine cannot make one.
#ifndef TESTS_MOVIE_COMMA_LOCALE_H
#define TESTS_MOVIE_COMMA_LOCALE_H

#include <clocale>
#include <cstdlib>
#include <string>

#include "tests/support/scoped_variable.h"
#include "tests/support/temp_dir.h"

class CommaLocale {
 public:
  CommaLocale() : folder("LOCPATH", dir.path()) {
    const std::string make = "localedef -f UTF-8 -i de_DE " + (dir / "de_DE.UTF-8");
    if (system(make.c_str()) == 0) setlocale(LC_ALL, "de_DE.UTF-8");
  }
  ~CommaLocale() { setlocale(LC_ALL, "C"); }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

  bool isInUse() const { return std::string(localeconv()->decimal_point) == ","; }

 private:
  const TempDir dir;
  const ScopedVariable folder;
};

#endif
