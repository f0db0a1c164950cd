// Objects: ownership links and their refusals, the ids the working constructor gives and SetId, type and
// owner tests, and the address test behind embedded properties.

#include "support/ModelTestSupport.h"

namespace {

std::string Ownees(const MCObject* owner) {
    std::string ids;
    for (MCObject* ownee = owner->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
        ids += (ids.empty() ? "" : " ") + ModelTest::Id(ownee);
    return ids;
}

// A class bigger than TestNode with a property embedded past TestNode's size; counts the prototypes built.
struct Big : MCObject {
    Big(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : MCObject(type, signature, context), m_xEmbedded(MCCodes::pInteger, this) {
        ++c_nBuilt;
    }
    Big(MCObject* owner, MCFactoryContext* context)
        : MCObject(TestNode::c_sType, owner, context), m_xEmbedded(MCCodes::pInteger, this) {}
    char m_acPad[1024] = {};
    MCSPropertyT<long> m_xEmbedded;
    static inline int c_nBuilt = 0;
};

}  // namespace

using ObjectTest = ModelTest;

// Refused under a code TestNode holds, Big builds no prototype: it would run under TestNode's registration
// and be taken down by TestNode's size, which does not cover its embedded property.
TEST_F(ObjectTest, AClassRefusedUnderATakenCodeBuildsNoPrototype) {
    MCObjectFactoryT<Big, MCObject> refused(TestNode::c_sType, "Big", MCCodes::tAbstractObject, 0, 0, 0,
                                            false, false);
    EXPECT_EQ(Big::c_nBuilt, 0);
    EXPECT_EQ(MCFactoryRegistry::GetItemSize(TestNode::c_sType), sizeof(TestNode));
}

TEST_F(ObjectTest, OwnershipLinksKeepOrderAndRefuseForeignObjects) {
    MCObject *root = Make(), *a = Make(root), *b = Make(root), *c = MakeNode(root);
    // The working constructor has the object in its id space and the live table before the class's part.
    EXPECT_EQ(TestNode::c_sSeenInConstructor, "id set, resolves yes, live yes");
    EXPECT_TRUE(root->RemoveOwnedObject(b) && !root->RemoveOwnedObject(b));
    root->AddOwnedObject(b);
    root->AddOwnedObject(b);  // listed already: no second entry
    EXPECT_EQ(Ownees(root), Id(a) + " " + Id(c) + " " + Id(b));

    // Another owner's object is refused, and so is its destruction through the wrong owner.
    MCObject* foreign = Make(Make());
    EXPECT_THROW(root->AddOwnedObject(foreign), EXNonOwnedObject);
    EXPECT_THROW(root->DestroyOwnedObject(foreign), EXNonOwnedObject);
    MCObject* none = nullptr;
    root->DestroyOwnedObject(none);  // a null pointer is no error
    root->DestroyOwnedObject(a);     // and nulls the caller's pointer
    EXPECT_EQ(Id(a) + " " + Ownees(root), "- " + Id(c) + " " + Id(b));
}

TEST_F(ObjectTest, IdsComeFromTheContextOrItsSpaceAndSetIdMovesNoEntry) {
    MCIdSpace space;
    MCObject *first = MakeWith(0, space, nullptr), *second = MakeWith(0, space, first);
    MCObject* chosen = MakeWith(1000, space, first);  // raises the space's counter past it
    EXPECT_EQ(Id(first) + " " + Id(second) + " " + Id(chosen) + " " + std::to_string(space.RequestId()),
              "1 2 1000 1001");
    EXPECT_THROW(MakeWith(2, space, first), EXDuplicateResolution);
    EXPECT_EQ(Ownees(first), "2 1000");
    EXPECT_EQ(space.ResolveId(2), second);
    // Objects of a private space are taken down by hand: the global space never knew them.
    first->Expunge(true);

    // An object going under another's id leaves that entry alone when it goes; its own entry stays behind.
    MCObject *other = Make(), *impostor = Make();
    const long own = impostor->GetId();
    impostor->SetId(other->GetId());
    impostor->Expunge(true);
    EXPECT_EQ(MCObject::ResolveId(other->GetId()), other);
    EXPECT_EQ(MCObject::ResolveId(own), impostor);
    MCObject::GetIdSpace()->RemoveId(own);
}

// SetId writes the id without an accessor and must leave the flags a raw set leaves: an unchanged id keeps
// SA, a new or nulled one loses SA and the nulled flag.
TEST_F(ObjectTest, SetIdLeavesTheFlagsOfARawSet) {
    std::string seen[2];
    for (int i = 0; i < 8; ++i) {  // 1: a new id, 2: nulled first, 4: a raw set rather than SetId
        MCObject* object = Make();
        const long own = object->GetId(), id = own + (i & 1) * 7;
        MCProperty* property = PropertyOf(object, MCCodes::pId);
        MCSPropertyRawAccessorT<long> nulling, accessor(id);
        ASSERT_TRUE(object->SetPropertyFlag(property, MCItem::itemSA, true) &&
                    (!(i & 2) || object->NullProperty(property, &nulling)));
        i & 4 ? (void)object->SetProperty(MCCodes::pId, accessor, 1) : object->SetId(id);
        seen[i >> 2] +=
            std::to_string(object->GetId() - own) + "/" + std::to_string(property->GetFlags()) + " ";
        object->SetId(own);
    }
    EXPECT_EQ(seen[0], "0/4 7/0 0/0 7/0 ");
    EXPECT_EQ(seen[1], seen[0]);
}

TEST_F(ObjectTest, TypesOwnersAndContainedAddresses) {
    TestNode* top = MakeNode();
    MCObject* middle = Make(top);
    TestNode* inner = MakeNode(middle);
    MCObject* leaf = Make(inner);
    // The nearest owner of the type, never the object itself; nobody's code is the abstract root's.
    std::string seen;
    for (MCObject* object : {leaf, static_cast<MCObject*>(inner), static_cast<MCObject*>(top)})
        seen += Id(object->GetOwner(TestNode::c_sType, MCItem::rttiExact)) + " ";
    for (auto how : {MCItem::rttiExact, MCItem::rttiDerived})
        seen += Id(leaf->GetOwner(MCCodes::tAbstractObject, how)) + " ";
    // Per object: GenericObject exact, derived; AbstractObject exact, derived.
    for (MCObject* object : {static_cast<MCObject*>(top), middle})
        for (short type : {MCCodes::tGenericObject, MCCodes::tAbstractObject})
            for (auto how : {MCItem::rttiExact, MCItem::rttiDerived})
                seen += object->IsType(type, how) ? "1" : "0";
    // The registry's size, one past the end included.
    const auto* begin = reinterpret_cast<const unsigned char*>(middle) - 1;
    const unsigned int size = MCFactoryRegistry::GetItemSize(MCGenericObject::c_sType);
    for (const unsigned char* at : {begin, begin + 1, begin + 1 + size, begin + 2 + size})
        seen += middle->IsContainedAddress(at) ? "1" : "0";
    EXPECT_EQ(seen, Id(inner) + " " + Id(top) + " - - " + Id(inner) + " 000111010110");
}
