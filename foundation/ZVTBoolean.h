#ifndef ZVTBOOLEAN_H
#define ZVTBOOLEAN_H

/// The truth type of the whole interface; a true value converts to exactly 1.
using ZVTBoolean = bool;

#endif
