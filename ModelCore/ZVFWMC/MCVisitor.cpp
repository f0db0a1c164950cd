#include "ModelCore/ZVFWMC/MCVisitor.h"

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCObject.h"

MCVisitor::MCVisitor() = default;

MCVisitor::~MCVisitor() {
    // Each guard is unlinked before it hears of the end, so that whatever it does then (even ending
    // another guard) finds a consistent list.
    while (MCVisitorUser* guard = m_pxFirstGuard) {
        m_pxFirstGuard = guard->m_pxNextGuard;
        if (m_pxFirstGuard)
            m_pxFirstGuard->m_pxPrevGuard = nullptr;
        guard->m_pxNextGuard = nullptr;
        guard->m_pxVisitor = nullptr;
        if (m_pxUser == guard)
            m_pxUser = nullptr;
        guard->InvalidateVisitor();
    }
    if (MCVisitorUser* user = m_pxUser) {  // attached by hand, not through a guard of this visitor
        m_pxUser = nullptr;
        user->InvalidateVisitor();
    }
}

void MCVisitor::Visit(MCObject* /*object*/) {}

ZVTBoolean MCVisitor::Use(MCVisitorUser* user, ZVTBoolean attach) {
    if (!user)
        return false;
    if (!attach) {
        if (user != m_pxUser)
            return false;
        m_pxUser = nullptr;
        return true;
    }
    if (!m_pxUser) {
        m_pxUser = user;
        return true;
    }
    m_pxUser->InvalidateVisitor();
    return false;
}

MCVisitorUser::MCVisitorUser(MCVisitor* visitor) : m_pxVisitor(visitor) {
    if (!visitor)
        return;
    m_pxNextGuard = visitor->m_pxFirstGuard;
    if (m_pxNextGuard)
        m_pxNextGuard->m_pxPrevGuard = this;
    visitor->m_pxFirstGuard = this;
    visitor->Use(this, true);
}

MCVisitorUser::~MCVisitorUser() {
    if (!m_pxVisitor)
        return;
    m_pxVisitor->Use(this, false);
    if (m_pxPrevGuard)
        m_pxPrevGuard->m_pxNextGuard = m_pxNextGuard;
    else
        m_pxVisitor->m_pxFirstGuard = m_pxNextGuard;
    if (m_pxNextGuard)
        m_pxNextGuard->m_pxPrevGuard = m_pxPrevGuard;
}

MCTreeVisitor::MCTreeVisitor(ZVTHSetT<long>& ids) : m_xIds(ids) {}

void MCTreeVisitor::Visit(MCObject* object) {
    // The tree operations belong to the object module, and their failures name it.
    if (!object)
        MC_THROW_UNEXPECTED("ModelCore/ZVFWMC/MCObject");
    m_xIds.Insert(object->GetId());
}
