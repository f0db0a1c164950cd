#ifndef MCENDSPRIVATE_H
#define MCENDSPRIVATE_H

// The count of objects ended on this thread. A walk that runs host code between its steps reads it before
// and after: while it has not moved, no object the walk holds can have gone, and nothing needs looking up.
// Read directly, so that the check is one load wherever it stands in the library.

#include <cstdint>
#include <vector>

#include "ModelCore/ZVFWMC/MCObject.h"
#include "foundation/ZVTSList.h"

namespace mc_detail {

/// How many objects have ended on this thread so far (what ObjectEnds answers, which headers use).
inline __attribute__((tls_model("initial-exec"))) thread_local std::uint64_t t_nObjectEnds = 0;

/// How many properties have been nulled or deleted on this thread so far, apart from those that ended
/// with their object: a rule firing asks whether its rules took its property away only when this moved.
inline __attribute__((tls_model("initial-exec"))) thread_local std::uint64_t t_nPropertyEnds = 0;

/// `object`, kept with its `id` and the count of ends when it was last known alive, or null once it went;
/// the id is looked up only when an object ended on this thread since, and `ends` then moves on.
inline MCObject* StillThere(MCObject*& object, long id, std::uint64_t& ends) {
    if (object && ends != t_nObjectEnds) {
        if (MCObject::ResolveId(id) != object)
            object = nullptr;
        ends = t_nObjectEnds;
    }
    return object;
}

/// An object held while host code runs, which may end it: whether it went is told by its id, without
/// touching it. Holds nothing (and never went) until an object is taken, or null is.
class HeldObject {
public:
    HeldObject() = default;
    explicit HeldObject(MCObject* object)
        : m_pxObject(object), m_lId(object ? object->GetId() : 0), m_nEnds(t_nObjectEnds) {}
    bool Gone() const { return t_nObjectEnds != m_nEnds && MCObject::ResolveId(m_lId) != m_pxObject; }
    /// The object, or null once it went.
    MCObject* Get() { return StillThere(m_pxObject, m_lId, m_nEnds); }

private:
    MCObject* m_pxObject = nullptr;
    long m_lId = 0;
    std::uint64_t m_nEnds = 0;
};

/// Each of `objects` (a null one too, which never goes), held in list order.
inline std::vector<HeldObject> HoldEach(const ZVTSList<MCObject*>& objects) {
    std::vector<HeldObject> held;
    held.reserve(objects.Entries());
    for (size_t i = 0; i < objects.Entries(); ++i)
        held.emplace_back(objects.At(i));
    return held;
}

}  // namespace mc_detail

#endif
