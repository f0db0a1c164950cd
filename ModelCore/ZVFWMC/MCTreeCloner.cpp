// The object's operations on a whole subtree: collecting its ids and cloning it. Both are passes of a
// depth-first walker with a visitor, so they live on the traversal layer although they are members of
// MCObject, the way CreateItem lives with the factories.
//
// A clone is made in two passes. The first makes every clone under its owner's clone and copies the
// properties through active accessors, so references still point at the sources' targets; the second
// moves each reference whose target has a clone onto that clone, raw. The second pass must wait for the
// first to end, since any object of the subtree can be a target. Both passes are loops over explicit
// lists, and the only map is the pass's own id space, so the work grows with the subtree alone and the
// call depth not at all. (Each copied value still tells the clone's owners, one level at a time up to the
// root clone, as every edit does.)
//
// In a large tree both passes wait on memory more than they compute, so they ask for what they will load
// ahead of time. The first, while it makes a clone, for the next sibling and the targets of the source's
// references; the second goes, for each reference, to its target, that target's subscriber list and the
// target's clone, three loads at random each waiting on the one before, and asks for them a batch of
// clones ahead, in waves whose loads depend only on the wave before, so that many wait at once. Ahead of
// time only core references are read, only bound ones (their targets live), and nothing is written, so
// nothing a host can see changes.
//
// The edit rules a copy fires, and a host's rebinding, may expunge clones other than the one at hand: an
// earlier sibling, an owner, the root. Each clone is kept with its own id and its source's, and whenever
// any object has ended since the last look, the clones gone are dropped from the list and the map before
// either is read again, so nothing follows a freed clone. Until then the check is one thread-local load.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <typeinfo>
#include <vector>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCDepthFirstWalker.h"
#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"
#include "ModelCore/ZVFWMC/MCRefProperty.h"
#include "ModelCore/ZVFWMC/MCVisitor.h"
#include "ModelCore/ZVFWMC/MCVisitorAgent.h"
#include "foundation/ZVTReference.h"

namespace {

// The tree operations belong to the object module, and their failures name it.
const char* const c_pcSourceFile = "ModelCore/ZVFWMC/MCObject";

// Clones whose references are fetched ahead at a time; with one reference each about as many loads in
// flight as a core can have, and few enough that they are still cached when the rebinding comes.
constexpr size_t c_nRebindBatch = 16;
constexpr size_t c_nTargetsAhead = 2 * c_nRebindBatch;

// Every creation of a clone: no creation semantics, and an id from the global space.
class MCTreeClonerFactoryContext : public MCFactoryContext {
public:
    ZVTBoolean SemanticsNeeded() override { return false; }
    long RequestId() override { return 0; }
};

// A clone with the ids that tell whether it is still there and which source it copies; `clone` is null
// once it went.
struct MCTreeClone {
    MCObject* clone;
    long cloneId;
    long sourceId;
};

// Clones each object it visits under the clone of its owner, which `space` (not owned) knows by the
// source's id, and records the clones in order of creation. It owns none of them.
class MCTreeClonerVisitor : public MCVisitor {
public:
    explicit MCTreeClonerVisitor(MCIdSpace& space) : m_pxIdSpace(&space), m_nEnds(mc_detail::t_nObjectEnds) {}

    void Visit(MCObject* object) override;

    // Forgets every clone that has ended since the last call, in the list, the map and as the root; costs
    // one load while no object ended at all.
    void DropEnded() {
        if (mc_detail::t_nObjectEnds != m_nEnds)
            DropEndedSlow();
    }
    // The clone of the first object visited; null before, or once it went. Call DropEnded first.
    MCObject* GetRootClone() { return m_pxRootClone; }
    // Every clone alive at the end of its copy, in order of creation; an entry's clone is null once
    // DropEnded found it gone.
    std::vector<MCTreeClone>& GetClones() { return m_xClones; }

private:
    // Copies the valued properties of `source` but the id, then CloneId; false once the clone's rules
    // report it destroyed.
    static ZVTBoolean CopyProperties(MCObject& source, MCObject& clone, long sourceId);
    // Copies `property` of `source` into `clone` through `accessor`, as an edit with the source's flags;
    // true once the clone's rules report it destroyed.
    static ZVTBoolean CopyValue(MCPropertyAccessor& accessor, MCProperty& property, MCObject& source,
                                MCObject& clone);
    template <class Accessor>
    static ZVTBoolean CopyValue(MCProperty& property, MCObject& source, MCObject& clone) {
        Accessor accessor;
        return CopyValue(accessor, property, source, clone);
    }
    void DropEndedSlow();

    MCIdSpace* m_pxIdSpace;
    MCTreeClonerFactoryContext m_xFactoryContext;
    MCObject* m_pxRootClone = nullptr;
    long m_lRootCloneId = 0;
    std::vector<MCTreeClone> m_xClones;
    // ObjectEnds when the clones were last checked.
    std::uint64_t m_nEnds;
    // Whether the first object was visited: only that one may go without its owner's clone.
    ZVTBoolean m_bStarted = false;
    // Whether the root clone was made: a root that went is not replaced by a later clone.
    ZVTBoolean m_bRootMade = false;
};

void MCTreeClonerVisitor::DropEndedSlow() {
    m_nEnds = mc_detail::t_nObjectEnds;
    for (MCTreeClone& entry : m_xClones) {
        if (entry.clone && MCObject::ResolveId(entry.cloneId) != entry.clone) {
            entry.clone = nullptr;
            m_pxIdSpace->RemoveId(entry.sourceId);
        }
    }
    if (m_pxRootClone && MCObject::ResolveId(m_lRootCloneId) != m_pxRootClone)
        m_pxRootClone = nullptr;
}

void MCTreeClonerVisitor::Visit(MCObject* object) {
    if (!object)
        MC_THROW_UNEXPECTED(c_pcSourceFile);
    // The rules of the clone before may have taken any earlier clone, this one's owner among them.
    DropEnded();
    const short type = object->GetType();
    const long id = object->GetId();
    MCObject* owner = object->GetOwner(0, MCItem::rttiDerived);
    // Pre-order: the owner's clone exists whenever the owner was cloned; the start's owner never was, so
    // the root clone has no owner.
    if (owner)
        owner = m_pxIdSpace->ResolveId(owner->GetId());
    if (m_bStarted && !owner)
        return;  // below a clone that its rules destroyed
    m_bStarted = true;

    // The walk goes on, for most objects, at the next sibling, and the copy of a reference subscribes at
    // its target, somewhere in the tree: both are asked for now, to come while the clone is made.
    if (MCObject* next = object->GetNextSibling())
        mc_detail::PrefetchObject(next);
    MCPropertySetIter properties(object->GetPropertySet());
    while (++properties) {
        const MCSRef* ref = mc_detail::AsCoreRef(properties.GetValue());
        if (ref && ref->IsBound() && ref->GetValue())
            mc_detail::PrefetchObject(ref->GetValue());
    }

    m_xFactoryContext.Reset();
    auto* clone =
        static_cast<MCObject*>(MCFactoryRegistry::CreateItem(type, owner, &m_xFactoryContext, nullptr));
    if (!clone)
        MC_THROW_UNEXPECTED(c_pcSourceFile);
    const long cloneId = clone->GetId();
    if (!m_bRootMade) {
        m_bRootMade = true;
        m_pxRootClone = clone;
        m_lRootCloneId = cloneId;
    }
    m_xClones.push_back({clone, cloneId, id});
    m_pxIdSpace->RegisterPointer(id, clone);

    if (!CopyProperties(*object, *clone, id)) {
        // Nothing touches it again: its ownees are left out and the second pass does not see it.
        m_pxIdSpace->RemoveId(id);
        m_xClones.back().clone = nullptr;
        if (m_pxRootClone == clone)
            m_pxRootClone = nullptr;
    }
}

ZVTBoolean MCTreeClonerVisitor::CopyValue(MCPropertyAccessor& accessor, MCProperty& property,
                                          MCObject& source, MCObject& clone) {
    constexpr long c_lCopyFlags = MCPropertyAccessor::accessReplace | MCPropertyAccessor::accessFlags;
    accessor.GetPropertyValue(&property, &source);
    accessor.SetFlags(property.GetFlags());
    // A refusal leaves the property as the clone's constructor made it, and the copy goes on.
    clone.SetProperty(property.GetType(), accessor, c_lCopyFlags);
    return accessor.GetObjectDestroyed();
}

ZVTBoolean MCTreeClonerVisitor::CopyProperties(MCObject& source, MCObject& clone, long sourceId) {
    MCPropertySetIter properties(source.GetPropertySet());
    while (++properties) {
        MCProperty* property = properties.GetValue();
        // A property without a value is not carried over, and the id is the one thing a clone does not
        // share.
        if (!property || property->GetFlag(MCItem::itemNulled) || property->GetType() == MCCodes::pId)
            continue;
        // The core's own classes get the accessor their CreateAccessor would make, on the stack; any other
        // class (a host's among them) makes its own, as a core class missed by mc_detail::IsExactly does.
        ZVTBoolean destroyed = false;
        if (mc_detail::IsExactly<MCSPropertyT<long>>(*property))
            destroyed = CopyValue<MCSPropertyAccessorT<long>>(*property, source, clone);
        else if (mc_detail::IsExactly<MCSPropertyT<ZVTString>>(*property))
            destroyed = CopyValue<MCSPropertyAccessorT<ZVTString>>(*property, source, clone);
        else if (mc_detail::IsExactly<MCSRef>(*property))
            destroyed = CopyValue<MCSRefAccessor>(*property, source, clone);
        else if (mc_detail::IsExactly<MCVRef>(*property))
            destroyed = CopyValue<MCVRefAccessor>(*property, source, clone);
        else {
            MCPropertyAccessor* accessor = property->CreateAccessor();
            const ZVTReferenceUser holder(accessor);
            destroyed = CopyValue(*accessor, *property, source, clone);
        }
        if (destroyed)
            return false;
    }
    // Last, so that a CloneId copied from a source that is itself a clone names the immediate source.
    MCSPropertyAccessorT<long> cloneId(sourceId);
    clone.SetProperty(MCCodes::pCloneId, cloneId, MCPropertyAccessor::accessAdd);
    return !cloneId.GetObjectDestroyed();
}

}  // namespace

void MCObject::GetAllIdsFromTree(ZVTHSetT<long>& ids, MCObject* start) {
    MCTreeVisitor visitor(ids);
    MCDepthFirstWalker walker(start ? start : this, nullptr);
    MCVisitorAgent agent(walker, visitor);
    agent.Execute();
}

MCObject* MCObject::CloneTree(ZVTFilter<MCObject*>* filter) {
    // Declared so that they go agent, walker, visitor, space: the space lives exactly as long as the
    // operation, and no clone keeps a tie to it.
    MCIdSpace space(0);
    MCTreeClonerVisitor visitor(space);
    MCDepthFirstWalker walker(this, filter);
    MCVisitorAgent agent(walker, visitor);
    try {
        agent.Execute();
        visitor.DropEnded();
        std::vector<MCTreeClone>& clones = visitor.GetClones();
        // A member's lambda, so that it may read a subject's list.
        auto fetchAhead = [&space, &clones](size_t begin, size_t end) {
            MCObject* targets[c_nTargetsAhead];
            size_t count = 0;
            for (size_t i = begin; i < end; ++i) {
                if (!clones[i].clone)
                    continue;
                MCPropertySetIter properties(clones[i].clone->GetPropertySet());
                while (++properties && count < c_nTargetsAhead) {
                    const MCSRef* ref = mc_detail::AsCoreRef(properties.GetValue());
                    if (ref && ref->IsBound() && ref->GetValue()) {
                        targets[count++] = ref->GetValue();
                        mc_detail::PrefetchObject(ref->GetValue());
                    }
                }
            }
            for (size_t k = 0; k < count; ++k) {
                const MCSubject* subject = targets[k];
                space.Prefetch(targets[k]->GetId());
                if (!subject->IsIndexed())
                    __builtin_prefetch(subject->First());
            }
            for (size_t k = 0; k < count; ++k) {
                if (MCObject* copy = space.ResolveId(targets[k]->GetId()))
                    mc_detail::PrefetchObject(copy);
            }
        };
        const size_t count = clones.size();
        fetchAhead(0, std::min(c_nRebindBatch, count));
        for (size_t i = 0; i < count; ++i) {
            // The next batch, while this one is rebound.
            if (i % c_nRebindBatch == 0 && i + c_nRebindBatch < count)
                fetchAhead(i + c_nRebindBatch, std::min(i + 2 * c_nRebindBatch, count));
            MCObject* clone = clones[i].clone;
            if (!clone)
                continue;
            // Rebinding moves values only, raw, so the set does not change under the cursor. A host's
            // rebinding may still expunge clones, this one among them: then the map and the list drop
            // them before either is read again.
            MCPropertySetIter properties(clone->GetPropertySet());
            while (++properties) {
                if (MCProperty* property = properties.GetValue()) {
                    property->Rebind(space, *clone);
                    visitor.DropEnded();
                    if (!clones[i].clone)
                        break;
                }
            }
        }
    } catch (...) {
        // Nobody but this call knows the partial copy, so it goes before the exception passes on.
        visitor.DropEnded();
        if (MCObject* root = visitor.GetRootClone())
            root->Expunge(true);
        throw;
    }
    visitor.DropEnded();
    return visitor.GetRootClone();
}
