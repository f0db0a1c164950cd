#include "foundation/ZVTReference.h"

ZVTReference::~ZVTReference() = default;

void ZVTReference::RemoveReference() {
    // An uncounted object (one on the stack, say) must survive a stray release.
    if (m_lReferenceCount > 0 && --m_lReferenceCount == 0)
        delete this;
}

ZVTReferenceUser::ZVTReferenceUser(ZVTReference* target) : m_pxTarget(target) {
    if (m_pxTarget != nullptr)
        m_pxTarget->AddReference();
}

ZVTReferenceUser::ZVTReferenceUser(const ZVTReferenceUser& other) : ZVTReferenceUser(other.m_pxTarget) {}

ZVTReferenceUser::~ZVTReferenceUser() {
    if (m_pxTarget != nullptr)
        m_pxTarget->RemoveReference();
}

ZVTReferenceUser& ZVTReferenceUser::operator=(ZVTReference* target) {
    // Count the new target first: releasing the old one may destroy what holds the new one.
    if (target != nullptr)
        target->AddReference();
    ZVTReference* old = m_pxTarget;
    m_pxTarget = target;
    if (old != nullptr)
        old->RemoveReference();
    return *this;
}

ZVTReferenceUser& ZVTReferenceUser::operator=(const ZVTReferenceUser& other) {
    return *this = other.m_pxTarget;
}
