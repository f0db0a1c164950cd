#include "ModelCore/ZVFWMC/MCDepthFirstWalker.h"

#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
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
    // per object. The next link is read first, since the filter may expunge the ownee it is asked about.
    for (MCObject* ownee = object->GetFirstOwnee(); ownee;) {
        MCObject* next = ownee->GetNextSibling();
        Push(ownee);
        ownee = next;
    }
}

void MCDepthFirstWalker::Push(MCObject* object) {
    if (!object)
        return;
    if (m_pxFilter) {
        MCObject* candidate = object;  // the filter takes a reference it could change
        // An object the filter expunged stays out whatever it answered.
        const mc_detail::HeldObject held(object);
        if (!m_pxFilter->Test(candidate) || held.Gone())
            return;
    }
    m_xStack.Push(object);
}

MCObject* MCDepthFirstWalker::Pop() {
    return m_xStack.IsEmpty() ? nullptr : m_xStack.Pop();
}
