#include "ModelCore/ZVFWMC/MCAgent.h"

MCAgent::MCAgent(MCWalker& walker) : MCWalkerUser(&walker), m_pxWalker(&walker) {}

void MCAgent::InvalidateWalker() {
    Invalidate();
    m_pxWalker = nullptr;
}

void MCAgent::Execute() {
    // Each test of m_pxWalker is needed: Act may end the walker, or hand it to another agent.
    while (m_bValid && m_pxWalker) {
        if (!m_pxWalker->Traverse())
            return;
        Act(m_pxWalker->GetValue());
    }
}
