// Name spaces: unique naming over a tree of name spaces, the counters behind it, the rules that keep the
// dictionaries right as infos, references and name spaces change or die, the rebuild after a restore,
// ClearType and the sorter.
#include <algorithm>
#include <sstream>
#include <tuple>

#include "tests/support/ModelTestSupport.h"

namespace {

constexpr short c_sGeneric = MCGenericObject::c_sType;
constexpr short c_sInfos = 303;     // a name space's infos
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
    static MCStringInfo* InfoOf(MCNameSpace* space, const std::string& name) {
        ZVTString key(name.c_str());
        MCObject* object = space->FindObject(key);
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
    // Separator, longest name, the names the objects end with (the first needs no number).
    const std::tuple<char, long, std::string> cases[] = {
        {'_', 8, "Entity Entity_2 Entity_3 Entity_4 Entity_5 Entity_6 Entity_7 Entity_8 Entity_9 Entit_10"},
        {0, 0, "Entity Entity2 Entity3"},
        {'-', 20, "Entity Entity-2"},
    };
    for (const auto& [separator, maxLength, expected] : cases) {
        SCOPED_TRACE(expected);
        MCNameSpace* space = MakeSpace();
        std::string names, results, sorted;
        std::vector<MCObject*> infos;  // newest first
        for (int i = 0; names.size() < expected.size(); ++i) {
            MCObject* object = Named("Entity");
            results += space->Insert(object, separator, maxLength, true) ? "T" : "F";
            names += (i ? " " : "") + NameOf(object);
            infos.insert(infos.begin(), InfoOf(space, NameOf(object)));
            ASSERT_TRUE(infos.front());
            sorted += std::to_string(i + 1) + " ";
        }
        EXPECT_EQ(names + " " + results + " " + std::to_string(InfoOf(space, "Entity")->GetCount()),
                  expected + " T" + std::string(infos.size() - 1, 'F') + " " + std::to_string(infos.size()));

        std::rotate(infos.begin() + 1, infos.end() - 1, infos.end());  // 3 1 2, 10 1 9 8 ...
        MCStringInfoSortOnDiffCount sorter;
        sorter.Sort(nullptr, 3);
        sorter.Sort(infos.data(), 1);
        sorter.Sort(infos.data(), static_cast<long>(infos.size()));
        std::string order;
        for (MCObject* info : infos)
            order += std::to_string(static_cast<MCStringInfo*>(info)->GetDiffCount()) + " ";
        EXPECT_EQ(order, sorted);
    }
}

// Numbers are not handed out twice, a candidate taken directly is skipped, the base name is free again
// once its object died. The two counters share one stored long, 16 bits each: a number that does not fit
// is refused rather than cut into the other half or wrapped, and names made unique past it stay unique.
TEST_F(NameSpaceTest, NumbersAreNotReusedAndCountersRefuseWhatDoesNotFit) {
    MCNameSpace* space = MakeSpace();
    ASSERT_TRUE(space->Insert(Named("Entity_3"), 0, 0, false));
    MCObject *base = Named("Entity"), *second = Named("Entity");
    std::string names;
    auto insert = [&](MCObject* object) {
        space->Insert(object, '_', 0, true);
        names += NameOf(object) + " ";
    };
    for (MCObject* object : {base, second, Named("Entity")})
        insert(object);
    // Only the registered object itself, with a name, is deleted.
    for (MCObject* other : {Named("Entity_2"), Named(nullptr), Named(""), static_cast<MCObject*>(nullptr)})
        EXPECT_FALSE(space->Delete(other)) << NameOf(other);
    EXPECT_TRUE(space->Delete(second));
    EXPECT_EQ(State(space, "Entity Entity_2 Entity_3 Entity_4"), "Entity* Entity_2- Entity_3* Entity_4*");
    insert(Named("Entity"));
    base->Expunge(true);  // its info dies with it
    EXPECT_EQ(State(space, "Entity"), "Entity-");
    EXPECT_TRUE(space->Insert(Named("Entity"), '_', 0, true));

    MCStringInfo* info = InfoOf(space, "Entity");
    info->SetCount(65535);
    info->SetDiffCount(7);
    for (long refused : {-1L, 0x10000L}) {
        info->SetCount(refused);
        info->SetDiffCount(refused);
    }
    EXPECT_EQ(std::to_string(info->GetCount()) + " " + std::to_string(info->GetDiffCount()), "65535 7");
    // Both halves full: the stored long is the 32-bit pattern a file holds, or the entry could not be saved.
    info->SetDiffCount(65535);
    MCSPropertyRawAccessorT<long> stored(0);
    ASSERT_TRUE(info->GetProperty(MCCodes::pStringInfoCount, stored));
    EXPECT_EQ(std::to_string(stored.GetValue()) + " " + std::to_string(info->GetDiffCount()), "-1 65535");
    info->SetDiffCount(7);
    insert(Named("Entity"));
    insert(Named("Entity"));
    EXPECT_EQ(names + std::to_string(info->GetCount()) + " " + State(space, "Entity Entity_65537"),
              "Entity Entity_2 Entity_4 Entity_5 Entity_65536 Entity_65537 65535 Entity* Entity_65537*");
}

// An object whose name changed behind the name space's back still takes the name it was entered under
// when it dies; a stale entry would point at the freed info, which the next info made elsewhere reuses.
TEST_F(NameSpaceTest, ADyingObjectFreesTheNameItWasEnteredUnder) {
    // Each case: whether the object is renamed to B, then whether its name is nulled.
    for (auto [rename, null] : {std::pair{false, true}, {true, false}, {true, true}}) {
        SCOPED_TRACE(std::to_string(rename) + std::to_string(null));
        MCNameSpace* space = MakeSpace();
        MCObject* object = Named("A");
        ASSERT_TRUE(space->Insert(object, 0, 0, false));
        MCSPropertyAccessorT<ZVTString> renamed(ZVTString("B")), nulled;
        if (rename)
            object->SetProperty(MCCodes::pName, renamed, MCPropertyAccessor::accessAdd);
        if (null)
            object->NullProperty(MCCodes::pName, nulled);
        object->Expunge(true);
        ASSERT_TRUE(MakeSpace()->Insert(Named("Zed"), 0, 0, false));
        MCObject* next = Named("A");
        const std::string state = State(space, "A B");
        space->Insert(next, '_', 0, true);
        EXPECT_EQ(state + " " + NameOf(next), "A- B- A");
    }
}

// Making a taken name unique runs host code twice, the rename's rules and the info's creation; either
// may expunge the object, which then stays out without a stray info.
TEST_F(NameSpaceTest, AnObjectExpungedWhileItIsEnteredIsLeftOut) {
    // Expunges its victim once, from the rename's rule or from the info's creation.
    struct Taker : MCPropertySemantic, MCCreationHook {
        result Fire(mode, MCObject* object, MCProperty*, MCPropertySemanticContext*) override {
            return m_bByRename && Take(object) ? resultObjectDestroyed : resultContinue;
        }
        void ItemCreated(MCObject* object) override {
            if (!m_bByRename && object->GetType() == MCStringInfo::c_sType)
                Take(m_pxVictim);
        }
        unsigned long GetInterests() const override { return PostEdit; }
        bool Take(MCObject* object) {
            if (!object || object != m_pxVictim)
                return false;
            m_pxVictim = nullptr;
            object->Expunge(true);
            return true;
        }
        bool m_bByRename;
        MCObject* m_pxVictim = nullptr;
    };
    for (bool byRename : {true, false}) {
        SCOPED_TRACE(byRename ? "the rename's rule" : "the info's creation");
        // Generic objects take no property rules: a host class does.
        constexpr short type = TestNode::c_sType;
        MCNameSpace* space = MakeSpace();
        space->AddValidType(type);
        ASSERT_TRUE(space->Insert(Named("Entity", nullptr, type), '_', 0, true));
        MCObject* object = Named("Entity", nullptr, type);
        const long id = object->GetId();
        Taker taker;
        taker.m_bByRename = byRename;
        MCFactoryContext context;
        MCPropertySemanticRegistry::Register(type, &context, MCCodes::pName, &taker, false, false);
        MCFactoryRegistry::HookCreateItem(taker, true);
        taker.m_pxVictim = object;
        const ZVTBoolean entered = space->Insert(object, '_', 0, true);
        MCFactoryRegistry::HookCreateItem(taker, false);
        MCPropertySemanticRegistry::GetInstance()->Deregister(&taker);
        EXPECT_EQ(std::to_string(entered) + " " + std::to_string(MCObject::ResolveId(id) != nullptr) + " " +
                      State(space, "Entity Entity_2") + " " +
                      std::to_string(MCVRefIter(space, c_sInfos).GetCount()),
                  "0 0 Entity* Entity_2- 1");
    }
}

// Names are taken down the tree, never up nor across. A child moved by an edit of its ancestor takes the
// names of its new parent, not those it had, and gives them back when it is removed.
TEST_F(NameSpaceTest, NamesAreTakenDownTheTreeAndMoveWithTheChild) {
    MCNameSpace *root = MakeSpace(), *left = MakeSpace(root), *right = MakeSpace(root), *above = left;
    for (int depth = 0; depth < 20; ++depth)  // deeper than a walk remembers without allocating
        above = MakeSpace(above);
    MCNameSpace* deep = MakeSpace(above);
    ASSERT_TRUE(left->Insert(Named("X"), 0, 0, false) && deep->Insert(Named("Y"), 0, 0, false));
    EXPECT_EQ(State(root, "X Y") + " " + State(deep, "X") + " " + State(right, "X"), "X+ Y+ X* X-");
    EXPECT_FALSE(root->Insert(Named("X"), 0, 0, false));
    EXPECT_FALSE(deep->Insert(Named("X"), 0, 0, false));
    EXPECT_TRUE(right->Insert(Named("X"), 0, 0, false));
    ASSERT_TRUE(right->Insert(Named("Top"), 0, 0, false));

    MCSRefAccessor accessor(right);
    deep->SetProperty(c_sAncestor, accessor, MCPropertyAccessor::accessAdd);
    EXPECT_EQ(ChildCount(above) * 10 + ChildCount(right), 1);
    // Through the ancestor: earlier names are not pushed down.
    EXPECT_EQ(State(above, "Y") + " " + State(left, "Y") + " " + State(right, "Y") + " " + State(deep, "Top"),
              "Y- Y- Y+ Top+");
    right->RemoveChild(deep);
    EXPECT_EQ(std::to_string(ChildCount(right)) + " " + State(deep, "Top"), "0 Top-");
}

TEST_F(NameSpaceTest, RefusalsLeaveTheObjectOut) {
    MCNameSpace* space = MakeSpace();
    MCNameSpace* empty = static_cast<MCNameSpace*>(Make(nullptr, MCNameSpace::c_sType));
    ASSERT_TRUE(space->Insert(Named("Taken"), 0, 0, false));
    const std::tuple<const char*, MCNameSpace*, MCObject*> cases[] = {
        {"type not valid", space, Named("Taken", nullptr, TestNode::c_sType)},
        {"empty valid list", empty, Named("Free")},
        {"null name", space, Named(nullptr)},
        {"empty name", space, Named("")},
    };
    for (const auto& [label, into, object] : cases) {
        SCOPED_TRACE(label);
        const std::string before = NameOf(object);
        for (bool unique : {false, true})
            EXPECT_FALSE(into->Insert(object, '_', 0, unique));
        EXPECT_EQ(NameOf(object) + " " + State(into, "Taken_2 Free"), before + " Taken_2- Free-");
    }
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
    }
    for (int i = 0; i + 1 < c_iLength; ++i)
        chain[i]->SetObject(chain[i + 1]);
    ASSERT_TRUE(space->Insert(Named("Survivor"), 0, 0, false));

    ASSERT_TRUE(RunOnStack(1 << 20, [&] { chain[c_iLength / 2]->Expunge(true); }));
    // The second half and the survivor's info stay; the first half went with the middle one.
    EXPECT_EQ(MCVRefIter(space, c_sInfos).GetCount(), c_iLength / 2);
    EXPECT_EQ(State(space, "Survivor"), "Survivor*");
    EXPECT_EQ(chain[c_iLength / 2 + 1]->GetObjectA(), chain[c_iLength / 2 + 2]);
}

// No edit can make a name space its own ancestor; a file can (references are restored raw), and then
// every walk over the tree of name spaces must still end.
TEST_F(NameSpaceTest, RingsOfNameSpacesAreRefusedOrSurvived) {
    MCNameSpace *a = MakeSpace(), *b = MakeSpace(a);
    a->AddChild(a);
    b->AddChild(a);
    a->AddChild(nullptr);
    b->RemoveChild(nullptr);
    EXPECT_EQ(ChildCount(a) * 10 + ChildCount(b), 10);

    MCNameSpace *c = MakeSpace(), *d = MakeSpace();
    for (MCNameSpace* space : {c, d}) {
        MCNameSpace* other = space == c ? d : c;
        MCVRefRawAccessor child(other);
        MCSRefRawAccessor ancestor(other);
        space->SetProperty(c_sChildren, child, MCPropertyAccessor::accessAdd);
        space->SetProperty(c_sAncestor, ancestor, MCPropertyAccessor::accessAdd);
    }
    MCObject *first = Named("Ring"), *second = Named("Ring");
    ASSERT_TRUE(c->Insert(first, 0, 0, false));
    EXPECT_FALSE(d->Insert(second, '_', 0, true));
    EXPECT_EQ(NameOf(second) + " " + State(d, "Ring") + " " + State(c, "Ring_2"), "Ring_2 Ring* Ring_2*");
    EXPECT_TRUE(c->Delete(first));
    EXPECT_EQ(State(d, "Ring"), "Ring-");
    d->Expunge(true);
    EXPECT_EQ(State(c, "Ring_2") + " " + std::to_string(ChildCount(c)), "Ring_2- 0");
}

TEST_F(NameSpaceTest, ClearTypeExpungesTheNamesOfThatType) {
    MCNameSpace* space = MakeSpace();
    space->AddValidType(TestNode::c_sType);
    for (const char* name : {"Node", "Other", "Generic"})
        ASSERT_TRUE(
            space->Insert(Named(name, nullptr, *name == 'G' ? c_sGeneric : TestNode::c_sType), 0, 0, false));
    space->ClearType(TestNode::c_sType, true);
    EXPECT_EQ(State(space, "Node Other Generic") + " " + std::to_string(space->IsValidFor(TestNode::c_sType)),
              "Node- Other- Generic* 0");
    space->ClearType(c_sGeneric, false);  // the names go, the type stays valid
    EXPECT_EQ(State(space, "Generic") + " " + std::to_string(space->IsValidFor(c_sGeneric)), "Generic- 1");
}

// A restore leaves the infos and their references but empty dictionaries: the rules on CalculateData
// rebuild them, the stored count included, and empty them.
TEST_F(NameSpaceTest, CalculateDataRebuildsTheDictionaries) {
    using PS = MCPropertySemantic;
    MCNameSpace *space = MakeSpace(), *child = MakeSpace(space);
    auto* info = static_cast<MCStringInfo*>(
        MCFactoryRegistry::CreateItem(MCStringInfo::c_sType, space, nullptr, nullptr));
    MCSRefRawAccessor raw(Named("Entity"));
    info->SetProperty(MCCodes::pStringInfoObject, raw, MCPropertyAccessor::accessAdd);
    info->SetCount(5);
    auto* property = const_cast<MCProperty*>(info->FindProperty(MCCodes::pStringInfoObject, false));
    auto fire = [&](PS::mode mode) {
        MCPropertySemanticContext context;
        MCPropertySemanticRegistry::FireSemantics(mode, MCCodes::pStringInfoObject, info, property, &context);
        return State(space, "Entity") + " " + State(child, "Entity");
    };
    ASSERT_EQ(State(space, "Entity"), "Entity-");
    EXPECT_EQ(fire(PS::PostCalculateData), "Entity* Entity*");
    MCObject* next = Named("Entity");
    EXPECT_FALSE(space->Insert(next, '_', 0, true)) << NameOf(next);
    EXPECT_EQ(NameOf(next), "Entity_6");
    EXPECT_EQ(fire(PS::PreCalculateData), "Entity- Entity-");
}

}  // namespace
