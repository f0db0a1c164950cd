#include "ModelCore/ZVFWMC/MCWalker.h"

#include "ModelCore/ZVFWMC/MCGuardsPrivate.h"

MCWalker::MCWalker(MCObject* start) : m_pxStart(start) {}

MCWalker::~MCWalker() {
    // Each guard is unlinked before it hears of the end, so that whatever it does then (even ending
    // another guard) finds a consistent list.
    while (MCWalkerUser* guard = m_pxFirstGuard) {
        m_pxFirstGuard = guard->m_pxNextGuard;
        if (m_pxFirstGuard)
            m_pxFirstGuard->m_pxPrevGuard = nullptr;
        guard->m_pxNextGuard = nullptr;
        guard->m_pxWalker = nullptr;
        if (m_pxUser == guard)
            m_pxUser = nullptr;
        guard->InvalidateWalker();
    }
    if (MCWalkerUser* user = m_pxUser) {  // attached by hand, not through a guard of this walker
        m_pxUser = nullptr;
        user->InvalidateWalker();
    }
}

void MCWalker::SetStart(MCObject* start) {
    if (start)
        m_pxStart = start;
}

ZVTBoolean MCWalker::Use(MCWalkerUser* user, ZVTBoolean attach) {
    return mc_detail::TakeOrLeave(m_pxUser, user, attach,
                                  [](MCWalkerUser& present) { present.InvalidateWalker(); });
}

MCWalkerUser::MCWalkerUser(MCWalker* walker) : m_pxWalker(walker) {
    if (!walker)
        return;
    mc_detail::LinkGuard(walker->m_pxFirstGuard, this, &MCWalkerUser::m_pxPrevGuard,
                         &MCWalkerUser::m_pxNextGuard);
    walker->Use(this, true);
}

MCWalkerUser::~MCWalkerUser() {
    if (!m_pxWalker)
        return;
    m_pxWalker->Use(this, false);
    mc_detail::UnlinkGuard(m_pxWalker->m_pxFirstGuard, this, &MCWalkerUser::m_pxPrevGuard,
                           &MCWalkerUser::m_pxNextGuard);
}
