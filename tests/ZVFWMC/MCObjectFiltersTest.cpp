// Iterators over properties, ownees and list values, the core's filters and type sorter, object equality
// and its strategies, and the pairing hooks. Each walk is rendered as one string of type codes or ids.

#include <algorithm>
#include <functional>
#include <iterator>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include "support/ModelTestSupport.h"

namespace {

// Integer aliases that take part in default equality (registered with `first`).
constexpr short c_sA = 7431;
constexpr short c_sB = 7432;

std::string Types(MCPropertyListIter& it) {
    std::string types;
    while (++it)
        types += (types.empty() ? "" : " ") + std::to_string(it.GetValue()->GetType());
    return types;
}

std::string Ids(MCOwneeListIter& it, const std::function<void(MCObject*)>& visit = nullptr) {
    std::string ids;
    while (++it) {
        ids += (ids.empty() ? "" : " ") + std::to_string(it.GetValue()->GetId());
        if (visit)
            visit(it.GetValue());
    }
    return ids;
}

class FiltersTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        MCFactoryRegistry::RegisterAliasProperty(c_sA, "FirstA", MCCodes::pInteger, true, false, false,
                                                 false);
        MCFactoryRegistry::RegisterAliasProperty(c_sB, "FirstB", MCCodes::pInteger, true, false, false,
                                                 false);
    }
    static void SetName(MCObject* object, const char* name) {
        MCSPropertyAccessorT<ZVTString> accessor{ZVTString(name)};
        ASSERT_TRUE(object->SetProperty(MCCodes::pName, accessor, MCPropertyAccessor::accessAdd));
    }
    static std::string Id(const MCObject* object) { return std::to_string(object->GetId()); }
};

}  // namespace

TEST_F(FiltersTest, SortedWalksKeepTheirSnapshotFilteredCountsTheirRebuild) {
    TestNode* node = MakeNode();  // its embedded 7101 starts nulled
    SetLong(node, c_sB, 1);
    new MCSPropertyT<long>(-5, node);  // a user-defined type code, nulled; the object frees it
    MCPropertySortOnType byType;
    MCPropertyFilterOnNotNulled notNulled;
    MCPropertyListIter sorted(node, nullptr, &byType);
    MCPropertyListIter filtered(node, &notNulled);
    EXPECT_EQ(sorted.GetValue(), nullptr);  // nothing before the first step
    EXPECT_EQ(Types(sorted), "-5 132 7101 7432");
    EXPECT_EQ(filtered.GetCount(), 2);

    SetLong(node, TestNode::c_sEmbedded, 1);
    SetLong(node, c_sA, 1);
    sorted.Reset(false);
    EXPECT_EQ(Types(sorted), "-5 132 7101 7432");
    sorted.Reset(true);
    EXPECT_EQ(Types(sorted), "-5 132 7101 7431 7432");
    EXPECT_EQ(Types(filtered), "132 7101 7432 7431");  // the walk is live, its count is not
    EXPECT_EQ(filtered.GetCount(), 2);
    filtered.Reset(true);
    EXPECT_EQ(filtered.GetCount(), 4);

    ZVTSList<short> none;
    MCItemFilterOnPresenceInList nothing(&none);
    MCPropertyListIter empty(node, &nothing, &byType);
    EXPECT_EQ(empty.GetCount(), 0);
    EXPECT_FALSE(++empty);
}

TEST_F(FiltersTest, CopiedHandlesShareOneCursor) {
    MCObject* object = Make();
    SetLong(object, c_sA, 1);
    MCPropertyListIter first(object);
    MCPropertyListIter copy(first);
    ASSERT_TRUE(++copy);
    MCPropertyListIter& alias = first;
    first = alias;  // must not let go of what it is about to hold
    copy.FreeImplementation();
    EXPECT_EQ(copy.GetCount(), -1);
    EXPECT_FALSE(++copy);
    ASSERT_TRUE(++first);
    EXPECT_EQ(first.GetValue()->GetType(), c_sA);
    copy = first;
    EXPECT_FALSE(++copy);
    EXPECT_FALSE(++first);
    EXPECT_EQ(MCPropertyListIter(nullptr).GetCount(), -1);

    // So do ownee handles; Reset takes the shared cursor back to the start.
    MCObject* firstOwnee = Make(object);
    MCObject* second = Make(object);
    MCOwneeListIter ownees(object), other(second);
    MCOwneeListIter shared(ownees);
    ASSERT_TRUE(++shared);
    other = shared;
    EXPECT_EQ(Ids(other), Id(second));
    ownees.Reset(true);
    EXPECT_EQ(Ids(shared), Id(firstOwnee) + " " + Id(second));
}

TEST_F(FiltersTest, OwneeWalksStandExpungingTheCurrentOwneeAndFilter) {
    MCObject* root = Make();
    MCObject* plain = Make(root);
    TestNode* bare = MakeNode(root);
    TestNode* named = MakeNode(root);
    SetName(named, "n");
    const std::string nodes = Id(bare) + " " + Id(named);

    MCOwneeFilterOnType anyObject(1), nodeType(TestNode::c_sType);
    MCOwneeFilterOnPropExistence withName(TestNode::c_sType, 147, true);
    MCOwneeFilterOnPropExistence withoutName(TestNode::c_sType, 147, false), exactOnly(1, 147, false);
    // Other types, absent and non-reference properties never match a reference value.
    MCOwneeFilterOnPropRefValue byRef(TestNode::c_sType, TestNode::c_sEmbedded, nullptr);
    SetLong(bare, TestNode::c_sEmbedded, 0);
    // Only the node whose Parent is `plain` matches; `plain` has one too but is of another type.
    MCOwneeFilterOnPropRefValue byParent(TestNode::c_sType, 152, plain);
    for (MCObject* holder : {static_cast<MCObject*>(named), plain}) {
        MCSRefAccessor parent(plain);
        holder->SetProperty(MCCodes::pParent, parent, MCPropertyAccessor::accessAdd);
    }
    MCSRefAccessor elsewhere(named);
    bare->SetProperty(MCCodes::pParent, elsewhere, MCPropertyAccessor::accessAdd);
    const struct {
        ZVTFilter<MCObject*>* m_pxFilter;
        long m_lCount;
        std::string m_sIds;
    } cases[] = {
        {&anyObject, 3, Id(plain) + " " + nodes},
        {&nodeType, 2, nodes},
        {&withName, 1, Id(named)},
        {&withoutName, 1, Id(bare)},
        {&exactOnly, 0, ""},
        {&byRef, 0, ""},
        {&byParent, 1, Id(named)},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        MCOwneeListIter it(root, cases[i].m_pxFilter);
        EXPECT_EQ(it.GetCount(), cases[i].m_lCount);
        EXPECT_EQ(Ids(it), cases[i].m_sIds);
    }

    MCOwneeListIter all(root);
    EXPECT_EQ(all.GetCount(), 3);
    EXPECT_EQ(Ids(all, [root](MCObject* ownee) { root->DestroyOwnedObject(ownee); }),
              Id(plain) + " " + nodes);
    EXPECT_EQ(root->GetFirstOwnee(), nullptr);
}

TEST_F(FiltersTest, AbsenceLooksBehindAliasesPresenceDoesNot) {
    MCObject* object = Make();
    SetName(object, "n");  // 147, an alias of String (91)
    MCSPropertyAccessorT<ZVTString> text{ZVTString("t")};
    ASSERT_TRUE(object->SetProperty(MCCodes::pString, text, MCPropertyAccessor::accessAdd));
    SetLong(object, 87, 1);
    MCItem* name = const_cast<MCProperty*>(object->FindProperty(MCCodes::pName, false));
    MCItem* string = const_cast<MCProperty*>(object->FindProperty(MCCodes::pString, false));
    MCItem* integer = const_cast<MCProperty*>(object->FindProperty(MCCodes::pInteger, false));

    ZVTSList<short> stringType, nameType;
    stringType.Append(91);
    nameType.Append(147);
    MCItemFilterOnPresenceInList presentString(&stringType), presentName(&nameType), presentNull(nullptr);
    MCItemFilterOnAbsenceInList absentString(&stringType), absentName(&nameType), absentNull(nullptr);
    const struct {
        MCItem* m_pxItem;
        ZVTFilter<MCItem*>* m_pxFilter;
        bool m_bPasses;
    } cases[] = {
        {name, &presentString, false},  {name, &absentString, false},   {string, &presentString, true},
        {string, &absentString, false}, {integer, &absentString, true}, {name, &presentName, true},
        {name, &absentName, false},     {string, &absentName, true},    {name, &presentNull, false},
        {name, &absentNull, false},     {nullptr, &absentName, false},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        MCItem* item = cases[i].m_pxItem;
        EXPECT_EQ(cases[i].m_pxFilter->Test(item), cases[i].m_bPasses);
    }

    ZVTSList<ZVTFilter<MCItem*>*> filters;
    MCItemFilterOfFilters all(&filters), none(nullptr);
    EXPECT_TRUE(all.Test(integer));
    EXPECT_FALSE(none.Test(integer));
    filters.Append(&absentName);
    filters.Append(&absentString);
    MCPropertyListIter it(object, &all);  // item filters serve the property walk as they are
    EXPECT_EQ(Types(it), "132 87");
}

namespace {

struct RefusingObjectStrategy : MCObjectEqualStrategy {
    ZVTBoolean AreEqual(const MCObject*, const MCObject*) override { return false; }
};

// Compares the values of the properties its filter lets through.
struct FilteredValueStrategy : MCPropertyValueEqualStrategy {
    explicit FilteredValueStrategy(ZVTFilter<MCProperty*>* filter)
        : MCPropertyValueEqualStrategy(false), m_pxFilter(filter) {}
    ZVTFilter<MCProperty*>* GetFilter() const override { return m_pxFilter; }
    ZVTFilter<MCProperty*>* m_pxFilter;
};

}  // namespace

TEST_F(FiltersTest, DefaultEqualityComparesFirstTypesAndIgnoresTheId) {
    MCObject* left = Make();
    MCObject* right = Make();
    SetName(left, "same");
    SetName(right, "same");
    EXPECT_TRUE(left->IsEqualTo(right, nullptr, nullptr));

    MCPropertyValueEqualStrategy values(false);  // a null filter lets the id in
    EXPECT_FALSE(left->IsEqualTo(right, nullptr, &values));
    ZVTSList<short> idOnly;
    idOnly.Append(132);
    MCItemFilterOnAbsenceInList notId(&idOnly);
    FilteredValueStrategy withoutId(&notId);
    EXPECT_TRUE(left->IsEqualTo(right, nullptr, &withoutId));
    RefusingObjectStrategy refuse;
    EXPECT_FALSE(left->IsEqualTo(left, &refuse, &values));

    SetLong(left, c_sA, 1);
    EXPECT_FALSE(left->IsEqualTo(right, nullptr, nullptr));
    EXPECT_FALSE(right->IsEqualTo(left, nullptr, nullptr));
    EXPECT_FALSE(left->IsPropertyEqual(c_sA, right, nullptr));
    EXPECT_TRUE(left->IsPropertyEqual(c_sB, right, nullptr));  // absent on both
    SetLong(right, c_sA, 2);
    EXPECT_FALSE(right->IsEqualTo(left, nullptr, nullptr));
    SetLong(right, c_sA, 1);
    EXPECT_TRUE(right->IsEqualTo(left, nullptr, nullptr));
    auto* mine = const_cast<MCProperty*>(left->FindProperty(c_sA, false));
    auto* theirs = const_cast<MCProperty*>(right->FindProperty(c_sA, false));
    EXPECT_TRUE(left->IsEqualTo(mine, right, theirs, false));
    EXPECT_FALSE(left->IsEqualTo(mine, right, nullptr, false));

    // Objects of different types differ by any compared property; with none to compare they are equal.
    TestNode* node = MakeNode();
    SetName(node, "same");
    EXPECT_FALSE(left->IsPropertyEqual(147, node, nullptr));
    ZVTSList<short> noTypes;
    MCItemFilterOnPresenceInList nothing(&noTypes);
    FilteredValueStrategy compareNothing(&nothing);
    EXPECT_TRUE(node->IsEqualTo(left, nullptr, &compareNothing));
}

TEST_F(FiltersTest, ParallelismRanksTypeCloneIdAndName) {
    MCObject* named = Make();
    MCObject* sameName = Make();
    MCObject* otherName = Make();
    MCObject* nameless = Make();
    TestNode* node = MakeNode();
    SetName(named, "n");
    SetName(sameName, "n");
    SetName(otherName, "m");
    MCObject* clone = Make();
    SetLong(clone, 582, otherName->GetId());  // CloneId
    auto* name = const_cast<MCProperty*>(named->FindProperty(MCCodes::pName, false));
    auto* otherNameProperty = const_cast<MCProperty*>(sameName->FindProperty(MCCodes::pName, false));

    const struct {
        const MCItem* m_pxSelf;
        MCItem* m_pxFirst;
        bool m_bUseCloneId;
        long m_lExpected;
    } cases[] = {
        {named, nullptr, false, 10},
        {named, sameName, false, 10},
        {named, otherName, true, 5},
        {nameless, named, false, 5},
        {named, node, true, 0},
        {named, name, false, 0},
        {otherName, clone, true, 10},
        {otherName, clone, false, 5},
        {name, nullptr, false, 10},
        {name, clone, false, 0},
        {name, otherNameProperty, false, 10},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(cases[i].m_pxSelf->GetParallelism(cases[i].m_pxFirst, nullptr, cases[i].m_bUseCloneId),
                  cases[i].m_lExpected);
    }

    EXPECT_TRUE(named->IsDefinedBy(named, 0));
    EXPECT_FALSE(named->IsDefinedBy(sameName, 0));
    MCHeirSet set;
    const MCHeirSet* heirs = &set;
    named->GetHeirs(heirs);
    EXPECT_EQ(heirs, nullptr);
}

// ---------------------------------------------------------------------------------------------------
// Values of list properties

namespace {

template <class T>
struct ListType;
template <>
struct ListType<long> {
    static constexpr short c_sType = MCCodes::pIntegerList;
    static long Make(int n) { return n; }
};
template <>
struct ListType<float> {
    static constexpr short c_sType = MCCodes::pFloatList;
    static float Make(int n) { return static_cast<float>(n) + 0.5f; }
};
template <>
struct ListType<ZVTString> {
    static constexpr short c_sType = MCCodes::pStringList;
    static ZVTString Make(int n) { return ZVTString(std::string(1, static_cast<char>('a' + n))); }
};

template <class T>
struct Descending : ZVTSorter<T> {
    void Sort(T* values, long count) override {
        std::sort(values, values + count, [](const T& a, const T& b) { return b < a; });
    }
};

template <class T>
struct Refuse : ZVTFilter<T> {
    explicit Refuse(T value) : m_xValue(value) {}
    ZVTBoolean Test(T& value) override { return !(value == m_xValue); }
    T m_xValue;
};

}  // namespace

template <class T>
class ValueIterTest : public ModelTest {
protected:
    // The walk as positions in the list it was made from.
    static std::string Walk(MCVPropertyIterT<T>& it, const ZVTSList<T>& list) {
        std::string walk;
        while (++it) {
            for (size_t i = 0; i < list.Entries(); ++i) {
                if (list.At(i) == it.GetValue())
                    walk += std::to_string(i);
            }
        }
        return walk;
    }
};

using ListValueTypes = ::testing::Types<long, float, ZVTString>;
TYPED_TEST_SUITE(ValueIterTest, ListValueTypes);

TYPED_TEST(ValueIterTest, WalksListsAndListProperties) {
    using T = TypeParam;
    ZVTSList<T> list;
    for (int n : {1, 3, 2})
        list.Append(ListType<T>::Make(n));

    MCVPropertyIterT<T> plain(&list);
    EXPECT_EQ(plain.GetCount(), 3);
    EXPECT_EQ(this->Walk(plain, list), "012");
    EXPECT_FALSE(++plain);  // stays at the end rather than starting over

    Descending<T> descending;
    Refuse<T> notFirst(list.At(0));
    MCVPropertyIterT<T> sorted(&list, &notFirst, &descending);
    EXPECT_EQ(sorted.GetCount(), 2);
    EXPECT_EQ(this->Walk(sorted, list), "12");

    MCObject* object = this->Make();
    MCVPropertyIterT<T> absent(object, ListType<T>::c_sType);
    EXPECT_EQ(absent.GetCount(), 0);
    EXPECT_FALSE(++absent);
    EXPECT_THROW(absent.GetValue(), EXInvalidIter);

    MCVPropertyAccessorT<T> accessor(list);
    ASSERT_TRUE(object->SetProperty(ListType<T>::c_sType, accessor, MCPropertyAccessor::accessReplace));
    MCVPropertyIterT<T> held(object, ListType<T>::c_sType, &notFirst);
    EXPECT_EQ(held.GetCount(), 2);
    EXPECT_EQ(this->Walk(held, list), "12");

    // A removal takes out the values it carries, and the list property walks without them.
    MCVPropertyAccessorT<T> middle(list.At(1));
    ASSERT_TRUE(object->SetProperty(ListType<T>::c_sType, middle, MCPropertyAccessor::accessRemove));
    MCVPropertyIterT<T> rest(object, ListType<T>::c_sType);
    EXPECT_EQ(this->Walk(rest, list), "02");
}
