#ifndef ZVTEXPORT_H
#define ZVTEXPORT_H

// The library is built with hidden visibility; what a host may call is marked.
#if defined(MODELCORE_BUILDING)
#define MODELCORE_API __attribute__((visibility("default")))
#else
#define MODELCORE_API
#endif

#endif
