// Name spaces: unique naming over a tree of name spaces, the rules that keep the dictionaries right as
// infos, references and objects change or die, the rebuild after a restore, ClearType and the sorter.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCNameSpace.h"
#include "ModelCore/ZVFWMC/MCPropertySemantics.h"
#include "tests/support/ModelTestSupport.h"

namespace {

constexpr short c_sGeneric = MCGenericObject::c_sType;

class NameSpaceTest : public ModelTest {
protected:
    MCNameSpace* MakeSpace(MCNameSpace* parent = nullptr) {
        auto* space = static_cast<MCNameSpace*>(Make(nullptr, MCNameSpace::c_sType));
        space->AddValidType(c_sGeneric);
        if (parent)
            parent->AddChild(space);
        return space;
    }
    MCObject* Named(const char* name, short type = c_sGeneric) {
        MCObject* object = Make(nullptr, type);
        if (name) {
            MCSPropertyRawAccessorT<ZVTString> accessor{ZVTString(name)};
            object->SetProperty(MCCodes::pName, accessor, MCPropertyAccessor::accessAdd);
        }
        return object;
    }
    static std::string NameOf(const MCObject* object) {
        MCSPropertyRawAccessorT<ZVTString> accessor;
        return object->GetProperty(MCCodes::pName, accessor) ? accessor.GetValue().str() : "-";
    }
    static bool Has(MCNameSpace* space, const char* name) {
        ZVTString text(name);
        return space->Contains(text);
    }
    static MCObject* Find(MCNameSpace* space, const char* name) {
        ZVTString text(name);
        return space->FindObject(text);
    }
    static MCStringInfo* InfoOf(MCNameSpace* space, const char* name) {
        ZVTString text(name);
        MCObject* object = space->FindObject(text);
        MCVRefRawAccessor accessor;
        space->GetProperty(303, accessor);
        const ZVTSList<MCObject*> infos = accessor.GetValue();
        for (size_t i = 0; i < infos.Entries(); ++i) {
            auto* info = dynamic_cast<MCStringInfo*>(infos.At(i));
            if (info && object && info->GetObjectA() == object)
                return info;
        }
        return nullptr;
    }
    static long ChildCount(MCNameSpace* space) {
        MCVRefRawAccessor accessor;
        return space->GetProperty(307, accessor) ? static_cast<long>(accessor.GetValue().Entries()) : 0;
    }
};

struct UniqueCase {
    char separator;
    long maxLength;
    int objects;
    const char* names;  // the names the objects end with, blank-separated
};

TEST_F(NameSpaceTest, MakeUniqueNumbersSeparatesAndCuts) {
    const UniqueCase cases[] = {
        {'_', 8, 10,
         "Entity Entity_2 Entity_3 Entity_4 Entity_5 Entity_6 Entity_7 Entity_8 Entity_9 Entit_10"},
        {0, 0, 3, "Entity Entity2 Entity3"},
        {'-', 20, 2, "Entity Entity-2"},
    };
    for (const UniqueCase& c : cases) {
        SCOPED_TRACE(std::string(1, c.separator ? c.separator : '0') + std::to_string(c.maxLength));
        MCNameSpace* space = MakeSpace();
        std::string names, results;
        for (int i = 0; i < c.objects; ++i) {
            MCObject* object = Named("Entity");
            results += space->Insert(object, c.separator, c.maxLength, true) ? "T" : "F";
            names += (i ? " " : "") + NameOf(object);
            EXPECT_EQ(Find(space, NameOf(object).c_str()), object);
            EXPECT_EQ(InfoOf(space, NameOf(object).c_str())->GetDiffCount(), i + 1);
        }
        EXPECT_EQ(names, c.names);
        EXPECT_EQ(results, "T" + std::string(c.objects - 1, 'F'));
        EXPECT_EQ(InfoOf(space, "Entity")->GetCount(), c.objects);
    }
}

TEST_F(NameSpaceTest, NumbersAreNotReusedButTheBaseNameIs) {
    MCNameSpace* space = MakeSpace();
    MCObject* base = Named("Entity");
    MCObject* second = Named("Entity");
    space->Insert(base, '_', 0, true);
    space->Insert(second, '_', 0, true);
    space->Insert(Named("Entity"), '_', 0, true);
    EXPECT_FALSE(space->Delete(Named("Entity_2")));  // not the registered object
    EXPECT_FALSE(space->Delete(Named(nullptr)) || space->Delete(Named("")) || space->Delete(nullptr));
    EXPECT_TRUE(Has(space, "Entity_2"));
    EXPECT_TRUE(space->Delete(second));
    EXPECT_FALSE(Has(space, "Entity_2"));
    MCObject* fourth = Named("Entity");
    space->Insert(fourth, '_', 0, true);
    EXPECT_EQ(NameOf(fourth), "Entity_4");

    base->Expunge(true);  // its info dies with it
    EXPECT_FALSE(Has(space, "Entity"));
    MCObject* again = Named("Entity");
    EXPECT_TRUE(space->Insert(again, '_', 0, true));
    EXPECT_EQ(NameOf(again), "Entity");
}

TEST_F(NameSpaceTest, CandidatesSkipNamesTakenDirectly) {
    MCNameSpace* space = MakeSpace();
    ASSERT_TRUE(space->Insert(Named("Entity2"), 0, 0, false));
    space->Insert(Named("Entity"), 0, 0, true);
    MCObject* second = Named("Entity");
    EXPECT_FALSE(space->Insert(second, 0, 0, true));
    EXPECT_EQ(NameOf(second), "Entity3");
}

TEST_F(NameSpaceTest, NamesAreTakenUpAndDownTheTreeButNotAcrossIt) {
    MCNameSpace* root = MakeSpace();
    MCNameSpace* left = MakeSpace(root);
    MCNameSpace* right = MakeSpace(root);
    MCNameSpace* leaf = MakeSpace(left);
    MCNameSpace* deep = leaf;
    for (int depth = 0; depth < 20; ++depth)  // deeper than a walk remembers without allocating
        deep = MakeSpace(deep);
    MCObject* x = Named("X");
    ASSERT_TRUE(left->Insert(x, 0, 0, false));

    EXPECT_TRUE(Has(root, "X"));
    EXPECT_EQ(Find(root, "X"), nullptr);  // names go down, never up
    EXPECT_EQ(Find(leaf, "X"), x);
    EXPECT_EQ(Find(deep, "X"), x);
    EXPECT_TRUE(deep->Insert(Named("Y"), 0, 0, false) && Has(root, "Y"));
    EXPECT_FALSE(root->Insert(Named("X"), 0, 0, false));
    EXPECT_FALSE(leaf->Insert(Named("X"), 0, 0, false));
    EXPECT_TRUE(right->Insert(Named("X"), 0, 0, false));

    MCObject* unique = Named("X");
    EXPECT_FALSE(leaf->Insert(unique, 0, 0, true));
    EXPECT_EQ(NameOf(unique), "X2");

    x->Expunge(true);
    EXPECT_EQ(Find(leaf, "X"), nullptr);
    EXPECT_FALSE(Has(left, "X"));
}

TEST_F(NameSpaceTest, RefusalsLeaveTheObjectOut) {
    MCNameSpace* space = MakeSpace();
    MCNameSpace* empty = static_cast<MCNameSpace*>(Make(nullptr, MCNameSpace::c_sType));
    ASSERT_TRUE(space->Insert(Named("Taken"), 0, 0, false));
    struct Case {
        const char* label;
        MCNameSpace* space;
        MCObject* object;
    } const cases[] = {
        {"type not valid", space, Named("Taken", TestNode::c_sType)},
        {"empty valid list", empty, Named("Free")},
        {"null name", space, Named(nullptr)},
        {"empty name", space, Named("")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        const std::string before = NameOf(c.object);
        for (bool unique : {false, true})
            EXPECT_FALSE(c.space->Insert(c.object, '_', 0, unique));
        EXPECT_EQ(NameOf(c.object), before);
        EXPECT_EQ(Find(c.space, "Taken_2"), nullptr);
        EXPECT_EQ(Find(c.space, "Free"), nullptr);
    }
    EXPECT_FALSE(space->Insert(Named("Taken"), 0, 0, false));
}

TEST_F(NameSpaceTest, EditingTheInfoReferenceMovesTheName) {
    MCNameSpace* space = MakeSpace();
    MCNameSpace* child = MakeSpace(space);
    MCObject* first = Named("First");
    MCObject* second = Named("Second");
    ASSERT_TRUE(space->Insert(first, 0, 0, false));
    InfoOf(space, "First")->SetObject(second);
    EXPECT_FALSE(Has(space, "First"));
    EXPECT_EQ(Find(space, "Second"), second);
    EXPECT_EQ(Find(child, "Second"), second);
}

TEST_F(NameSpaceTest, ARenameBehindTheNameSpacesBackLeavesNoStaleEntry) {
    MCNameSpace* space = MakeSpace();
    MCObject* object = Named("Old");
    ASSERT_TRUE(space->Insert(object, 0, 0, false));
    MCSPropertyRawAccessorT<ZVTString> rename{ZVTString("New")};
    object->SetProperty(MCCodes::pName, rename, MCPropertyAccessor::accessAdd);
    object->Expunge(true);
    EXPECT_EQ(Find(space, "Old"), nullptr);
    EXPECT_FALSE(Has(space, "Old"));
}

TEST_F(NameSpaceTest, AncestorEditMovesTheChildBetweenParents) {
    MCNameSpace* oldParent = MakeSpace();
    MCNameSpace* newParent = MakeSpace();
    MCNameSpace* child = MakeSpace(oldParent);
    ASSERT_TRUE(child->Insert(Named("Kid"), 0, 0, false));
    ASSERT_TRUE(newParent->Insert(Named("Top"), 0, 0, false));
    EXPECT_TRUE(Has(oldParent, "Kid"));

    MCSRefAccessor accessor(newParent);
    child->SetProperty(583, accessor, MCPropertyAccessor::accessAdd);
    EXPECT_EQ(ChildCount(oldParent), 0);
    EXPECT_EQ(ChildCount(newParent), 1);
    EXPECT_FALSE(Has(oldParent, "Kid"));
    EXPECT_TRUE(Has(newParent, "Kid"));
    EXPECT_TRUE(Has(child, "Top"));  // through the ancestor: earlier names are not pushed down

    newParent->RemoveChild(child);
    EXPECT_EQ(ChildCount(newParent), 0);
    EXPECT_FALSE(Has(child, "Top"));
}

TEST_F(NameSpaceTest, ADyingNameSpaceLeavesTheTreeWhole) {
    MCNameSpace* root = MakeSpace();
    MCNameSpace* middle = MakeSpace(root);
    MCNameSpace* leaf = MakeSpace(middle);
    ASSERT_TRUE(root->Insert(Named("Top"), 0, 0, false));
    ASSERT_TRUE(middle->Insert(Named("Mid"), 0, 0, false));
    ASSERT_TRUE(leaf->Insert(Named("Low"), 0, 0, false));
    middle->Expunge(true);
    EXPECT_EQ(ChildCount(root), 0);
    EXPECT_FALSE(Has(root, "Mid"));
    EXPECT_FALSE(Has(root, "Low"));
    EXPECT_FALSE(Has(leaf, "Top"));
    EXPECT_TRUE(Has(leaf, "Low"));
    EXPECT_TRUE(root->Insert(Named("Mid"), 0, 0, false));
}

// A file may make an info name another info: each death then takes the info before it, a chain as
// long as the file makes it, which must not cost call depth. A small stack makes a recursion fail.
TEST_F(NameSpaceTest, AChainOfInfosNamingInfosGoesWithoutDeepening) {
    MCNameSpace* space = MakeSpace();
    constexpr int c_iLength = 6000;
    std::vector<MCStringInfo*> chain;
    for (int i = 0; i < c_iLength; ++i) {
        ZVTString name(("n" + std::to_string(i)).c_str());
        chain.push_back(space->CreateStringInfo(name));
        ASSERT_NE(chain.back(), nullptr);
    }
    for (int i = 0; i + 1 < c_iLength; ++i)
        chain[i]->SetObject(chain[i + 1]);
    MCObject* survivor = Named("Survivor");
    ASSERT_TRUE(space->Insert(survivor, 0, 0, false));

    ASSERT_TRUE(RunOnStack(1 << 20, [&] { chain[c_iLength / 2]->Expunge(true); }));
    MCVRefRawAccessor accessor;
    ASSERT_TRUE(space->GetProperty(303, accessor));
    // The second half and the survivor's info stay; the first half went with the middle one.
    EXPECT_EQ(accessor.GetValue().Entries(), static_cast<size_t>(c_iLength / 2));
    EXPECT_EQ(Find(space, "Survivor"), survivor);
    EXPECT_EQ(chain[c_iLength / 2 + 1]->GetObjectA(), chain[c_iLength / 2 + 2]);
}

// No edit can make a name space its own ancestor; a file can (references are restored raw), and then
// every walk over the tree of name spaces must still end.
TEST_F(NameSpaceTest, RingsOfNameSpacesAreRefusedOrSurvived) {
    MCNameSpace* a = MakeSpace();
    MCNameSpace* b = MakeSpace(a);
    a->AddChild(a);
    b->AddChild(a);
    a->AddChild(nullptr);
    b->RemoveChild(nullptr);
    EXPECT_EQ(ChildCount(a), 1);
    EXPECT_EQ(ChildCount(b), 0);

    MCNameSpace* c = MakeSpace();
    MCNameSpace* d = MakeSpace();
    MCVRefRawAccessor childD(d);
    MCVRefRawAccessor childC(c);
    MCSRefRawAccessor ancestorC(c);
    MCSRefRawAccessor ancestorD(d);
    c->SetProperty(307, childD, MCPropertyAccessor::accessAdd);
    d->SetProperty(307, childC, MCPropertyAccessor::accessAdd);
    d->SetProperty(583, ancestorC, MCPropertyAccessor::accessAdd);
    c->SetProperty(583, ancestorD, MCPropertyAccessor::accessAdd);
    MCObject* first = Named("Ring");
    MCObject* second = Named("Ring");
    EXPECT_TRUE(c->Insert(first, 0, 0, false));
    EXPECT_FALSE(d->Insert(second, '_', 0, true));
    EXPECT_EQ(NameOf(second), "Ring_2");
    EXPECT_EQ(Find(d, "Ring"), first);
    EXPECT_EQ(Find(c, "Ring_2"), second);
    EXPECT_TRUE(c->Delete(first));
    EXPECT_FALSE(Has(d, "Ring"));
    d->Expunge(true);
    EXPECT_FALSE(Has(c, "Ring_2"));
    EXPECT_EQ(ChildCount(c), 0);
}

TEST_F(NameSpaceTest, ClearTypeExpungesTheNamesOfThatType) {
    MCNameSpace* space = MakeSpace();
    space->AddValidType(TestNode::c_sType);
    ASSERT_TRUE(space->Insert(Named("Node", TestNode::c_sType), 0, 0, false));
    ASSERT_TRUE(space->Insert(Named("Other", TestNode::c_sType), 0, 0, false));
    ASSERT_TRUE(space->Insert(Named("Generic"), 0, 0, false));
    space->ClearType(TestNode::c_sType, true);
    EXPECT_FALSE(Has(space, "Node"));
    EXPECT_FALSE(Has(space, "Other"));
    EXPECT_TRUE(Has(space, "Generic"));
    EXPECT_FALSE(space->IsValidFor(TestNode::c_sType));
    space->ClearType(c_sGeneric, false);  // the names go, the type stays valid
    EXPECT_FALSE(Has(space, "Generic"));
    EXPECT_TRUE(space->IsValidFor(c_sGeneric));
}

// The two counters share one stored long, 16 bits each: a number that does not fit is refused rather than
// cut into the other half or wrapped, and names made unique past the limit stay unique.
TEST_F(NameSpaceTest, CountersRefuseWhatDoesNotFitAndNamesStayUnique) {
    MCNameSpace* space = MakeSpace();
    ASSERT_TRUE(space->Insert(Named("Entity"), 0, 0, false));
    MCStringInfo* base = InfoOf(space, "Entity");
    base->SetCount(65535);
    base->SetDiffCount(7);
    base->SetCount(65536);
    base->SetDiffCount(-1);
    base->SetDiffCount(0x10000);
    EXPECT_EQ(base->GetCount(), 65535);
    EXPECT_EQ(base->GetDiffCount(), 7);

    MCObject* first = Named("Entity");
    MCObject* second = Named("Entity");
    EXPECT_FALSE(space->Insert(first, '_', 0, true));
    EXPECT_FALSE(space->Insert(second, '_', 0, true));
    EXPECT_EQ(NameOf(first), "Entity_65536");
    EXPECT_EQ(NameOf(second), "Entity_65537");
    EXPECT_EQ(base->GetCount(), 65535);
    EXPECT_EQ(Find(space, "Entity_65537"), second);
}

TEST_F(NameSpaceTest, CalculateDataRebuildsTheDictionaries) {
    MCNameSpace* space = MakeSpace();
    MCNameSpace* child = MakeSpace(space);
    MCObject* object = Named("Entity");
    // As a restore leaves it: the info and its reference are there, the dictionaries are empty.
    auto* info = static_cast<MCStringInfo*>(
        MCFactoryRegistry::CreateItem(MCStringInfo::c_sType, space, nullptr, nullptr));
    MCSRefRawAccessor raw(object);
    info->SetProperty(305, raw, MCPropertyAccessor::accessAdd);
    info->SetCount(5);
    ASSERT_FALSE(Has(space, "Entity"));

    MCProperty* property = const_cast<MCProperty*>(info->FindProperty(305, false));
    MCPropertySemanticContext context;
    MCPropertySemanticRegistry::FireSemantics(MCPropertySemantic::PostCalculateData, 305, info, property,
                                              &context);
    EXPECT_EQ(Find(space, "Entity"), object);
    EXPECT_EQ(Find(child, "Entity"), object);
    MCObject* next = Named("Entity");
    EXPECT_FALSE(space->Insert(next, '_', 0, true));
    EXPECT_EQ(NameOf(next), "Entity_6");

    MCPropertySemanticRegistry::FireSemantics(MCPropertySemantic::PreCalculateData, 305, info, property,
                                              &context);
    EXPECT_EQ(Find(space, "Entity"), nullptr);
    EXPECT_EQ(Find(child, "Entity"), nullptr);
}

TEST_F(NameSpaceTest, SorterOrdersOnDiffCount) {
    MCNameSpace* space = MakeSpace();
    for (int i = 0; i < 3; ++i)
        space->Insert(Named("E"), 0, 0, true);
    MCObject* items[] = {InfoOf(space, "E3"), InfoOf(space, "E"), InfoOf(space, "E2")};
    MCStringInfoSortOnDiffCount sorter;
    sorter.Sort(nullptr, 3);
    sorter.Sort(items, 1);
    sorter.Sort(items, 3);
    std::string order;
    for (MCObject* item : items)
        order += std::to_string(static_cast<MCStringInfo*>(item)->GetDiffCount());
    EXPECT_EQ(order, "123");
}

}  // namespace
