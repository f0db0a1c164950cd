#ifndef MCVISITORAGENT_H
#define MCVISITORAGENT_H

// The agent of most passes: it lets one visitor visit each object that a walker gives. It holds both the
// walker and the visitor as their user, and stops when either ends or is taken by another agent.

#include "ModelCore/ZVFWMC/MCAgent.h"
#include "ModelCore/ZVFWMC/MCVisitor.h"
#include "foundation/ZVTExport.h"

class MCObject;
class MCWalker;

/// Lets a visitor visit every object of a walk (MCObject::AcceptVisitor), owning neither walker nor
/// visitor and invalidated when either ends first.
class MODELCORE_API MCVisitorAgent : public MCAgent, public MCVisitorUser {
public:
    /// An agent that drives `walker` and visits with `visitor`.
    MCVisitorAgent(MCWalker& walker, MCVisitor& visitor);

    /// Lets the visitor visit `object` while the agent is valid; a null object is passed over.
    void Act(MCObject* object) override;
    /// Invalidates the agent and forgets the visitor, which it does not touch again.
    void InvalidateVisitor() override;

private:
    MCVisitor* m_pxActiveVisitor;
};

#endif
