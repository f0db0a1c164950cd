#ifndef MCENDSPRIVATE_H
#define MCENDSPRIVATE_H

// The count of objects ended on this thread. A walk that runs host code between its steps reads it before
// and after: while it has not moved, no object the walk holds can have gone, and nothing needs looking up.
// Read directly, so that the check is one load wherever it stands in the library.

#include <cstdint>

#include "ModelCore/ZVFWMC/MCObject.h"

namespace mc_detail {

/// How many objects have ended on this thread so far (what ObjectEnds answers, which headers use).
inline __attribute__((tls_model("initial-exec"))) thread_local std::uint64_t t_nObjectEnds = 0;

/// How many properties have been nulled or deleted on this thread so far, apart from those that ended
/// with their object: a rule firing asks whether its rules took its property away only when this moved.
inline __attribute__((tls_model("initial-exec"))) thread_local std::uint64_t t_nPropertyEnds = 0;

/// An object held while host code runs, which may end it: whether it went is told by its id, without
/// touching it, and looked up only once an object ended on this thread since it was taken. Holds nothing
/// (and never went) until an object is taken.
class HeldObject {
public:
    HeldObject() = default;
    explicit HeldObject(const MCObject* object)
        : m_pxObject(object), m_lId(object->GetId()), m_nEnds(t_nObjectEnds) {}
    bool Gone() const { return t_nObjectEnds != m_nEnds && MCObject::ResolveId(m_lId) != m_pxObject; }

private:
    const MCObject* m_pxObject = nullptr;
    long m_lId = 0;
    std::uint64_t m_nEnds = 0;
};

}  // namespace mc_detail

#endif
