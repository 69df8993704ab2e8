// Version of these headers. Valid as C99 and C++11.
#ifndef CALLORV_VERSION_H
#define CALLORV_VERSION_H

#define CALLORV_VERSION "1.0.0"
#define CALLORV_VERSION_MAJOR 1
#define CALLORV_VERSION_MINOR 0
#define CALLORV_VERSION_PATCH 0

#endif
