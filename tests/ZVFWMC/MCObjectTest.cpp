// Objects: the working constructor's order and id rules, ownership links and their refusals, type tests,
// the address test behind embedded properties, and IsExpunging during the end of a tree.

#include "support/ModelTestSupport.h"

namespace {

// A context that asks for a chosen id in a private id space.
class IdContext : public MCFactoryContext {
public:
    IdContext(long id, MCIdSpace* space) : m_lId(id), m_pxSpace(space) {}
    long RequestId() override { return m_lId; }
    MCIdSpace* GetIdSpace() override { return m_pxSpace; }

private:
    long m_lId;
    MCIdSpace* m_pxSpace;
};

MCObject* MakeWith(IdContext&& context, MCObject* owner) {
    return static_cast<MCObject*>(
        MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, owner, &context, nullptr));
}

std::string Id(const MCObject* object) {
    return std::to_string(object->GetId());
}

std::string Ownees(const MCObject* owner) {
    std::string ids;
    for (MCObject* ownee = owner->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
        ids += (ids.empty() ? "" : " ") + Id(ownee);
    return ids;
}

}  // namespace

using ObjectTest = ModelTest;

// The working constructor gives the next id, enters the object in its space, the owner's list and the live
// table, and subscribes the owner (only it) to its ownee.
TEST_F(ObjectTest, OwnershipLinksKeepOrderAndRefuseForeignObjects) {
    MCObject* root = Make();
    MCObject* a = Make(root);
    MCObject* b = Make(root);
    MCObject* c = Make(root);
    EXPECT_EQ(a->GetId(), root->GetId() + 1);
    EXPECT_TRUE(MCObject::ResolveId(a->GetId()) == a && a->GetOwner(0, MCItem::rttiExact) == root);
    {
        MCSubscriberListIter subscribers(a);  // a walk holds its subject: it must end before `a` does
        EXPECT_TRUE(++subscribers && subscribers.GetValue() == static_cast<MCSubscriber*>(root) &&
                    !++subscribers);
    }
    ZVTHTableT<MCObject*>* live = nullptr;
    ASSERT_TRUE(MCFactoryRegistry::GetInstances(MCGenericObject::c_sType, live, nullptr));
    EXPECT_TRUE(live->Contains(a));

    EXPECT_TRUE(root->RemoveOwnedObject(b));
    EXPECT_FALSE(root->RemoveOwnedObject(b));
    root->AddOwnedObject(b);
    root->AddOwnedObject(b);  // listed already: no second entry
    EXPECT_EQ(Ownees(root) + " #" + std::to_string(root->GetOwneeCount()),
              Id(a) + " " + Id(c) + " " + Id(b) + " #3");

    // Another owner's object is refused, and so is its destruction through the wrong owner.
    MCObject* other = Make();
    MCObject* foreign = Make(other);
    EXPECT_THROW(root->AddOwnedObject(foreign), EXNonOwnedObject);
    EXPECT_THROW(root->DestroyOwnedObject(foreign), EXNonOwnedObject);
    EXPECT_FALSE(root->RemoveOwnedObject(foreign));
    EXPECT_EQ(Ownees(other), Id(foreign));
    MCObject* none = nullptr;
    root->DestroyOwnedObject(none);  // a null pointer is no error

    const long id = a->GetId();
    root->DestroyOwnedObject(a);
    EXPECT_TRUE(a == nullptr && MCObject::ResolveId(id) == nullptr);
    EXPECT_EQ(Ownees(root), Id(c) + " " + Id(b));
    EXPECT_EQ(live->Occurrences(root), 1u);
}

TEST_F(ObjectTest, IdsComeFromTheContextOrItsSpaceAndSetIdMovesNoEntry) {
    MCIdSpace space;
    MCObject* first = MakeWith(IdContext(0, &space), nullptr);
    MCObject* second = MakeWith(IdContext(0, &space), first);
    // An id asked for by the context is used as it is and raises the space's counter past it.
    MCObject* chosen = MakeWith(IdContext(1000, &space), first);
    EXPECT_EQ(Id(first) + " " + Id(second) + " " + Id(chosen) + " " + std::to_string(space.RequestId()),
              "1 2 1000 1001");
    // A taken id is refused and leaves the owner clean.
    EXPECT_THROW(MakeWith(IdContext(2, &space), first), EXDuplicateResolution);
    EXPECT_EQ(Ownees(first), "2 1000");
    EXPECT_EQ(space.ResolveId(2), second);
    // Objects of a private space are taken down by hand: the global space never knew them.
    first->Expunge(true);

    // An object going under another's id leaves both entries alone.
    MCObject* other = Make();
    MCObject* impostor = Make();
    const long impostorId = impostor->GetId();
    impostor->SetId(other->GetId());
    impostor->Expunge(true);
    EXPECT_EQ(MCObject::ResolveId(other->GetId()), other);
    EXPECT_EQ(MCObject::ResolveId(impostorId), impostor) << "its own entry stays behind";
    MCObject::GetIdSpace()->RemoveId(impostorId);
}

// SetId writes the id without an accessor and must leave value and flags as a raw set does: an unchanged
// id keeps SA, a new or nulled one loses SA and the nulled flag.
TEST_F(ObjectTest, SetIdLeavesTheIdPropertyAsARawSetDoes) {
    for (int offset : {0, 7}) {
        for (bool nulled : {false, true}) {
            std::string seen[2];
            for (int raw = 0; raw < 2; ++raw) {
                MCObject* object = Make();
                const long own = object->GetId();
                auto* id = const_cast<MCProperty*>(object->FindProperty(MCCodes::pId, true));
                object->SetPropertyFlag(id, MCItem::itemSA, true);
                MCSPropertyRawAccessorT<long> nulling, accessor(own + offset);
                ASSERT_TRUE(!nulled || object->NullProperty(id, &nulling));
                raw ? (void)object->SetProperty(MCCodes::pId, accessor, 1) : object->SetId(own + offset);
                seen[raw] = std::to_string(object->GetId() - own) +
                            (id->GetFlag(MCItem::itemSA) ? " SA" : "") +
                            (id->GetFlag(MCItem::itemNulled) ? " nulled" : "");
                object->SetId(own);
                object->Expunge(true);
            }
            EXPECT_EQ(seen[0] + "|" + seen[1], std::to_string(offset) + (offset || nulled ? "" : " SA") +
                                                   "|" + std::to_string(offset) +
                                                   (offset || nulled ? "" : " SA"));
        }
    }
}

TEST_F(ObjectTest, TypesOwnersContainedAddressesAndIsExpunging) {
    const int destroyedBefore = TestNode::c_nDestroyed;
    TestNode* top = MakeNode();
    EXPECT_EQ(TestNode::c_sSeenInConstructor, "id set, resolves yes, live yes");
    // The factory built one prototype when it was registered, and prototypes are in no table.
    EXPECT_EQ(TestNode::c_nPrototypes, 1);
    MCObject* middle = Make(top);
    TestNode* inner = MakeNode(middle);
    MCObject* leaf = Make(inner);
    // Never the object itself; nobody's code is 1.
    const std::pair<MCObject*, short> asked[] = {{leaf, TestNode::c_sType},
                                                 {inner, TestNode::c_sType},
                                                 {top, TestNode::c_sType},
                                                 {top, 0},
                                                 {leaf, 1},
                                                 {leaf, -1}};
    std::string owners;
    for (const auto& [object, type] : asked) {
        MCObject* owner =
            object->GetOwner(type < 0 ? 1 : type, type < 0 ? MCItem::rttiDerived : MCItem::rttiExact);
        owners += owner == inner ? "i" : owner == top ? "t" : owner ? "?" : "-";
    }
    EXPECT_EQ(owners, "it---i");
    std::string types;
    for (MCObject* object : {static_cast<MCObject*>(top), middle})
        for (short type : {MCGenericObject::c_sType, short{1}})
            for (auto rtti : {MCItem::rttiExact, MCItem::rttiDerived})
                types += std::string(types.size() == 4 ? " " : "") + (object->IsType(type, rtti) ? "1" : "0");
    EXPECT_EQ(types, "0001 1101");

    const auto* begin = reinterpret_cast<const unsigned char*>(middle);
    // The registry's size, which one past the end counts with.
    const unsigned int size = MCFactoryRegistry::GetItemSize(MCGenericObject::c_sType);
    std::string contained;
    for (const unsigned char* at : {begin - 1, begin, begin + size, begin + size + 1})
        contained += middle->IsContainedAddress(at) ? "1" : "0";  // one past the end counts
    EXPECT_EQ(contained, "0110");

    // While the tree goes, an ownee not yet reached is expunging already.
    static std::string s_sSeen;
    static MCObject* s_pxLeaf;
    s_sSeen = leaf->IsExpunging() ? "yes" : "no";
    s_pxLeaf = leaf;
    struct Probe : MCSubscriber {
        void Notify(MCEvent&) override { s_sSeen += s_pxLeaf->IsExpunging() ? " yes" : " no"; }
    } probe;
    top->AddSubscriber(&probe, MCEvent::subscriberObserver);
    top->Expunge(true);
    EXPECT_EQ(s_sSeen.substr(0, 6), "no yes");
    EXPECT_EQ(TestNode::c_nDestroyed, destroyedBefore + 2);
}
