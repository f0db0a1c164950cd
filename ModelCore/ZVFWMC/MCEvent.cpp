#include "ModelCore/ZVFWMC/MCEvent.h"

#include <new>

namespace {

// Freed event blocks waiting for reuse, linked through their first word.
struct FreeBlock {
    FreeBlock* m_pxNext;
};

FreeBlock* s_pxFreeBlocks = nullptr;
std::size_t s_nFreeBlocks = 0;

// Enough for deep event chains and nested deliveries; a burst beyond it goes back to the heap rather
// than stay pinned.
constexpr std::size_t c_nMaxFreeBlocks = 256;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool c_bPool = false;
#else
constexpr bool c_bPool = true;
#endif

}  // namespace

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
    if (c_bPool && nSize == sizeof(MCEvent) && s_pxFreeBlocks != nullptr) {
        FreeBlock* pBlock = s_pxFreeBlocks;
        s_pxFreeBlocks = pBlock->m_pxNext;
        --s_nFreeBlocks;
        return pBlock;
    }
    return ::operator new(nSize);
}

void MCEvent::operator delete(void* pBlock, std::size_t nSize) noexcept {
    if (pBlock == nullptr)
        return;
    if (c_bPool && nSize == sizeof(MCEvent) && s_nFreeBlocks < c_nMaxFreeBlocks) {
        s_pxFreeBlocks = ::new (pBlock) FreeBlock{s_pxFreeBlocks};
        ++s_nFreeBlocks;
        return;
    }
    ::operator delete(pBlock);
}

MCEventUser::MCEventUser(MCEvent& rEvent) : ZVTReferenceUser(&rEvent) {}

MCEventUser::~MCEventUser() = default;
