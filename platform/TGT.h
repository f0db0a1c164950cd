#ifndef TGT_H
#define TGT_H

// Stand-in for the target library: the named targets a host owns and the registry through which a stored
// target name finds its target again.

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"

/// A named target owned by the host; the name is fixed for its life, and destroying a registered target
/// unregisters it.
class MODELCORE_API tgt_target {
public:
    /// A target called `name`; it is not registered.
    explicit tgt_target(const ZVTString& name);
    /// Unregisters the target if the registry holds it.
    virtual ~tgt_target();
    tgt_target(const tgt_target&) = delete;
    tgt_target& operator=(const tgt_target&) = delete;

    /// The name under which the target is registered and stored.
    ZVTString GetTargetName() const;

private:
    ZVTString m_xName;
};

/// The process-wide map from target names to the host's targets; it holds pointers and owns nothing.
/// HUB::Terminate empties it.
class MODELCORE_API HUBTargetRegistry {
public:
    /// Registers `pTarget` under its name; false for null, for an empty name, and for a name already taken
    /// (even by the same target).
    static ZVTBoolean RegisterTarget(tgt_target* pTarget);
    /// Removes `pTarget`; false when it is null or not the target registered under its name.
    static ZVTBoolean UnregisterTarget(tgt_target* pTarget);
    /// The target registered under `name` (exact case), null when there is none; always null for the empty
    /// name, which is how a missing target is stored.
    static tgt_target* GetTargetFromId(const ZVTString& name);
    /// Forgets every target without touching them.
    static void Clear();
};

#endif
