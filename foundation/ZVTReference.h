#ifndef ZVTREFERENCE_H
#define ZVTREFERENCE_H

#include "foundation/ZVTExport.h"

/// Base of everything held by a reference count; the count starts at 0 and an object never counted is
/// never destroyed by it. Counts are plain integers: single-threaded use only.
class MODELCORE_API ZVTReference {
public:
    /// An uncounted object.
    ZVTReference() = default;
    /// A copy is a new object: its count starts at 0.
    ZVTReference(const ZVTReference&) {}
    /// Assignment copies nothing of the count.
    ZVTReference& operator=(const ZVTReference&) { return *this; }
    /// Virtual so that the last RemoveReference destroys the whole object, whatever base this is.
    virtual ~ZVTReference();

    /// Adds one holder.
    void AddReference() { ++m_lReferenceCount; }
    /// Drops one holder and deletes the object when none is left; on an uncounted object it does nothing.
    void RemoveReference() {
        // An uncounted object (one on the stack, say) must survive a stray release.
        if (m_lReferenceCount > 0 && --m_lReferenceCount == 0)
            Destroy();
    }
    /// The number of holders.
    long GetReferenceCount() const { return m_lReferenceCount; }

private:
    // Out of line, so that callers inline only the count.
    void Destroy();

    long m_lReferenceCount = 0;
};

/// Holds one counted reference to a ZVTReference, or nothing; letting go may destroy the target.
class MODELCORE_API ZVTReferenceUser {
public:
    /// Holds target (which may be null) and counts it.
    ZVTReferenceUser(ZVTReference* target = nullptr) : m_pxTarget(target) {
        if (m_pxTarget != nullptr)
            m_pxTarget->AddReference();
    }
    /// Holds the other's target too.
    ZVTReferenceUser(const ZVTReferenceUser& other);
    /// Lets go of the target.
    ~ZVTReferenceUser() {
        if (m_pxTarget != nullptr)
            m_pxTarget->RemoveReference();
    }

    /// Takes target and lets go of the old one; holding the same target again changes nothing.
    ZVTReferenceUser& operator=(ZVTReference* target);
    /// Takes the other's target and lets go of the old one.
    ZVTReferenceUser& operator=(const ZVTReferenceUser& other);

    /// The target, or nullptr; the caller casts it to the class it knows.
    ZVTReference* operator()() const { return m_pxTarget; }

private:
    ZVTReference* m_pxTarget;
};

#endif
