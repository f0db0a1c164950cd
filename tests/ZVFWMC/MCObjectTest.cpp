// Objects: the working constructor's order and id rules, ownership links and their refusals, type tests,
// the address test behind embedded properties, and IsExpunging during the end of a tree.

#include <memory>

#include "support/ModelTestSupport.h"

namespace {

// A context that asks for a chosen id and/or a private id space.
class IdContext : public MCFactoryContext {
public:
    IdContext(long id, MCIdSpace* space) : m_lId(id), m_pxSpace(space) {}
    long RequestId() override { return m_lId; }
    MCIdSpace* GetIdSpace() override { return m_pxSpace ? m_pxSpace : MCFactoryContext::GetIdSpace(); }

private:
    long m_lId;
    MCIdSpace* m_pxSpace;
};

MCObject* MakeWith(MCFactoryContext& context, MCObject* owner) {
    return static_cast<MCObject*>(
        MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, owner, &context, nullptr));
}

std::string Ownees(const MCObject* owner) {
    std::string ids;
    for (MCObject* ownee = owner->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
        ids += (ids.empty() ? "" : " ") + std::to_string(ownee->GetId());
    return ids;
}

}  // namespace

using ObjectTest = ModelTest;

TEST_F(ObjectTest, WorkingConstructorLinksOwnerIdAndLiveTable) {
    MCObject* root = Make();
    MCObject* child = Make(root);
    EXPECT_EQ(child->GetId(), root->GetId() + 1);
    EXPECT_EQ(MCObject::ResolveId(child->GetId()), child);
    EXPECT_EQ(child->GetOwner(0, MCItem::rttiExact), root);
    EXPECT_EQ(Ownees(root), std::to_string(child->GetId()));

    // The owner subscribes to its ownee as owner (type 1) and hears of its changes.
    {
        MCSubscriberListIter subscribers(child);
        ASSERT_TRUE(++subscribers);
        EXPECT_EQ(subscribers.GetValue(), static_cast<MCSubscriber*>(root));
        EXPECT_FALSE(++subscribers);
    }

    ZVTHTableT<MCObject*>* live = nullptr;
    ASSERT_TRUE(MCFactoryRegistry::GetInstances(MCGenericObject::c_sType, live, nullptr));
    EXPECT_TRUE(live->Contains(child));

    const long childId = child->GetId();
    root->DestroyOwnedObject(child);
    EXPECT_EQ(child, nullptr);
    EXPECT_EQ(MCObject::ResolveId(childId), nullptr);
    EXPECT_EQ(Ownees(root), "");
    ASSERT_TRUE(MCFactoryRegistry::GetInstances(MCGenericObject::c_sType, live, nullptr));
    EXPECT_EQ(live->Occurrences(root), 1u);
}

TEST_F(ObjectTest, HostClassSeesACompleteBaseInItsConstructor) {
    const int destroyedBefore = TestNode::c_nDestroyed;
    TestNode* node = MakeNode();
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(TestNode::c_sSeenInConstructor, "id set, resolves yes, live yes");
    // The factory built one prototype when it was registered, and prototypes are in no table.
    EXPECT_EQ(TestNode::c_nPrototypes, 1);
    EXPECT_TRUE(node->IsType(1, MCItem::rttiDerived));
    EXPECT_FALSE(node->IsType(MCGenericObject::c_sType, MCItem::rttiDerived));
    node->Expunge(true);
    EXPECT_EQ(TestNode::c_nDestroyed, destroyedBefore + 1);
}

TEST_F(ObjectTest, ContextIdsAndPrivateIdSpaces) {
    MCIdSpace space;
    IdContext fresh(0, &space);
    MCObject* first = MakeWith(fresh, nullptr);
    MCObject* second = MakeWith(fresh, first);
    EXPECT_EQ(first->GetId(), 1);
    EXPECT_EQ(second->GetId(), 2);
    EXPECT_EQ(space.ResolveId(2), second);

    // An id asked for by the context is used as it is and raises the space's counter past it.
    IdContext chosen(1000, &space);
    MCObject* third = MakeWith(chosen, first);
    EXPECT_EQ(third->GetId(), 1000);
    EXPECT_EQ(space.RequestId(), 1001);

    // Objects of a private space are taken down by hand: the global space never knew them.
    first->Expunge(true);
}

TEST_F(ObjectTest, TakenIdIsRefusedAndLeavesTheOwnerClean) {
    MCObject* root = Make();
    MCObject* child = Make(root);
    IdContext taken(child->GetId(), nullptr);
    EXPECT_THROW(MakeWith(taken, root), EXDuplicateResolution);
    EXPECT_EQ(Ownees(root), std::to_string(child->GetId()));
    EXPECT_EQ(MCObject::ResolveId(child->GetId()), child);
}

TEST_F(ObjectTest, GetOwnerSearchesUpwardsOnly) {
    TestNode* top = MakeNode();
    MCObject* middle = Make(top);
    TestNode* inner = MakeNode(middle);
    MCObject* leaf = Make(inner);
    EXPECT_EQ(leaf->GetOwner(TestNode::c_sType, MCItem::rttiExact), inner);
    EXPECT_EQ(inner->GetOwner(TestNode::c_sType, MCItem::rttiExact), top);  // never itself
    EXPECT_EQ(top->GetOwner(TestNode::c_sType, MCItem::rttiExact), nullptr);
    EXPECT_EQ(top->GetOwner(0, MCItem::rttiExact), nullptr);
    EXPECT_EQ(leaf->GetOwner(1, MCItem::rttiExact), nullptr);  // nobody's code is 1
    EXPECT_EQ(leaf->GetOwner(1, MCItem::rttiDerived), inner);
}

TEST_F(ObjectTest, OwneeListKeepsOrderThroughRemovals) {
    MCObject* root = Make();
    MCObject* a = Make(root);
    MCObject* b = Make(root);
    MCObject* c = Make(root);
    const std::string ids[] = {std::to_string(a->GetId()), std::to_string(b->GetId()),
                               std::to_string(c->GetId())};
    EXPECT_EQ(root->GetOwneeCount(), 3);

    EXPECT_TRUE(root->RemoveOwnedObject(b));
    EXPECT_FALSE(root->RemoveOwnedObject(b));
    EXPECT_EQ(Ownees(root), ids[0] + " " + ids[2]);
    root->AddOwnedObject(b);
    root->AddOwnedObject(b);  // listed already: no second entry
    EXPECT_EQ(Ownees(root), ids[0] + " " + ids[2] + " " + ids[1]);

    // Another owner's object is refused, and so is its destruction through the wrong owner.
    MCObject* other = Make();
    MCObject* foreign = Make(other);
    EXPECT_THROW(root->AddOwnedObject(foreign), EXNonOwnedObject);
    EXPECT_THROW(root->DestroyOwnedObject(foreign), EXNonOwnedObject);
    EXPECT_NE(foreign, nullptr);
    EXPECT_FALSE(root->RemoveOwnedObject(foreign));
    EXPECT_EQ(other->GetOwneeCount(), 1);
    MCObject* none = nullptr;
    root->DestroyOwnedObject(none);  // a null pointer is no error
}

TEST_F(ObjectTest, TypeTestsAndContainedAddresses) {
    MCObject* object = Make();
    EXPECT_TRUE(object->IsType(MCGenericObject::c_sType, MCItem::rttiExact));
    EXPECT_FALSE(object->IsType(1, MCItem::rttiExact));
    EXPECT_TRUE(object->IsType(1, MCItem::rttiDerived));

    const auto* begin = reinterpret_cast<const unsigned char*>(object);
    const unsigned int size = MCFactoryRegistry::GetItemSize(MCGenericObject::c_sType);
    EXPECT_EQ(size, sizeof(MCGenericObject));
    EXPECT_TRUE(object->IsContainedAddress(begin));
    EXPECT_TRUE(object->IsContainedAddress(begin + size));  // one past the end counts
    EXPECT_FALSE(object->IsContainedAddress(begin + size + 1));
    EXPECT_FALSE(object->IsContainedAddress(begin - 1));
}

TEST_F(ObjectTest, SetIdMovesNoIdSpaceEntry) {
    MCObject* object = Make();
    const long oldId = object->GetId();
    const long newId = MCObject::GetIdSpace()->RequestId();
    object->SetId(newId);
    EXPECT_EQ(object->GetId(), newId);
    EXPECT_EQ(MCObject::ResolveId(oldId), object);
    EXPECT_EQ(MCObject::ResolveId(newId), nullptr);
    // Put it back so the fixture finds its root.
    object->SetId(oldId);

    // An object going under another's id leaves that one's entry alone.
    MCObject* other = Make();
    MCObject* impostor = Make();
    const long impostorId = impostor->GetId();
    impostor->SetId(other->GetId());
    impostor->Expunge(true);
    EXPECT_EQ(MCObject::ResolveId(other->GetId()), other);
    EXPECT_EQ(MCObject::ResolveId(impostorId), impostor)
        << "its own entry stays behind: the id was changed by hand";
    MCObject::GetIdSpace()->RemoveId(impostorId);
}

TEST_F(ObjectTest, IsExpungingLooksUpTheTree) {
    MCObject* root = Make();
    MCObject* leaf = Make(Make(root));
    bool seen = false;
    struct Probe : MCSubscriber {
        bool* m_pbSeen;
        MCObject* m_pxLeaf;
        void Notify(MCEvent&) override { *m_pbSeen = m_pxLeaf->IsExpunging(); }
    } probe;
    probe.m_pbSeen = &seen;
    probe.m_pxLeaf = leaf;
    EXPECT_FALSE(leaf->IsExpunging());
    root->AddSubscriber(&probe, MCEvent::subscriberObserver);
    root->Expunge(true);
    EXPECT_TRUE(seen);
}
