// Name spaces: unique naming over a tree of name spaces, the rules that keep the dictionaries right as
// infos, references and objects change or die, the rebuild after a restore, ClearType and the sorter.
#include <algorithm>
#include <sstream>

#include "tests/support/ModelTestSupport.h"

namespace {

constexpr short c_sGeneric = MCGenericObject::c_sType;
constexpr short c_sInfos = 303;     // a name space's infos
constexpr short c_sObject = 305;    // an info's object
constexpr short c_sChildren = 307;  // a name space's children
constexpr short c_sAncestor = 583;  // a name space's ancestor

class NameSpaceTest : public ModelTest {
protected:
    MCNameSpace* MakeSpace(MCNameSpace* parent = nullptr) {
        auto* space = static_cast<MCNameSpace*>(Make(nullptr, MCNameSpace::c_sType));
        space->AddValidType(c_sGeneric);
        if (parent)
            parent->AddChild(space);
        return space;
    }
    // For each blank-separated name: "name*" when this dictionary finds it, "name+" when it is only taken
    // (in a descendant), "name-" when it is free.
    static std::string State(MCNameSpace* space, const std::string& names) {
        std::istringstream in(names);
        std::string name, text;
        while (in >> name) {
            ZVTString key(name.c_str());
            text += (text.empty() ? "" : " ") + name +
                    (space->FindObject(key) ? "*"
                     : space->Contains(key) ? "+"
                                            : "-");
        }
        return text;
    }
    static MCObject* Find(MCNameSpace* space, const char* name) {
        ZVTString text(name);
        return space->FindObject(text);
    }
    static MCStringInfo* InfoOf(MCNameSpace* space, const std::string& name) {
        MCObject* object = Find(space, name.c_str());
        MCVRefIter infos(space, c_sInfos);
        while (object && ++infos) {
            auto* info = dynamic_cast<MCStringInfo*>(infos.GetValue());
            if (info && info->GetObjectA() == object)
                return info;
        }
        return nullptr;
    }
    static long ChildCount(MCNameSpace* space) {
        MCVRefRawAccessor accessor;
        return space->GetProperty(c_sChildren, accessor) ? static_cast<long>(accessor.GetValue().Entries())
                                                         : 0;
    }
};

TEST_F(NameSpaceTest, MakeUniqueNumbersSeparatesCutsAndSortsOnDiffCount) {
    const struct {
        char separator;
        long maxLength;
        int objects;
        const char* names;  // the names the objects end with, blank-separated
    } cases[] = {
        {'_', 8, 10,
         "Entity Entity_2 Entity_3 Entity_4 Entity_5 Entity_6 Entity_7 Entity_8 Entity_9 Entit_10"},
        {0, 0, 3, "Entity Entity2 Entity3"},
        {'-', 20, 2, "Entity Entity-2"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.names);
        MCNameSpace* space = MakeSpace();
        std::string names, results;
        std::vector<MCObject*> infos;  // newest first
        for (int i = 0; i < c.objects; ++i) {
            MCObject* object = Named("Entity");
            results += space->Insert(object, c.separator, c.maxLength, true) ? "T" : "F";
            names += (i ? " " : "") + NameOf(object);
            EXPECT_EQ(Find(space, NameOf(object).c_str()), object);
            infos.insert(infos.begin(), InfoOf(space, NameOf(object)));
        }
        EXPECT_EQ(names, c.names);
        EXPECT_EQ(results, "T" + std::string(c.objects - 1, 'F'));
        EXPECT_EQ(InfoOf(space, "Entity")->GetCount(), c.objects);

        std::rotate(infos.begin() + 1, infos.end() - 1, infos.end());  // 3 1 2, 10 1 9 8 ...
        MCStringInfoSortOnDiffCount sorter;
        sorter.Sort(nullptr, 3);
        sorter.Sort(infos.data(), 1);
        sorter.Sort(infos.data(), static_cast<long>(infos.size()));
        std::string order;
        for (MCObject* info : infos)
            order += std::to_string(static_cast<MCStringInfo*>(info)->GetDiffCount()) + " ";
        EXPECT_EQ(order, c.objects == 2 ? "1 2 " : c.objects == 3 ? "1 2 3 " : "1 2 3 4 5 6 7 8 9 10 ");
    }
}

// Numbers are not handed out twice, a candidate taken directly is skipped, the base name is free again
// once its object died. The two counters share one stored long, 16 bits each: a number that does not fit
// is refused rather than cut into the other half or wrapped, and names made unique past it stay unique.
TEST_F(NameSpaceTest, NumbersAreNotReusedAndCountersRefuseWhatDoesNotFit) {
    MCNameSpace* space = MakeSpace();
    ASSERT_TRUE(space->Insert(Named("Entity_3"), 0, 0, false));
    MCObject* base = Named("Entity");
    MCObject* second = Named("Entity");
    std::string names;
    auto insert = [&](MCObject* object) {
        space->Insert(object, '_', 0, true);
        names += NameOf(object) + " ";
    };
    for (MCObject* object : {base, second, Named("Entity")})
        insert(object);
    EXPECT_FALSE(space->Delete(Named("Entity_2")));  // not the registered object
    EXPECT_FALSE(space->Delete(Named(nullptr)) || space->Delete(Named("")) || space->Delete(nullptr));
    EXPECT_TRUE(space->Delete(second));
    EXPECT_EQ(State(space, "Entity Entity_2 Entity_3 Entity_4"), "Entity* Entity_2- Entity_3* Entity_4*");
    insert(Named("Entity"));
    base->Expunge(true);  // its info dies with it
    EXPECT_EQ(State(space, "Entity"), "Entity-");
    MCObject* again = Named("Entity");
    EXPECT_TRUE(space->Insert(again, '_', 0, true));

    MCStringInfo* info = InfoOf(space, "Entity");
    info->SetCount(65535);
    info->SetDiffCount(7);
    info->SetCount(65536);
    info->SetDiffCount(-1);
    info->SetDiffCount(0x10000);
    EXPECT_EQ(std::to_string(info->GetCount()) + " " + std::to_string(info->GetDiffCount()), "65535 7");
    // Both halves full: the stored long is the 32-bit pattern a file holds, or the entry could not be saved.
    info->SetDiffCount(65535);
    MCSPropertyRawAccessorT<long> stored(0);
    ASSERT_TRUE(info->GetProperty(MCCodes::pStringInfoCount, stored));
    EXPECT_EQ(stored.GetValue(), -1L);
    EXPECT_EQ(info->GetDiffCount(), 65535);
    info->SetDiffCount(7);
    insert(Named("Entity"));
    insert(Named("Entity"));
    EXPECT_EQ(names, "Entity Entity_2 Entity_4 Entity_5 Entity_65536 Entity_65537 ");
    EXPECT_EQ(info->GetCount(), 65535);
    EXPECT_EQ(State(space, "Entity Entity_65537"), "Entity* Entity_65537*");
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
    ASSERT_TRUE(deep->Insert(Named("Y"), 0, 0, false));
    EXPECT_EQ(State(root, "X Y") + " " + State(deep, "X"), "X+ Y+ X*");  // names go down, never up
    EXPECT_EQ(Find(leaf, "X"), x);
    EXPECT_FALSE(root->Insert(Named("X"), 0, 0, false));
    EXPECT_FALSE(leaf->Insert(Named("X"), 0, 0, false));
    EXPECT_TRUE(right->Insert(Named("X"), 0, 0, false));
    MCObject* unique = Named("X");
    EXPECT_FALSE(leaf->Insert(unique, 0, 0, true));
    EXPECT_EQ(NameOf(unique), "X2");
    x->Expunge(true);
    EXPECT_EQ(State(leaf, "X") + " " + State(left, "X"), "X- X-");
}

TEST_F(NameSpaceTest, RefusalsLeaveTheObjectOut) {
    MCNameSpace* space = MakeSpace();
    MCNameSpace* empty = static_cast<MCNameSpace*>(Make(nullptr, MCNameSpace::c_sType));
    ASSERT_TRUE(space->Insert(Named("Taken"), 0, 0, false));
    EXPECT_FALSE(space->Insert(Named("Taken"), 0, 0, false));
    const struct {
        const char* label;
        MCNameSpace* space;
        MCObject* object;
    } cases[] = {
        {"type not valid", space, Named("Taken", nullptr, TestNode::c_sType)},
        {"empty valid list", empty, Named("Free")},
        {"null name", space, Named(nullptr)},
        {"empty name", space, Named("")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        const std::string before = NameOf(c.object);
        for (bool unique : {false, true})
            EXPECT_FALSE(c.space->Insert(c.object, '_', 0, unique));
        EXPECT_EQ(NameOf(c.object), before);
        EXPECT_EQ(State(c.space, "Taken_2 Free"), "Taken_2- Free-");
    }
}

// Pointing an info at another object moves the name; a rename behind the name space's back leaves no
// stale entry once the object dies; a dying name space takes its names along and leaves the tree whole.
TEST_F(NameSpaceTest, EditsAndDeathsLeaveNoStaleEntry) {
    MCNameSpace* root = MakeSpace();
    MCNameSpace* middle = MakeSpace(root);
    MCNameSpace* leaf = MakeSpace(middle);
    MCObject* second = Named("Second");
    ASSERT_TRUE(root->Insert(Named("First"), 0, 0, false));
    InfoOf(root, "First")->SetObject(second);
    EXPECT_EQ(State(root, "First Second") + " " + State(leaf, "Second"), "First- Second* Second*");
    MCSPropertyRawAccessorT<ZVTString> rename{ZVTString("New")};
    second->SetProperty(MCCodes::pName, rename, MCPropertyAccessor::accessAdd);
    second->Expunge(true);
    EXPECT_EQ(State(root, "Second New") + " " + State(leaf, "Second"), "Second- New- Second-");

    ASSERT_TRUE(root->Insert(Named("Top"), 0, 0, false));
    ASSERT_TRUE(middle->Insert(Named("Mid"), 0, 0, false));
    ASSERT_TRUE(leaf->Insert(Named("Low"), 0, 0, false));
    middle->Expunge(true);
    EXPECT_EQ(ChildCount(root), 0);
    EXPECT_EQ(State(root, "Mid Low") + " " + State(leaf, "Top Low"), "Mid- Low- Top- Low*");
    EXPECT_TRUE(root->Insert(Named("Mid"), 0, 0, false));
}

TEST_F(NameSpaceTest, AncestorEditMovesTheChildBetweenParents) {
    MCNameSpace* oldParent = MakeSpace();
    MCNameSpace* newParent = MakeSpace();
    MCNameSpace* child = MakeSpace(oldParent);
    ASSERT_TRUE(child->Insert(Named("Kid"), 0, 0, false));
    ASSERT_TRUE(newParent->Insert(Named("Top"), 0, 0, false));
    MCSRefAccessor accessor(newParent);
    child->SetProperty(c_sAncestor, accessor, MCPropertyAccessor::accessAdd);
    EXPECT_EQ(ChildCount(oldParent) * 10 + ChildCount(newParent), 1);
    // Through the ancestor: earlier names are not pushed down.
    EXPECT_EQ(State(oldParent, "Kid") + " " + State(newParent, "Kid") + " " + State(child, "Top"),
              "Kid- Kid+ Top+");
    newParent->RemoveChild(child);
    EXPECT_EQ(ChildCount(newParent), 0);
    EXPECT_EQ(State(child, "Top"), "Top-");
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
    // The second half and the survivor's info stay; the first half went with the middle one.
    EXPECT_EQ(MCVRefIter(space, c_sInfos).GetCount(), c_iLength / 2);
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
    EXPECT_EQ(ChildCount(a) * 10 + ChildCount(b), 10);

    MCNameSpace* c = MakeSpace();
    MCNameSpace* d = MakeSpace();
    for (MCNameSpace* space : {c, d}) {
        MCNameSpace* other = space == c ? d : c;
        MCVRefRawAccessor child(other);
        MCSRefRawAccessor ancestor(other);
        space->SetProperty(c_sChildren, child, MCPropertyAccessor::accessAdd);
        space->SetProperty(c_sAncestor, ancestor, MCPropertyAccessor::accessAdd);
    }
    MCObject* first = Named("Ring");
    MCObject* second = Named("Ring");
    EXPECT_TRUE(c->Insert(first, 0, 0, false));
    EXPECT_FALSE(d->Insert(second, '_', 0, true));
    EXPECT_EQ(NameOf(second), "Ring_2");
    EXPECT_EQ(State(d, "Ring") + " " + State(c, "Ring_2"), "Ring* Ring_2*");
    EXPECT_TRUE(c->Delete(first));
    EXPECT_EQ(State(d, "Ring"), "Ring-");
    d->Expunge(true);
    EXPECT_EQ(State(c, "Ring_2"), "Ring_2-");
    EXPECT_EQ(ChildCount(c), 0);
}

TEST_F(NameSpaceTest, ClearTypeExpungesTheNamesOfThatType) {
    MCNameSpace* space = MakeSpace();
    space->AddValidType(TestNode::c_sType);
    ASSERT_TRUE(space->Insert(Named("Node", nullptr, TestNode::c_sType), 0, 0, false));
    ASSERT_TRUE(space->Insert(Named("Other", nullptr, TestNode::c_sType), 0, 0, false));
    ASSERT_TRUE(space->Insert(Named("Generic"), 0, 0, false));
    space->ClearType(TestNode::c_sType, true);
    EXPECT_EQ(State(space, "Node Other Generic"), "Node- Other- Generic*");
    EXPECT_FALSE(space->IsValidFor(TestNode::c_sType));
    space->ClearType(c_sGeneric, false);  // the names go, the type stays valid
    EXPECT_EQ(State(space, "Generic"), "Generic-");
    EXPECT_TRUE(space->IsValidFor(c_sGeneric));
}

TEST_F(NameSpaceTest, CalculateDataRebuildsTheDictionaries) {
    MCNameSpace* space = MakeSpace();
    MCNameSpace* child = MakeSpace(space);
    MCObject* object = Named("Entity");
    // As a restore leaves it: the info and its reference are there, the dictionaries are empty.
    auto* info = static_cast<MCStringInfo*>(
        MCFactoryRegistry::CreateItem(MCStringInfo::c_sType, space, nullptr, nullptr));
    MCSRefRawAccessor raw(object);
    info->SetProperty(c_sObject, raw, MCPropertyAccessor::accessAdd);
    info->SetCount(5);
    ASSERT_EQ(State(space, "Entity"), "Entity-");

    MCProperty* property = const_cast<MCProperty*>(info->FindProperty(c_sObject, false));
    MCPropertySemanticContext context;
    auto fire = [&](MCPropertySemantic::mode mode) {
        MCPropertySemanticRegistry::FireSemantics(mode, c_sObject, info, property, &context);
    };
    fire(MCPropertySemantic::PostCalculateData);
    EXPECT_EQ(State(space, "Entity") + " " + State(child, "Entity"), "Entity* Entity*");
    MCObject* next = Named("Entity");
    EXPECT_FALSE(space->Insert(next, '_', 0, true));
    EXPECT_EQ(NameOf(next), "Entity_6");
    fire(MCPropertySemantic::PreCalculateData);
    EXPECT_EQ(State(space, "Entity") + " " + State(child, "Entity"), "Entity- Entity-");
}

}  // namespace
