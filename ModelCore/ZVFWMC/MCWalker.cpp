#include "ModelCore/ZVFWMC/MCWalker.h"

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
    m_pxUser->InvalidateWalker();
    return false;
}

MCWalkerUser::MCWalkerUser(MCWalker* walker) : m_pxWalker(walker) {
    if (!walker)
        return;
    m_pxNextGuard = walker->m_pxFirstGuard;
    if (m_pxNextGuard)
        m_pxNextGuard->m_pxPrevGuard = this;
    walker->m_pxFirstGuard = this;
    walker->Use(this, true);
}

MCWalkerUser::~MCWalkerUser() {
    if (!m_pxWalker)
        return;
    m_pxWalker->Use(this, false);
    if (m_pxPrevGuard)
        m_pxPrevGuard->m_pxNextGuard = m_pxNextGuard;
    else
        m_pxWalker->m_pxFirstGuard = m_pxNextGuard;
    if (m_pxNextGuard)
        m_pxNextGuard->m_pxPrevGuard = m_pxPrevGuard;
}
