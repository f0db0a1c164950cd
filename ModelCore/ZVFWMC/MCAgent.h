#ifndef MCAGENT_H
#define MCAGENT_H

// An agent drives a walker and acts on each object it gives. It holds the walker through the guard
// MCWalkerUser, so that it stops, rather than touching a dead walker, once the walker ends or another
// agent takes the walker over.

#include "ModelCore/ZVFWMC/MCWalker.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"

class MCObject;

/// Runs a walk: Execute steps the walker and calls Act for each object until the walk is over or the
/// agent is invalidated, which it then stays for good.
class MODELCORE_API MCAgent : public MCWalkerUser {
public:
    /// An agent on `walker`, valid; a second agent on the same walker invalidates the first.
    explicit MCAgent(MCWalker& walker);

    /// Invalidates the agent and forgets the walker, which it does not touch again.
    void InvalidateWalker() override;
    /// What to do with one object of the walk.
    virtual void Act(MCObject* object) = 0;

    /// Steps the walker and acts on each object while the agent stays valid, so an invalidation during
    /// Act ends the run before the next step, and an invalid agent or a finished walk does nothing.
    void Execute();
    /// True until the agent is invalidated.
    ZVTBoolean IsValid() const { return m_bValid; }

protected:
    /// Makes the agent invalid for good.
    void Invalidate() { m_bValid = false; }

private:
    MCWalker* m_pxWalker;
    ZVTBoolean m_bValid = true;
};

#endif
