#include "ModelCore/ZVFWMC/MCVisitor.h"

#include "ModelCore/ZVFWMC/MCGuardsPrivate.h"

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
    return mc_detail::TakeOrLeave(m_pxUser, user, attach,
                                  [](MCVisitorUser& present) { present.InvalidateVisitor(); });
}

MCVisitorUser::MCVisitorUser(MCVisitor* visitor) : m_pxVisitor(visitor) {
    if (!visitor)
        return;
    mc_detail::LinkGuard(visitor->m_pxFirstGuard, this, &MCVisitorUser::m_pxPrevGuard,
                         &MCVisitorUser::m_pxNextGuard);
    visitor->Use(this, true);
}

MCVisitorUser::~MCVisitorUser() {
    if (!m_pxVisitor)
        return;
    m_pxVisitor->Use(this, false);
    mc_detail::UnlinkGuard(m_pxVisitor->m_pxFirstGuard, this, &MCVisitorUser::m_pxPrevGuard,
                           &MCVisitorUser::m_pxNextGuard);
}

MCTreeVisitor::MCTreeVisitor(ZVTHSetT<long>& ids) : m_xIds(ids) {}

void MCTreeVisitor::Visit(MCObject* object) {
    // The tree operations belong to the object module, and their failures name it.
    if (!object)
        MC_THROW_UNEXPECTED("ModelCore/ZVFWMC/MCObject");
    m_xIds.Insert(object->GetId());
}
