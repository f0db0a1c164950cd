#ifndef MCDEBUG_H
#define MCDEBUG_H

// The two diagnostic interfaces every dump goes through. There is no log:
// what the library has to say about its state it says in these dumps.

#include <iosfwd>
#include <string>
#include <typeinfo>

#include "foundation/ZVTExport.h"

class MCStream;

/// The state a recursive dump carries with it.
struct MODELCORE_API MCDumpableParameter {
    long m_lDepth = 0;  ///< The indentation depth.
};

/// Text dump of an item to a plain file stream; the base of every object and property.
class MODELCORE_API MCDebug {
public:
    /// Writes a description of the item at `level` and returns the bytes it takes up, as far as it knows.
    virtual unsigned int Dump(std::ofstream& stream, long level) = 0;
    virtual ~MCDebug() = default;

    /// The name of the class `type` describes as the dumps write it: the run-time type information's name,
    /// demangled when the compiler's ABI can, else as it comes.
    static std::string ClassName(const std::type_info& type);
};

/// Report of an object or registry written to a model stream; never deleted through this base.
class MODELCORE_API MCDumpable {
public:
    /// Writes a report in `mode`; `pParameter` carries the recursion state and may be null at the top.
    virtual void Dump(MCStream& stream, long mode, MCDumpableParameter* pParameter) = 0;

protected:
    // Not virtual: an object is deleted through its own hierarchy, never as an MCDumpable.
    ~MCDumpable() = default;
};

#endif
