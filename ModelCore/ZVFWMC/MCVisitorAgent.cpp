#include "ModelCore/ZVFWMC/MCVisitorAgent.h"

#include "ModelCore/ZVFWMC/MCObject.h"

MCVisitorAgent::MCVisitorAgent(MCWalker& walker, MCVisitor& visitor)
    : MCAgent(walker), MCVisitorUser(&visitor), m_pxActiveVisitor(&visitor) {}

void MCVisitorAgent::Act(MCObject* object) {
    if (IsValid() && m_pxActiveVisitor && object)
        object->AcceptVisitor(m_pxActiveVisitor);
}

void MCVisitorAgent::InvalidateVisitor() {
    Invalidate();
    m_pxActiveVisitor = nullptr;
}
