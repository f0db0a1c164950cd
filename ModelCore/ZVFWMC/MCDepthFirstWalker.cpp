#include "ModelCore/ZVFWMC/MCDepthFirstWalker.h"

#include "ModelCore/ZVFWMC/MCObject.h"

MCDepthFirstWalker::MCDepthFirstWalker(MCObject* start, ZVTFilter<MCObject*>* filter)
    : MCWalker(start), m_pxFilter(filter) {
    Push(start);
}

void MCDepthFirstWalker::Reset(MCObject* start) {
    SetStart(start);
    m_xStack.Clear();
    if (start)
        m_xStack.Push(start);
    m_pxCurrent = nullptr;
}

ZVTBoolean MCDepthFirstWalker::Traverse() {
    if (m_xStack.IsEmpty())
        return false;
    m_pxCurrent = Pop();
    LoadStack(m_pxCurrent);
    return true;
}

void MCDepthFirstWalker::LoadStack(MCObject* object) {
    // The sibling links directly rather than an ownee iterator: the same order without an allocation
    // per object.
    for (MCObject* ownee = object->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
        Push(ownee);
}

void MCDepthFirstWalker::Push(MCObject* object) {
    if (!object)
        return;
    MCObject* candidate = object;  // the filter takes a reference it could change
    if (m_pxFilter && !m_pxFilter->Test(candidate))
        return;
    m_xStack.Push(object);
}

MCObject* MCDepthFirstWalker::Pop() {
    return m_xStack.IsEmpty() ? nullptr : m_xStack.Pop();
}
