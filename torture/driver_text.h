// How the drivers of replies.py print a text.
#ifndef TORTURE_DRIVER_TEXT_H
#define TORTURE_DRIVER_TEXT_H

#include <cstdio>

// What is not printable, the blank, the backslash and '~' as \xx, an empty text as ~; and a blank.
inline void PrintText(const char* p_szText) {
  if (*p_szText == 0) putchar('~');
  for (; *p_szText != 0; ++p_szText) {
    const unsigned char c = static_cast<unsigned char>(*p_szText);
    if (c > ' ' && c < '~' && c != '\\') {
      putchar(c);
    } else {
      printf("\\%02x", c);
    }
  }
  putchar(' ');
}

#endif
