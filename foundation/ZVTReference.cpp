#include "foundation/ZVTReference.h"

ZVTReference::~ZVTReference() = default;

void ZVTReference::Destroy() {
    delete this;
}

ZVTReferenceUser::ZVTReferenceUser(const ZVTReferenceUser& other) : ZVTReferenceUser(other.m_pxTarget) {}

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
