// CLocale makes the calling thread read numbers and texts as C does, whatever the user's locale.
#ifndef SRC_MOVIE_C_LOCALE_H
#define SRC_MOVIE_C_LOCALE_H

#include <locale.h>

class CLocale {
 public:
  CLocale() : own(newlocale(LC_ALL_MASK, "C", nullptr)), previous(uselocale(own)) {}
  ~CLocale() {
    uselocale(previous);
    freelocale(own);
  }
  CLocale(const CLocale&) = delete;
  CLocale& operator=(const CLocale&) = delete;

 private:
  const locale_t own;
  const locale_t previous;
};

#endif
