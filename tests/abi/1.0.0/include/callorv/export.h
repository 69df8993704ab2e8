// Compiler notes shared by every public header. Valid as C99 and C++11.
#ifndef CALLORV_EXPORT_H
#define CALLORV_EXPORT_H

// Everything without this mark stays inside its shared library.
#define CALLORV_API __attribute__((visibility("default")))

// Lets the compiler check a printf-like call: the format is argument f, its values begin at argument a.
// In a member function `this` is argument 1.
#define CALLORV_PRINTF(f, a) __attribute__((format(printf, f, a)))

#endif
