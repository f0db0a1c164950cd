#ifndef MCDEPTHFIRSTWALKER_H
#define MCDEPTHFIRSTWALKER_H

// The walk of saving and cloning: an object before its ownees, and of an owner's ownees the youngest
// first. The objects still to come wait on an explicit stack, so a walk costs O(N) time and no stack
// depth however deep the tree is.
//
// What a change to the tree during the walk does: the ownees of an object are loaded when Traverse gives
// that object, before the agent acts on it, so ownees the agent adds under the current object are not
// reached, while ownees added under an object still to come are. An object still to come must not be
// destroyed during the walk, and that includes the ownees of the current object: an agent that takes
// objects down leaves that until the walk is over (or to the command queue). The filter alone may expunge
// the object it is asked about (and no other): the walk then leaves it out, whatever the answer.

#include "ModelCore/ZVFWMC/MCWalker.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTIter.h"
#include "foundation/ZVTStack.h"

/// Walks a subtree depth first, pre-order, the last ownee of each list first, through a filter (not
/// owned) whose refusal of an object leaves out its whole subtree.
class MODELCORE_API MCDepthFirstWalker : public MCWalker {
public:
    /// A walk from `start` that asks `filter` (may be null) about every object, the start included; a
    /// null or refused start gives an empty walk.
    MCDepthFirstWalker(MCObject* start, ZVTFilter<MCObject*>* filter);

    /// Walks again from `start`, which is taken without asking the filter; a null start keeps the old
    /// one as GetStart but gives an empty walk.
    void Reset(MCObject* start) override;
    /// Takes the next object and loads its ownees; false, with GetValue unchanged, when none is left.
    ZVTBoolean Traverse() override;
    /// The object of the last successful Traverse; null before the first.
    MCObject* GetValue() const override { return m_pxCurrent; }

protected:
    /// Pushes what follows `object` in the walk, its ownees oldest first so that the youngest comes
    /// next; a subclass overrides it to follow other links.
    virtual void LoadStack(MCObject* object);
    /// Puts `object` on the stack unless it is null, the filter refuses it or the filter expunged it.
    void Push(MCObject* object);
    /// Takes the top of the stack; null when it is empty.
    MCObject* Pop();

private:
    // Pointers only, so a vector serves: nothing holds on to an entry's address.
    ZVTStackT<MCObject*> m_xStack;
    MCObject* m_pxCurrent = nullptr;
    ZVTFilter<MCObject*>* m_pxFilter;
};

#endif
