#ifndef MDLCORE_H
#define MDLCORE_H

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"

/// The door of the library: its version, the start of its life in the process and the end of it.
class MODELCORE_API MdlCore {
public:
    MdlCore() = delete;

    /// The core's version, 1.0; valid at any time.
    static double GetVersion();
    /// Registers the core's own metamodel; only the first call in a process does anything, even after
    /// Terminate.
    static void Initialize();
    /// Deletes every registry in a fixed order and empties the global id space; the end of the library's life
    /// in the process. Model objects must be gone before, as their destructors use the registries.
    static void Terminate();
    /// Whether Initialize has run in this process; Terminate does not clear it.
    static ZVTBoolean IsInitialized();

private:
    static ZVTBoolean m_bInitialized;
};

#endif
