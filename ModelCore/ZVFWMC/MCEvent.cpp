#include "ModelCore/ZVFWMC/MCEvent.h"

#include "foundation/ZVTPool.h"

long MCEvent::c_nInstanceCount = 0;

MCEvent& MCEvent::Instantiate(long nEventType, MCSubject* pSubject, unsigned int nSubscriberType,
                              const MCProperty* pProperty, MCEvent* pChain) {
    return *new MCEvent(nEventType, pSubject, nSubscriberType, pProperty, pChain);
}

MCEvent::MCEvent(long nEventType, MCSubject* pSubject, unsigned int nSubscriberType,
                 const MCProperty* pProperty, MCEvent* pChain)
    : m_lEventType(nEventType),
      m_nSubscriberType(nSubscriberType),
      m_pxSubject(pSubject),
      m_pxProperty(pProperty),
      m_pxChain(pChain),
      m_pxRootSubject(pSubject) {
    if (m_pxChain != nullptr) {
        m_pxChain->AddReference();
        m_pxRootSubject = m_pxChain->GetRootSubject();
    }
    ++c_nInstanceCount;
}

MCEvent::~MCEvent() {
    --c_nInstanceCount;
    if (m_pxChain != nullptr)
        m_pxChain->RemoveReference();
}

MCEvent* MCEvent::GetChain(MCSubject* pSubject) const {
    MCEvent* pEvent = m_pxChain;
    if (pSubject == nullptr)
        return pEvent;
    while (pEvent != nullptr && pEvent->m_pxSubject != pSubject)
        pEvent = pEvent->m_pxChain;
    return pEvent;
}

void* MCEvent::operator new(std::size_t nSize) {
    return ZVTPool::Allocate(nSize);
}

void MCEvent::operator delete(void* pBlock, std::size_t nSize) noexcept {
    ZVTPool::Release(pBlock, nSize);
}

MCEventUser::MCEventUser(MCEvent& rEvent) : ZVTReferenceUser(&rEvent) {}

MCEventUser::~MCEventUser() = default;
